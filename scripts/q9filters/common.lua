-- What the DBC and LDF modules both need: the library's core table, its
-- import engine, and the upper half of Windows-1252, the code page such
-- files are often written in.
local C = {}

-- Code points of the bytes 0x80..0x9F of Windows-1252; the bytes 0xA0..0xFF
-- stand for the code points of the same number (Latin-1).
C.cp1252 = {
  [0x80] = 0x20AC, [0x82] = 0x201A, [0x83] = 0x0192, [0x84] = 0x201E, [0x85] = 0x2026,
  [0x86] = 0x2020, [0x87] = 0x2021, [0x88] = 0x02C6, [0x89] = 0x2030, [0x8A] = 0x0160,
  [0x8B] = 0x2039, [0x8C] = 0x0152, [0x8E] = 0x017D, [0x91] = 0x2018, [0x92] = 0x2019,
  [0x93] = 0x201C, [0x94] = 0x201D, [0x95] = 0x2022, [0x96] = 0x2013, [0x97] = 0x2014,
  [0x98] = 0x02DC, [0x99] = 0x2122, [0x9A] = 0x0161, [0x9B] = 0x203A, [0x9C] = 0x0153,
  [0x9E] = 0x017E, [0x9F] = 0x0178,
}

-- The package root's script holds the core, but format modules are loaded
-- without access to it, so they open it themselves from the library beside
-- this folder; a second Q9Db_core call in a state is harmless.
local loaded = {}
local function open(entry)
  if not loaded[entry] then
    local source = debug.getinfo(1, "S").source
    local folder = source:match("^@(.*)/q9filters/[^/]*$") or "."
    loaded[entry] = assert(package.loadlib(folder .. "/Q9Db.so", entry))()
  end
  return loaded[entry]
end

function C.core() return open("Q9Db_core") end

-- The native import engine: DBC and LDF files read and built into nodes in
-- the library itself (importDBC, importLDF, describeDBC, describeLDF,
-- databaseIdDBC).
function C.engine() return open("Q9Db_importEngine") end

return C

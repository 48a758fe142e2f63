-- Small helpers shared by the LDF modules: texts, numbers and the reader.
--
-- The LDF reader hands texts over as the file's bytes. Most files are ASCII
-- or UTF-8, but unit texts such as a degree sign are often written by
-- editors in Windows-1252; the database wants UTF-8, so bytes that are no
-- valid UTF-8 are read as Windows-1252.
local T = {}

-- 0x80..0x9F of Windows-1252; the rest of the upper half is Latin-1.
local cp1252 = {
  [0x80] = 0x20AC, [0x82] = 0x201A, [0x83] = 0x0192, [0x84] = 0x201E, [0x85] = 0x2026,
  [0x86] = 0x2020, [0x87] = 0x2021, [0x88] = 0x02C6, [0x89] = 0x2030, [0x8A] = 0x0160,
  [0x8B] = 0x2039, [0x8C] = 0x0152, [0x8E] = 0x017D, [0x91] = 0x2018, [0x92] = 0x2019,
  [0x93] = 0x201C, [0x94] = 0x201D, [0x95] = 0x2022, [0x96] = 0x2013, [0x97] = 0x2014,
  [0x98] = 0x02DC, [0x99] = 0x2122, [0x9A] = 0x0161, [0x9B] = 0x203A, [0x9C] = 0x0153,
  [0x9E] = 0x017E, [0x9F] = 0x0178,
}

function T.utf8(text)
  if text == nil or utf8.len(text) then return text end
  return (text:gsub("[\128-\255]", function(c)
    local b = c:byte()
    return utf8.char(cp1252[b] or b)
  end))
end

-- The reader gives every number as a float; ids, sizes and offsets are
-- integers in the file, so they are made integers again here.
function T.int(value)
  return value and math.tointeger(value) or nil
end

function T.hex(value)
  return string.format("0x%02X", math.tointeger(value) or 0)
end

-- A millisecond value of the file as whole microseconds, for param fields.
function T.microseconds(ms)
  return math.floor(ms * 1000 + 0.5)
end

-- Numbers as the file would write them: 5 rather than 5.0.
function T.number(value)
  local i = math.tointeger(value)
  return i and tostring(i) or tostring(value)
end

function T.baseName(path)
  return ((path:match("([^/\\]+)$") or path):gsub("%.[^.]*$", ""))
end

-- Options of the second text: "key=value" pairs separated by ";", the same
-- form the DBC filter reads. Known keys: prefix (text), language (0..65535).
-- Anything else goes to `complain` and is ignored.
function T.options(textValue, complain)
  local options = {}
  for item in (textValue or ""):gmatch("[^;]+") do
    local key, value = item:match("^%s*([%w_]+)%s*=%s*(.-)%s*$")
    if key == "prefix" and value ~= "" then
      options.prefix = value
    elseif key == "language" and math.tointeger(tonumber(value)) and tonumber(value) >= 0
        and tonumber(value) <= 0xFFFF then
      options.language = math.tointeger(tonumber(value))
    elseif item:match("%S") then
      complain(string.format("option '%s' is not known or has no fitting value; it is ignored", item))
    end
  end
  return options
end

-- The core table of the library (importLDF, constants). The package root
-- holds one, but format modules are loaded without access to it, so they
-- open the core themselves; a second Q9Db_core call in a state is harmless.
local core
function T.core()
  if not core then
    local source = debug.getinfo(1, "S").source
    local folder = source:match("^@(.*)/q9filters/[^/]*$") or "."
    core = assert(package.loadlib(folder .. "/libQ9Db.so", "Q9Db_core"))()
  end
  return core
end

-- Reads a file into the reader's tree, or raises an error naming the file
-- and carrying the reader's message (which has line and column).
function T.read(path)
  local tree, message = T.core().importLDF(path)
  if not tree then
    if type(message) == "number" then message = "the file can't be opened" end
    error(string.format("%s: %s", path, message), 0)
  end
  return tree
end

-- The sections of a tree by tag; each appears at most once.
function T.sections(tree)
  local by = {}
  for _, section in ipairs(tree) do by[section.tag] = section end
  return by
end

return T

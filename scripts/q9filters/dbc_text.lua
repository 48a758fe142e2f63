-- How values are written into a DBC file: names as identifiers, texts in
-- Windows-1252 within quotes, and numbers that read back to the same double.

local T = {}

-- Unicode code points of the bytes 0x80..0x9F of Windows-1252; the bytes
-- 0xA0..0xFF stand for the code points of the same number.
local FROM_UNICODE = {}
for byte, code in pairs(require("q9filters.common").cp1252) do
  FROM_UNICODE[code] = string.char(byte)
end

-- UTF-8 text as Windows-1252 bytes; the second result counts characters
-- that the code page lacks, written as "?".
function T.cp1252(text)
  local out, missing = {}, 0
  local ok = pcall(function()
    for _, code in utf8.codes(text) do
      if code < 0x80 or (code >= 0xA0 and code <= 0xFF) then
        out[#out + 1] = string.char(code)
      elseif FROM_UNICODE[code] then
        out[#out + 1] = FROM_UNICODE[code]
      else
        out[#out + 1] = "?"
        missing = missing + 1
      end
    end
  end)
  if not ok then
    -- Not UTF-8 after all: the bytes go out as they are.
    return text, 0
  end
  return table.concat(out), missing
end

-- A string constant. DBC strings have no escape, so a quote inside becomes
-- an apostrophe; both kinds of loss are counted in `losses`.
function T.quote(text, losses)
  local bytes, missing = T.cp1252(text or "")
  local quotes
  bytes, quotes = bytes:gsub('"', "'")
  if losses then
    losses.characters = losses.characters + missing
    losses.quotes = losses.quotes + quotes
  end
  return '"' .. bytes .. '"'
end

-- Words the DBC reader takes as keywords, which can't serve as names.
local KEYWORDS = {}
for word in ([[VERSION NS_ BS_ BU_ BO_ SG_ CM_ VAL_ VAL_TABLE_ BA_ BA_DEF_ BA_DEF_DEF_
    CAT_DEF_ CAT_ SIG_VALTYPE_ EV_ INT HEX FLOAT STRING ENUM]]):gmatch("%S+") do
  KEYWORDS[word] = true
end

-- A name as a DBC identifier: letters, digits and "_", not starting with a
-- digit, no keyword.
T.identifier = require("q9filters.export_common").identifierMaker(KEYWORDS)

-- Whether a name can stand in a DBC file as it is: an identifier of at most
-- 32 characters, the most that readers are sure to take.
function T.isIdentifier(name)
  return name ~= nil and #name <= 32 and name:find("^[%a_][%w_]*$") ~= nil and not KEYWORDS[name]
end

-- Names unique within one scope: a repeated one gets "_2", "_3", ...
function T.namer()
  local used = {}
  return function(name)
    local word = T.identifier(name)
    if used[word] then
      local n = 2
      while used[word .. "_" .. n] do n = n + 1 end
      word = word .. "_" .. n
    end
    used[word] = true
    return word
  end
end

-- The shortest decimal form that reads back to the same double.
function T.number(value)
  if value == 0 then return "0" end
  if value == math.floor(value) and math.abs(value) < 2^53 then
    return string.format("%.0f", value)
  end
  for digits = 15, 17 do
    local text = string.format("%." .. digits .. "g", value)
    if tonumber(text) == value then return text end
  end
  return string.format("%.17g", value)
end

return T

-- Small helpers shared by the LDF modules: texts, numbers and the reader.
--
-- The LDF reader hands texts over as the file's bytes. Most files are ASCII
-- or UTF-8, but unit texts such as a degree sign are often written by
-- editors in Windows-1252; the database wants UTF-8, so bytes that are no
-- valid UTF-8 are read as Windows-1252.
local T = {}

local cp1252 = require("q9filters.common").cp1252

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

-- The core table of the library (importLDF, constants).
T.core = require("q9filters.common").core

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

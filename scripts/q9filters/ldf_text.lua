-- Small helpers of the LDF module: texts and the options of the second text.
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

return T

-- Small helpers of the LDF module: texts, names and numbers as a file holds
-- them, and the options of the second text.
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

-- A string constant: the reader takes \\, \" and the escapes of line ends
-- and tabs.
local ESCAPES = {["\\"] = "\\\\", ['"'] = '\\"', ["\n"] = "\\n", ["\r"] = "\\r", ["\t"] = "\\t"}
function T.quote(textValue)
  return '"' .. (textValue or ""):gsub('[\\"\n\r\t]', ESCAPES) .. '"'
end

-- The words the reader takes as keywords: they can't name an entry.
local KEYWORDS = {}
for word in ([[LIN_description_file LIN_protocol_version LIN_language_version LIN_speed kbps Channel_name ms
    Nodes Diagnostic_addresses Master Slaves composite configuration Signals Diagnostic_signals Frames
    Sporadic_frames Event_triggered_frames Diagnostic_frames Node_attributes LIN_protocol configured_NAD
    initial_NAD product_id response_error fault_state_signals P2_min ST_min N_As_timeout N_Cr_timeout
    configurable_frames Schedule_tables delay AssignNAD ConditionalChangeNAD DataDump SaveConfiguration
    AssignFrameIdRange FreeFormat AssignFrameId Signal_groups Signal_encoding_types Signal_representation
    logical_value physical_value bcd_value ascii_value]]):gmatch("%S+") do
  KEYWORDS[word] = true
end

-- A name as an LDF identifier: letters, digits and "_", not starting with
-- a digit, no keyword.
T.identifier = require("q9filters.export_common").identifierMaker(KEYWORDS)

-- The shortest decimal form that reads back to the same double.
function T.number(value)
  if value == 0 then return 1 / value < 0 and "-0.0" or "0" end  -- "-0" would read as the integer 0
  if value == math.floor(value) and math.abs(value) < 2^53 then return string.format("%.0f", value) end
  for digits = 15, 17 do
    local textValue = string.format("%." .. digits .. "g", value)
    if tonumber(textValue) == value then return textValue end
  end
  return string.format("%.17g", value)
end

-- The leading number of a version text ("2.1" -> 2.1), 0 when it has none,
-- as the import reads it.
function T.versionNumber(textValue)
  return tonumber((textValue or ""):match("^%s*([%d.]*)")) or 0
end

return T

-- The DBC format module of the filter package: CAN networks in the DBC text
-- format, imported into a CAN cluster and exported from one.
--
-- The second text of an import or export holds options, "key=value" pairs
-- separated by ";" (an empty text takes the defaults):
--   prefix=<text>    import: the id prefix instead of the file's database id
--   language=<n>     the language number of descriptions, units and value
--                    texts (default 0)
--   version=<text>   export: the text of the VERSION line (default empty)
-- Reports: first = 0 information, 1 something the filter couldn't map (the
-- rest goes on), 2 error; second = for information, what the text names
-- (0 the whole file, 1 an ECU, 2 a frame, 3 a signal), else 0.

local dbcExport = require "q9filters.dbc_export"
local engine = require("q9filters.common").engine

local M = {
  name = "DBC",
  importFilter = "DBC files (*.dbc)|*.dbc",
  exportFilter = "DBC files (*.dbc)|*.dbc",
  exportExtension = ".dbc",
}

local OPTION_KINDS = {prefix = "text", language = "integer", version = "text"}

-- Options from the second text; problems go to `complain`.
local function parseOptions(text, complain)
  local options = {}
  for item in (text or ""):gmatch("[^;]+") do
    local key, value = item:match("^%s*([%w_]+)%s*=%s*(.-)%s*$")
    local kind = key and OPTION_KINDS[key]
    if not kind then
      complain(string.format("option '%s' is not known; it is ignored", item))
    elseif kind == "integer" then
      local number = math.tointeger(tonumber(value))
      if number and number >= 0 and number <= 0xFFFF then
        options[key] = number
      else
        complain(string.format("option %s needs a number from 0 to 65535, not '%s'; it is ignored", key, value))
      end
    elseif value == "" then
      complain(string.format("option %s is empty; it is ignored", key))
    else
      options[key] = value
    end
  end
  return options
end

-- Statement forms that start a line of a DBC file. A file is taken when one
-- of them stands at the start of a line in its first 64 KiB and nothing in
-- it looks like another format or binary data.
local STATEMENTS = {
  '^VERSION%s+"', "^NS_%s*:", "^BS_%s*:", "^BU_%s*:", "^BO_%s+%d+%s+[%a_][%w_]*%s*:",
  "^CM_%s", "^BA_DEF_%s", "^BA_%s", "^VAL_TABLE_%s", "^VAL_%s",
}

function M.detect(path)
  local file = io.open(path, "rb")
  if not file then return false end
  local head = file:read(65536) or ""
  file:close()
  if head:find("\0", 1, true) or head:find("LIN_description_file", 1, true) then return false end
  for line in head:gmatch("[^\r\n]+") do
    line = line:match("^%s*(.*)$")
    for _, statement in ipairs(STATEMENTS) do
      if line:find(statement) then return true end
    end
  end
  -- An empty DBC is a valid one; only the name can tell.
  return head:match("^%s*$") ~= nil and path:lower():sub(-4) == ".dbc"
end

local REPORT_WARNING = 1

function M.databaseId(path)
  return engine().databaseIdDBC(path)
end

-- The library reads the file and builds the nodes; a file it can't use
-- raises its message (file, line, column) before anything is added.
function M.import(db, node, path, options, report)
  local parsed = parseOptions(options, function(text)
    if report then report(REPORT_WARNING, 0, text) end
  end)
  engine().importDBC(db, node, path, parsed.prefix, parsed.language or 0, report)
  return 0
end

function M.info(db, path, report)
  engine().describeDBC(path, report)
  return 0
end

-- Q9Db_exportFile passes no report function, Q9Db_exportFileWithReport does.
function M.export(db, node, path, options, report)
  local function warn(text)
    if report then report(REPORT_WARNING, 0, text) end
  end
  return dbcExport.export(db, node, path, parseOptions(options, warn), warn)
end

return M

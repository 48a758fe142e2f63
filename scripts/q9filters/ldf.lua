-- LIN description files (LDF): detection, database id, import, the summary
-- of a file, and export. The library's import engine reads the file and
-- makes the nodes; ldf_export.lua writes a LIN channel back as a file that
-- imports as the same database.
--
-- The second text holds options, "key=value" pairs separated by ";":
--   prefix=<text>   import: the cluster's name and id prefix instead of
--                   Channel_name
--   language=<n>    the language of descriptions, units and value texts (0)
-- Reports, as in the DBC filter: first = 0 information, 1 something that
-- could not be mapped (the rest still imports); second = for information,
-- what the text names (0 the file, 1 an ECU, 2 a frame, 3 a signal), else 0.
-- A file the engine can't use raises an error with its message (file, line,
-- column); a deviation it reads as meant (sections or items out of order or
-- missing, unknown ones, a missing ';') it reports as a warning.
local text = require "q9filters.ldf_text"
local ldfExport = require "q9filters.ldf_export"
local engine = require("q9filters.common").engine

local M = {
  name = "ldf",
  importFilter = "LIN description files (*.ldf)|*.ldf",
  exportFilter = "LIN description files (*.ldf)|*.ldf",
  exportExtension = ".ldf",
}

-- The start of a file with its comments taken out, enough to see the head.
local function head(path)
  local file = io.open(path, "rb")
  if not file then return nil end
  local content = file:read(65536) or ""
  file:close()
  content = content:gsub("^\239\187\191", ""):gsub("/%*.-%*/", " "):gsub("/%*.*$", " "):gsub("//[^\n]*", " ")
  return content
end

-- An LDF file begins, after blanks and comments, with its keyword.
function M.detect(path)
  local content = head(path)
  return content ~= nil and content:match("^%s*LIN_description_file[^%w_]") ~= nil
end

-- The Channel_name of the file head, if it has one.
function M.databaseId(path)
  local content = head(path)
  if not content then return nil end
  local headText = content:match("^(.-)Nodes%s*{") or content
  local name = headText:match('Channel_name%s*=%s*"(.-)"%s*;')
  return name and text.utf8(name) or nil
end

function M.import(db, node, path, options, report)
  local function warn(message)
    if report then report(1, 0, message) end
  end
  local parsed = text.options(options, warn)
  engine().importLDF(db, node, path, parsed.prefix, parsed.language or 0, report)
  return nil
end

-- What a file holds, without touching the database: the second number
-- says what a line names (0 the file or a schedule table, 1 an ECU,
-- 2 a frame, 3 a signal), as in the DBC filter's summary.
function M.info(db, path, report)
  engine().describeLDF(path, report)
  return nil
end

-- Q9Db_exportFile passes no report function, Q9Db_exportFileWithReport does.
function M.export(db, node, path, options, report)
  local function warn(message)
    if report then report(1, 0, message) end
  end
  local parsed = text.options(options, warn)
  if parsed.prefix then warn("option prefix applies to imports only; it is ignored") end
  return ldfExport.export(db, node, path, parsed, warn)
end

return M

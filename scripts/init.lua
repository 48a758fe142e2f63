-- The root of the filter script package. The library runs this file when a
-- script says require "Q9Db" and at the start of every import or export
-- call; what it returns is the module.
--
-- The binding itself is the library's export Q9Db_core: it registers the
-- metatables of nodes, databases, values and encoders, so it runs first.
-- The file formats live in q9filters/, one module per format, each a table
--   { name, importFilter, exportFilter and exportExtension (or nil),
--     detect(path) -> boolean, databaseId(path) -> string or nil,
--     import(db, node, path, options, report) -> status or nil,
--     info(db, path, report) -> status or nil,
--     export(db, node, path, options) -> status or nil (optional) }
-- and the seven entries below pick the format for a file.

local source = debug.getinfo(1, "S").source
local folder = source:match("^@(.*)/[^/]*$") or "."
local openCore = assert(package.loadlib(folder .. "/Q9Db.so", "Q9Db_core"))
local core = openCore()

local M = {}
for name, value in pairs(core) do
  M[name] = value
end
M.core = core

-- Formats are loaded on first use; a broken one must not stop the others.
local formatNames = {"dbc", "ldf"}
local loaded

local function formats()
  if not loaded then
    loaded = {}
    for _, name in ipairs(formatNames) do
      local ok, format = pcall(require, "q9filters." .. name)
      if ok and type(format) == "table" then loaded[#loaded + 1] = format end
    end
  end
  return loaded
end

local function formatOf(path)
  for _, format in ipairs(formats()) do
    if format.detect(path) then return format end
  end
  return nil
end

local E_FAIL = -2147467259

-- Unknown files end as E_FAIL with a message naming the file.
local function requireFormat(path)
  local file, reason = io.open(path, "rb")
  if not file then error(reason, 0) end  -- names the file and why it can't be read
  file:close()
  local format = formatOf(path)
  if not format then error(string.format("%s: not a file format this package reads", path), 0) end
  return format
end

function M.doimport(db, node, path, options, report)
  return requireFormat(path).import(db, node, path, options or "", report)
end

function M.getImportInfo(db, path, report)
  return requireFormat(path).info(db, path, report)
end

-- report is nil when the client's call takes no reports (Q9Db_exportFile).
function M.doexport(db, node, path, options, report)
  for _, format in ipairs(formats()) do
    if format.export and format.exportExtension and path:lower():sub(-#format.exportExtension) ==
        format.exportExtension then
      return format.export(db, node, path, options or "", report)
    end
  end
  error(string.format("%s: no export filter writes files of this kind", path), 0)
end

local function filterList(field)
  local parts = {}
  for _, format in ipairs(formats()) do
    if format[field] then parts[#parts + 1] = format[field] end
  end
  return table.concat(parts, "|")
end

function M.getImportFilters() return filterList("importFilter") end
function M.getExportFilters() return filterList("exportFilter") end

function M.detectfile(path)
  local format = formatOf(path)
  return format and format.name or nil
end

function M.getdatabaseid(path)
  local format = formatOf(path)
  if not format then return nil end
  local id = format.databaseId(path)
  if id and id ~= "" then return id end
  local base = (path:match("([^/\\]+)$") or path):gsub("%.[^.]*$", "")
  return base
end

M.E_FAIL = E_FAIL
return M

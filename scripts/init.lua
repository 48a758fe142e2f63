-- The root of the filter script package. The library runs this file when a
-- script says require "Q9Db" and before every import or export; what it
-- returns is the module.
--
-- The binding itself is the library's export Q9Db_core: it registers the
-- metatables of nodes, databases, values and encoders, so it must have run
-- before any of those can reach a script.

local source = debug.getinfo(1, "S").source
local folder = source:match("^@(.*)/[^/]*$") or "."
local openCore = assert(package.loadlib(folder .. "/libQ9Db.so", "Q9Db_core"))
local core = openCore()

local M = {}
for name, value in pairs(core) do
  M[name] = value
end
M.core = core
return M

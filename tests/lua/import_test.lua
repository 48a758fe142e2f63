-- The raw readers from scripts: trees, parse errors as messages, and
-- failures to open as numbers.
local T = require "testing"
local Q9Db = T.Q9Db
local data = (os.getenv("Q9DB_SOURCE_DIR") or "../..") .. "/tests/import/data/"

local function copyTo(source, target)
  local input = assert(io.open(source, "rb"))
  local output = assert(io.open(target, "wb"))
  output:write(input:read("a"))
  input:close()
  output:close()
end

T.case("a DBC file becomes a tree of tables", function()
  local tree = Q9Db.importDBC(data .. "comfort_body.dbc")
  T.same(type(tree), "table")
  T.same(tree.tag, "db")
end)

T.case("an LDF file becomes a tree of tables", function()
  local tree = Q9Db.importLDF(data .. "seat_module.ldf")
  T.same(type(tree), "table")
  T.same(tree.tag, "db")
end)

T.case("a missing file gives nil and E_FAIL as a float", function()
  for _, read in ipairs({Q9Db.importDBC, Q9Db.importLDF}) do
    local r = T.pack(read())
    T.same(r[1], nil)
    T.same(r[2], -2147467259.0)
    T.same(T.pack(read("/nonexistent/x"))[2], -2147467259.0)
  end
end)

T.case("a syntax error gives nil and the reader's message", function()
  local path = os.tmpname()
  local f = assert(io.open(path, "w"))
  f:write('VERSION "1"\nBO_ 1 M: 8 X\n SG_ s : 0|8@1+ (1,0) [0|0] "" X\n BO_ ?\n')
  f:close()
  local tree, message = Q9Db.importDBC(path)
  os.remove(path)
  T.same(tree, nil)
  T.same(type(message), "string")
  T.truthy(message:find("DBC-Import", 1, true), message)
end)

T.case("non-ASCII file names are converted, not mangled", function()
  local path = os.tmpname() .. "-Größe-ä.dbc"
  copyTo(data .. "comfort_body.dbc", path)
  local tree = Q9Db.importDBC(path)
  os.remove(path)
  T.same(type(tree), "table")
end)

T.case("arguments after the first are ignored", function()
  T.same(select("#", Q9Db.importDBC(data .. "comfort_body.dbc", 1, 2, 3)), 1)
end)

T.finish()

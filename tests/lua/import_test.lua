-- The raw readers from scripts: trees, parse errors as messages, and
-- failures to open as numbers.
local T = require "testing"
local Q9Db = T.Q9Db
local data = T.data("import")

T.case("DBC and LDF files become trees of tables", function()
  for read, file in pairs({[Q9Db.importDBC] = "comfort_body.dbc", [Q9Db.importLDF] = "seat_module.ldf"}) do
    local tree = read(data .. file)
    T.same(type(tree), "table", file)
    T.same(tree.tag, "db", file)
  end
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
  local path = T.writeTemp('VERSION "1"\nBO_ 1 M: 8 X\n SG_ s : 0|8@1+ (1,0) [0|0] "" X\n BO_ ?\n')
  local tree, message = Q9Db.importDBC(path)
  os.remove(path)
  T.same(tree, nil)
  T.same(type(message), "string")
  T.truthy(message:find("DBC-Import", 1, true), message)
end)

T.case("non-ASCII file names are converted, not mangled", function()
  local path = T.writeTemp(T.readFile(data .. "comfort_body.dbc"), "-Größe-ä.dbc")
  local tree = Q9Db.importDBC(path)
  os.remove(path)
  T.same(type(tree), "table")
end)

T.case("arguments after the first are ignored", function()
  T.same(select("#", Q9Db.importDBC(data .. "comfort_body.dbc", 1, 2, 3)), 1)
end)

T.finish()

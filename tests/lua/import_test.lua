-- The raw readers from scripts: trees from files of any name, and failures
-- to open as numbers. Parse errors and where results go on the stack are
-- RawImportTest's: the binding passes the reader's results on as they are.
local T = require "testing"
local Q9Db = T.Q9Db
local data = T.data("import")

T.case("DBC and LDF files become trees of tables; non-ASCII names are converted, not mangled", function()
  for read, file in pairs({[Q9Db.importDBC] = "comfort_body.dbc", [Q9Db.importLDF] = "seat_module.ldf"}) do
    local path = T.writeTemp(T.readFile(data .. file), "-Größe-ä-" .. file)
    local tree = read(path)
    os.remove(path)
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

T.finish()

-- The module's entry and core table: paths, constants and their number
-- forms, group names, and a second registration in the same state.
local T = require "testing"
local Q9Db = T.Q9Db

T.case("version ignores its arguments", function()
  T.same(Q9Db.version(), "2.0.1026.0")
  T.same(Q9Db.version(1, "x", {}), "2.0.1026.0")
end)

T.case("every constant is a float; the large ones stay positive", function()
  local numbers, texts = 0, 0
  for name, value in pairs(Q9Db.core) do
    if name:match("^Q9_") then
      if type(value) == "number" then
        numbers = numbers + 1
        T.same(math.type(value), "float", name)
        T.truthy(value >= 0, name .. " is not negative")
      else
        texts = texts + 1
      end
    end
  end
  T.same(numbers, 82)
  T.same(texts, 8)
  -- Values with the top bit set come out whole, not as negative integers.
  T.same(Q9Db.Q9_FLAG_VALID, 2147483648.0)
  T.same(Q9Db.Q9_INCOMPATIBLEVALUETYPE, 4294967295.0)
end)

T.case("group names are the texts of the collection groups", function()
  T.same(Q9Db.Q9_GROUPNAME_ECUS, "@ECUs")
  T.same(Q9Db.Q9_VIEWNAME_ECUVIEW, "ECUView")
  local db = Q9Db.createDb("g")
  local ids = {}
  for group in db.collections.children do ids[#ids + 1] = group.eid end
  table.sort(ids)
  local expected = {Q9Db.Q9_GROUPNAME_CLUSTERS, Q9Db.Q9_GROUPNAME_CODINGS, Q9Db.Q9_GROUPNAME_ECUS,
                    Q9Db.Q9_GROUPNAME_FRAMES, Q9Db.Q9_GROUPNAME_PDUS, Q9Db.Q9_GROUPNAME_SIGNALS,
                    Q9Db.Q9_GROUPNAME_VIEWS}
  for _, name in ipairs(expected) do
    T.truthy(db:findByElementId(name), name .. " is a group of the database")
  end
end)

T.case("the module's folder is the library's, and the paths point into it", function()
  local folder = Q9Db.ModuleFilePath
  local library = io.open(folder .. "/libQ9Db.so", "rb")
  T.truthy(library, "the library lies in ModuleFilePath")
  library:close()
  T.truthy(not folder:find("/$"), "no closing separator")
  local function endsWith(text, tail) return text:sub(-#tail) == tail end
  T.truthy(endsWith(package.path, ";" .. folder .. "/?.lua;" .. folder .. "/?/init.lua"), package.path)
  T.truthy(endsWith(package.cpath, ";" .. folder .. "/?.so"), package.cpath)
end)

T.case("a second registration refills the metatables and gives a new table", function()
  local db = Q9Db.createDb("before")
  local open = assert(package.loadlib(Q9Db.ModuleFilePath .. "/libQ9Db.so", "Q9Db_core"))
  local again = open()
  T.truthy(again ~= Q9Db.core, "a separate core table")
  T.same(again.version(), Q9Db.version())
  T.same(db.eid, "before")
  T.same(getmetatable(db), getmetatable(again.createDb("after")))
end)

T.case("init.lua's result is the module, cached by require", function()
  T.same(require "Q9Db", Q9Db)
  T.truthy(type(Q9Db.createDb) == "function" and type(Q9Db.attribs) == "function")
end)

T.finish()

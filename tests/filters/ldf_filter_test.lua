-- The LDF filter from scripts: what the scripts add to the import engine
-- (reports passed on, options, detection, database ids, the summary) and
-- exports of a cluster built by hand. What a file becomes is pinned by the
-- golden dumps (LdfEngineTest), refused files by LdfToleranceTest and
-- FilterImportTest, and the frames' decoding by FilterImportTest.
local T = require "testing"
local Q9Db = T.Q9Db
local data = T.data("filters")
local climate = data .. "climate_panel.ldf"

local importInto, count, writeTemp = T.import, T.count, T.writeTemp

local function freshImport(path, options)
  local db = assert(Q9Db.createDb("ldf"))
  local status, reports = importInto(db, nil, path, options)
  T.same(status, nil, "doimport result")
  return db, reports
end

T.case("the import's reports reach the caller: what can't be mapped, then the summary", function()
  -- The texts themselves are pinned by the golden dump of this file.
  local _, reports = freshImport(climate)
  T.same(#T.warnings(reports), 6, "warnings")
  T.same(reports[#reports].kind, 0)
  T.truthy(reports[#reports].text:find("under the id prefix ClimateLin", 1, true), reports[#reports].text)
end)

T.case("options: the prefix names the cluster, unknown ones are reported and ignored", function()
  local db, reports = freshImport(climate, "prefix=Rear;language=0;colour=blue")
  T.truthy(db:findByElementId("Rear/cluster"), "the prefix option names the cluster")
  T.same(db:findByElementId("ClimateLin/cluster"), nil)
  T.truthy(reports[1].text:find("colour=blue", 1, true), reports[1].text)
end)

T.case("detection looks at the content; the database id is the channel name, else the file's", function()
  T.same(Q9Db.detectfile(climate), "ldf")
  T.same(Q9Db.getdatabaseid(climate), "ClimateLin")
  local commented = writeTemp("// a comment\n/* and a block */ LIN_description_file;\n")
  local other = writeTemp("LIN_description_files;\n")
  local unnamed = writeTemp('LIN_description_file;\nLIN_protocol_version = "1.3";\n')
  T.same(Q9Db.detectfile(commented), "ldf")
  T.same(Q9Db.detectfile(other), nil)
  T.same(Q9Db.getdatabaseid(unnamed), unnamed:match("([^/]+)$"):gsub("%.[^.]*$", ""))
  os.remove(commented)
  os.remove(other)
  os.remove(unnamed)
end)

T.case("the summary reports the file's content and leaves the database alone", function()
  local target = assert(Q9Db.createDb("info"))
  local before = count(target:enumIdentElements())
  local kinds = {}
  Q9Db.getImportInfo(target, climate, function(first, second, text)
    T.same(first, 0, text)
    kinds[second] = (kinds[second] or 0) + 1
    return 0
  end)
  T.same(kinds[1], 4, "ECU lines")
  T.same(kinds[2], 9, "frame lines")
  T.same(kinds[3], 15, "signal lines")
  T.same(count(target:enumECUs()), 0)
  T.same(count(target:enumIdentElements()), before)
end)

T.case("a LIN cluster built by hand exports what LDF can say and reports what it can't", function()
  local hand = assert(Q9Db.createDb("hand"))
  local cluster = assert(hand:createCluster("Hand/cluster", Q9Db.Q9_CLUSTERTYPE_LIN))
  local ch = assert(hand:createChannel("Hand/channel", cluster))
  local master = assert(hand:createECU("Hand/ECU/Gw"))
  assert(master:setDescription(0, "LIN master; time base 5 ms, jitter 0.1 ms"))
  local pdu = assert(hand:createSignalPDU("Hand/PDU/Status", 32))
  for i, s in ipairs({{"Speed", Q9Db.Q9_ENCODING_DIRECT, 0}, {"Temp", Q9Db.Q9_ENCODING_2COMPL, 0},
                      {"Motorola", Q9Db.Q9_ENCODING_DIRECT, 1}}) do
    local coding = assert(hand:createCoding("Hand/coding/" .. s[1], 8, s[2]))
    local signal = assert(hand:createSignal("Hand/signal/" .. s[1], 0, 0, 0, 0, coding))
    assert(hand:createSignalInstance("Hand/instance/" .. s[1], s[3], 8 * i - 8, -1, signal, pdu))
  end
  local frame = assert(hand:createFrame("Hand/frame/Status", 4))
  assert(hand:createIdentifierBasedTriggering("Hand/triggering/Status", 0x10, 0, frame, master, ch))
  assert(hand:createPDUInstance("Hand/PDUInstance/Status", 0, 0, -1, pdu, frame))

  local path = os.tmpname() .. ".ldf"
  local reports = {}
  T.same(require("q9filters.ldf").export(hand, nil, path, "", function(kind, _, message)
    reports[#reports + 1] = kind .. " " .. message
    return 0
  end), 0)
  T.same(table.concat(reports, "\n"), table.concat({
    "1 channel Hand doesn't tell its LIN protocol and language versions; 2.1 is written",
    "1 signal Temp has a signed or other coding (3) that LDF lacks; its bits are written as an unsigned value",
    "1 signal Motorola of frame Status is big-endian, which LDF lacks; it is left out",
    "1 frame Status uses the classic checksum, which the file can't give it; it reads back with the enhanced one",
  }, "\n"))
  local copy = assert(Q9Db.createDb("copy"))
  local status, back = importInto(copy, nil, path)
  os.remove(path)
  T.same(status, nil)
  T.same(#T.warnings(back), 0, "warnings of the export")
  local names = {}
  for instance in assert(copy:findByElementId("Hand/PDU/Status")).signalInstances do
    names[#names + 1] = instance.signal.shortname .. "@" .. instance.bitpos
  end
  T.same(table.concat(names, " "), "Speed@0.0 Temp@8.0")
end)

T.finish()

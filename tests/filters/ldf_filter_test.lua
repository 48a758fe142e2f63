-- The LDF filter from scripts: a file with every section imported through
-- doimport; its frames, signals, cluster, ECUs and schedule tables as a
-- client walks them; reports; several imports into one database; refused
-- files. Its frames decode as the C client test (FilterImportTest) checks.
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

-- The physical value of one signal of a frame, with its conversion status.
local function physicalOf(db, channel, id, payload, name)
  for signal, _, value in channel:decodeMessage(id, 0, payload) do
    if signal.shortname == name then
      local physical, _, status = db.internalToPhysical(signal, value)
      return physical, status
    end
  end
end

local db, reports = freshImport(climate)
local channel = assert(db:findByElementId("ClimateLin/channel"))

T.case("frames carry their identifiers, lengths, checksum models and publishers", function()
  local ENH = Q9Db.Q9_FLAG_LIN_ENH_CHECKSUM
  -- Sensor is a LIN 1.3 slave: its frame, and the event-triggered frame
  -- that can carry it, use the classic checksum; so do diagnostic frames.
  local want = {
    PanelCmd = {0x10, 2, ENH, "CCU"}, SensorData = {0x20, 4, 0, "Sensor"},
    BlowerStatus = {0x21, 4, ENH, "Blower"}, PanelInfo = {0x30, 8, ENH, "Panel"},
    Faults = {0x3A, 4, 0, nil}, MasterReq = {0x3C, 8, 0, "CCU"}, SlaveResp = {0x3D, 8, 0, nil},
  }
  local seen = 0
  for triggering in channel.frameTriggerings do
    local w = want[triggering.shortname]
    if w then
      seen = seen + 1
      T.same(triggering.identifier, w[1] + 0.0, triggering.shortname .. " identifier")
      T.same(triggering.frame.length, w[2] + 0.0, triggering.shortname .. " length")
      T.same(triggering.flags, w[3] + 0.0, triggering.shortname .. " flags")
      T.same(triggering.sourceEcu and triggering.sourceEcu.shortname, w[4], triggering.shortname .. " publisher")
    end
  end
  T.same(seen, 7)
end)

T.case("signals keep sizes, defaults from initial values, units and limits", function()
  local function signal(name) return assert(db:findByElementId("ClimateLin/signal/" .. name)) end
  local cases = {
    {"Mode", 2, 1.0}, {"BlowerSpeed", 4, 3 * 100.0 + 0}, {"Temp", 10, 400 * 0.1 + -40},
    {"Humidity", 7, 127.0}, {"Serial", 32, 0x04030201 + 0.0}, {"SensorError", 1, 0.0},
    {"MasterReqB0", 8, 0.0},
  }
  for _, c in ipairs(cases) do
    local s = signal(c[1])
    T.same(s.shortname, c[1])
    T.same(s.coding.bitlen, c[2] + 0.0, c[1] .. " size")
    T.same(s.defaultValue, c[3], c[1] .. " default")
  end
  local temp = signal("Temp")
  T.same(db:stringLookup(temp.coding.unit.displayName, 0, 0), "°C")
  T.same(temp.minValue, 0 * 0.1 + -40)
  T.same(temp.maxValue, 1000 * 0.1 + -40)
  T.same(db.checkValueInMinMax(temp, 70), Q9Db.Q9_VALUEABOVERANGE | 0)
  for instance in temp.signalInstances do
    T.same(instance.byteOrder, Q9Db.Q9_BYTEORDER_LITTLEENDIAN)
  end
end)

T.case("the cluster holds the channel and groups a client walks", function()
  local cluster = assert(db:findByElementId("ClimateLin/cluster"))
  T.same(cluster.clusterType, Q9Db.Q9_CLUSTERTYPE_LIN)
  T.same(cluster.shortname, "ClimateLin")
  T.same(channel:getParam(), 19200)
  local names = {}
  for child in cluster.children do names[#names + 1] = child.shortname end
  T.same(table.concat(names, " "), "ClimateLin Sporadic_frames Schedule_tables Signal_groups")
  local ecus = {}
  for ecu in db:enumECUs() do ecus[ecu.shortname] = ecu:getParam() end
  T.same(ecus.CCU, 0); T.same(ecus.Panel, 0x11); T.same(ecus.Blower, 0x12); T.same(ecus.Sensor, 0x13)
end)

-- A schedule table as its slots: short name, delay in microseconds, and
-- what the slot refers to.
local function slots(tableName)
  local group = assert(db:findByElementId("ClimateLin/schedule/" .. tableName))
  local out = {}
  for slot in group.children do
    local target = slot.reference
    out[#out + 1] = string.format("%s %d %s", slot.shortname, slot:getParam(), target and target.eid or "-")
  end
  return table.concat(out, "\n"), group
end

T.case("schedule tables list their slots in order with delays and targets", function()
  local normal, group = slots("Normal")
  T.same(normal, table.concat({
    "PanelCmd 10000 ClimateLin/frame/PanelCmd", "SensorData 10000 ClimateLin/frame/SensorData",
    "BlowerStatus 10000 ClimateLin/frame/BlowerStatus", "PanelInfo 15000 ClimateLin/frame/PanelInfo",
    "Faults 10000 ClimateLin/frame/Faults", "PanelUpdate 5000 ClimateLin/frame/PanelUpdate"}, "\n"))
  T.same(group:getParam(), 60000, "cycle of the table")
  local commands = slots("Commands")
  T.same(commands, table.concat({
    "AssignNAD 20000 ClimateLin/ECU/Panel", "ConditionalChangeNAD 20000 -",
    "DataDump 20000 ClimateLin/ECU/Panel", "SaveConfiguration 20000 ClimateLin/ECU/Panel",
    "AssignFrameIdRange 20000 ClimateLin/ECU/Panel", "AssignFrameIdRange 20000 ClimateLin/ECU/Blower",
    "FreeFormat 20000 -", "AssignFrameId 20000 ClimateLin/ECU/Blower",
    "MasterReq 10000 ClimateLin/frame/MasterReq", "SlaveResp 10000 ClimateLin/frame/SlaveResp",
    "Ghost 5500 -"}, "\n"))
  local descriptions = {}
  for slot in assert(db:findByElementId("ClimateLin/schedule/Commands")).children do
    descriptions[#descriptions + 1] = slot:getDescription(0, 0)
  end
  T.same(descriptions[6], "AssignFrameIdRange { Blower, 1, 0x10, 0x21, 0xFF, 0xFF }")
  T.same(descriptions[2], "ConditionalChangeNAD { 0x7F, 0x01, 0x03, 0x01, 0xFF, 0x01 }")
end)

T.case("sporadic frames list their frames by priority; event-triggered ones name their table", function()
  local sporadic = assert(db:findByElementId("ClimateLin/frame/PanelUpdate"))
  local frames = {}
  for ref in sporadic.children do frames[#frames + 1] = ref.reference.shortname end
  T.same(table.concat(frames, " "), "PanelCmd Overhang")
  local faults = assert(db:findByElementId("ClimateLin/triggering/Faults"))
  local refs = T.collect(faults.children)
  T.same(#refs, 1)
  T.same(refs[1].reference.eid, "ClimateLin/schedule/FaultTable")
end)

T.case("what can't be mapped is reported, one report each", function()
  local expected = {"composite node configurations are not mapped: Compact", "NoSuchCoding",
                    "signal Huge: a size of 72 bits", "signal Temp at bit 4 with 10 bits sticks out",
                    "signal Missing is not defined", "frame Ghost is not defined"}
  local warnings = T.warnings(reports)
  T.same(#warnings, #expected, "warnings:\n" .. table.concat(warnings, "\n"))
  for _, fragment in ipairs(expected) do
    local found = false
    for _, text in ipairs(warnings) do found = found or text:find(fragment, 1, true) ~= nil end
    T.truthy(found, "a report with '" .. fragment .. "'")
  end
  T.same(reports[#reports].kind, 0)
  T.truthy(reports[#reports].text:find("under the id prefix ClimateLin", 1, true), reports[#reports].text)
end)

T.case("several imports into one database keep their ids apart", function()
  local two = assert(Q9Db.createDb("two"))
  T.same(importInto(two, nil, climate), nil)
  local first = assert(two:findByElementId("ClimateLin/cluster"))
  local frames = count(two:enumFrames())
  -- The second file goes into the first cluster as a channel of its own.
  T.same(importInto(two, first, climate), nil)
  T.same(importInto(two, nil, climate, "prefix=Rear;language=0"), nil)
  T.same(count(two:enumFrames()), 3 * frames)
  T.same(count(first.children), 8)
  local second = assert(two:findByElementId("ClimateLin#2/channel"))
  T.same(second.group.eid, "ClimateLin/cluster")
  T.truthy(two:findByElementId("Rear/cluster"), "the prefix option names the cluster")
  T.same(physicalOf(two, second, 0x20, "\0\x8D\x02\0", "Temp"), 653 * 0.1 + -40)  -- 653 at bit 8
  -- Into an existing channel: its identifiers are taken, which is reported.
  local _, into = importInto(two, second, climate)
  local clashes = 0
  for _, r in ipairs(into) do
    if r.text:find("is already used", 1, true) then clashes = clashes + 1 end
  end
  T.same(clashes, 8)
end)

T.case("unknown options are reported and ignored", function()
  local _, got = freshImport(climate, "colour=blue")
  T.truthy(got[1].text:find("colour=blue", 1, true), got[1].text)
end)

T.case("a node argument of another class is refused before anything is made", function()
  local other = assert(Q9Db.createDb("other"))
  local frame = assert(other:createFrame("f", 8))
  local before = count(other:enumIdentElements())
  T.raises("must be a Cluster or a Channel", Q9Db.doimport, other, frame, climate, "")
  T.same(count(other:enumIdentElements()), before)
end)

T.case("a file of which nothing can be used fails with its message and adds nothing", function()
  local target = assert(Q9Db.createDb("keep"))
  assert(target:createCluster("mine", Q9Db.Q9_CLUSTERTYPE_CAN))
  local before = count(target:enumIdentElements())
  local unusable = data .. "../../import/data/tolerant/nothing_usable.ldf"
  local ok, message = pcall(Q9Db.doimport, target, nil, unusable, "", nil)
  T.same(ok, false)
  T.truthy(message:find("nothing_usable.ldf:3:1: 'Nodes' expected, found 'Calibration'", 1, true), message)
  T.same(count(target:enumIdentElements()), before)
end)

local legacy = [[
LIN_description_file;
LIN_protocol_version = "1.3";
LIN_language_version = "1.3";
LIN_speed = 9.6 kbps;
Nodes { Master: Gw, 5 ms, 0.1 ms; Slaves: Door; }
Diagnostic_addresses { Door: 0x0A; }
Signals { Lock: 1, 0, Gw, Door; Window: 7, 0, Door, Gw; }
Frames { DoorCmd: 0x05, Gw { Lock, 0; } DoorState: 0x06, Door, 1 { Window, 0; } }
Schedule_tables { Run { DoorCmd delay 10 ms; DoorState delay 10 ms; } }
]]

T.case("a LIN 1.3 file: classic checksums, addresses from their own section, id from the file name", function()
  local path = writeTemp(legacy)
  local base = path:match("([^/]+)$")
  local ldb = assert(Q9Db.createDb("legacy"))
  T.same(importInto(ldb, nil, path), nil)
  T.same(Q9Db.detectfile(path), "ldf")
  T.same(Q9Db.getdatabaseid(path), base:gsub("%.[^.]*$", ""))
  os.remove(path)
  local ch = assert(ldb:findByElementId(base:gsub("%.[^.]*$", "") .. "/channel"))
  for triggering in ch.frameTriggerings do T.same(triggering.flags, 0.0) end
  T.same(ch:getParam(), 9600)
  for ecu in ldb:enumECUs() do
    if ecu.shortname == "Door" then T.same(ecu:getParam(), 0x0A) end
  end
  local window, status = physicalOf(ldb, ch, 0x06, "\x55", "Window")
  T.same(tostring(window), "85")
  T.same(status, 0)
end)

T.case("detection looks at the content; the database id is the channel name", function()
  T.same(Q9Db.detectfile(climate), "ldf")
  T.same(Q9Db.getdatabaseid(climate), "ClimateLin")
  local commented = writeTemp("// a comment\n/* and a block */ LIN_description_file;\n")
  local other = writeTemp("LIN_description_files;\n")
  T.same(Q9Db.detectfile(commented), "ldf")
  T.same(Q9Db.detectfile(other), nil)
  os.remove(commented)
  os.remove(other)
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

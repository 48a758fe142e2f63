-- The DBC filter from scripts: imports decode random frames to the values
-- that the file's own numbers give, exports read back to the same, and what
-- can't be mapped is reported while the rest comes in. What a file becomes
-- node by node is pinned by the golden dumps (DbcEngineTest); files that
-- can't be read by FilterImportTest.
local T = require "testing"
local Q9Db = T.Q9Db
local data = T.data("filters")

local CANEXTENDED, CANFD_FRAME = 1, 4

-- The test's own reading of a DBC: the statements its data files use, by
-- patterns, with nothing of the library's reader or the filter.
local function expectations(path)
  local content = T.readFile(path)
  local messages, byKey = {}, {}
  local current
  for line in content:gmatch("[^\r\n]+") do
    local key, name, dlc = line:match("^BO_ (%d+) ([%w_]+): (%d+)")
    if key then
      current = {key = math.tointeger(tonumber(key)), name = name, length = tonumber(dlc), signals = {}}
      current.extended = current.key >= 0x80000000
      current.id = current.key & 0x7FFFFFFF
      messages[#messages + 1] = current
      byKey[current.key] = current
    end
    local sname, mode, start, len, order, sign, scale, offset =
      line:match("^ SG_ ([%w_]+) ?(%w*) : (%d+)|(%d+)@([01])([+-]) %(([^,]+),([^)]+)%)")
    if sname then
      current.signals[#current.signals + 1] = {
        name = sname, switch = mode == "M", code = tonumber(mode:match("^m(%d+)$")),
        start = tonumber(start), len = tonumber(len), bigendian = order == "0", signed = sign == "-",
        scale = tonumber(scale), offset = tonumber(offset), values = {},
      }
    end
    local vkey, vsig, list = line:match("^VAL_ (%d+) ([%w_]+) (.*);")
    if vkey then
      for _, s in ipairs(byKey[tonumber(vkey)].signals) do
        if s.name == vsig then
          for raw, text in list:gmatch('(%d+) "([^"]*)"') do s.values[tonumber(raw)] = text end
        end
      end
    end
    local tkey, tsig, kind = line:match("^SIG_VALTYPE_ (%d+) ([%w_]+) : (%d);")
    if tkey then
      for _, s in ipairs(byKey[tonumber(tkey)].signals) do
        if s.name == tsig then s.valtype = tonumber(kind) end
      end
    end
    local fkey, format = line:match('^BA_ "VFrameFormat" BO_ (%d+) "?([%w_]+)"?;')
    if fkey then
      byKey[tonumber(fkey)].fd = format == "14" or format == "15" or format:find("FD") ~= nil
    end
  end
  return messages
end

-- Bit n of a payload: bit n % 8 of byte n // 8.
local function bitOf(payload, n)
  return (payload[n // 8 + 1] >> (n % 8)) & 1
end

-- A field as a DBC defines it: little-endian from its lowest bit upward;
-- big-endian from its top bit down a byte and on at bit 7 of the next.
local function field(payload, start, len, bigendian)
  local value = 0
  if bigendian then
    for i = 0, len - 1 do value = (value << 1) | bitOf(payload, ((start ~ 7) + i) ~ 7) end
  else
    for i = len - 1, 0, -1 do value = (value << 1) | bitOf(payload, start + i) end
  end
  return value
end

local function setField(payload, start, len, bigendian, value)
  for i = 0, len - 1 do
    local n = bigendian and (((start ~ 7) + len - 1 - i) ~ 7) or start + i
    local byte, mask = n // 8 + 1, 1 << (n % 8)
    payload[byte] = (value >> i) & 1 == 1 and payload[byte] | mask or payload[byte] & ~mask
  end
end

local function unsignedToFloat(raw)
  if raw >= 0 then return raw + 0.0 end
  return ((raw >> 1) | (raw & 1)) * 2.0
end

-- The physical value and text a signal should decode to.
local function physical(signal, raw)
  local value
  if signal.valtype == 1 then
    value = string.unpack("<f", string.pack("<I4", raw))
  elseif signal.valtype == 2 then
    value = string.unpack("<d", string.pack("<i8", raw))
  elseif signal.signed and signal.len < 64 and raw >= 1 << (signal.len - 1) then
    value = raw - (1 << signal.len)
  else
    value = raw
  end
  local text
  for key, label in pairs(signal.values) do
    local k = key
    if signal.signed and k >= 1 << (signal.len - 1) then k = k - (1 << signal.len) end
    if k == value then text = label end
  end
  local number = math.type(value) == "integer" and (signal.signed and value + 0.0 or unsignedToFloat(value)) or value
  return number * signal.scale + signal.offset, text
end

-- A small fixed generator, so that failures repeat.
local seed = 0x2545F491
local function randomByte()
  seed = (seed * 1103515245 + 12345) & 0x7FFFFFFF
  return (seed >> 16) & 0xFF
end

local function same(actual, expected, what)
  if expected ~= expected then
    T.truthy(actual ~= actual, what .. " should be NaN")
  elseif actual ~= expected then
    error(string.format("%s: expected %.17g, got %s", what, expected, tostring(actual)), 2)
  end
end

local function channelOf(db, prefix)
  return assert(db:findByElementId(prefix .. "/channel"), "no channel under " .. prefix)
end

-- Decodes random frames of every message on the channel and checks every
-- signal against the test's own reading of the file.
local function checkDecoding(db, channel, messages)
  local checked = 0
  for _, message in ipairs(messages) do
    local switch, codes = nil, {}
    for _, s in ipairs(message.signals) do
      if s.switch then switch = s end
      if s.code then codes[#codes + 1] = s.code end
    end
    local flags = (message.extended and CANEXTENDED or 0) | (message.fd and CANFD_FRAME or 0)
    for round = 1, 24 do
      local payload = {}
      for i = 1, message.length do payload[i] = randomByte() end
      if switch and #codes > 0 then setField(payload, switch.start, switch.len, switch.bigendian, codes[round % #codes + 1]) end
      local selected = switch and field(payload, switch.start, switch.len, switch.bigendian)
      local decoded = {}
      for signal, _, raw in channel:decodeMessage(message.id, flags, string.char(table.unpack(payload))) do
        T.truthy(decoded[signal.shortname] == nil, signal.shortname .. " decoded twice")
        decoded[signal.shortname] = {node = signal, raw = raw}
      end
      for _, s in ipairs(message.signals) do
        local where = message.name .. "." .. s.name
        local got = decoded[s.name]
        if s.code == nil or s.code == selected then
          T.truthy(got, where .. " is missing")
          local raw = field(payload, s.start, s.len, s.bigendian)
          T.same(got.raw:tohexstring(), string.format("%x", raw), where .. " raw")
          local value, slot, status = db.internalToPhysical(got.node, got.raw)
          T.same(status, 0, where .. " status")
          local want, text = physical(s, raw)
          same(type(value) == "number" and value or value:tonumber(), want, where .. " value")
          T.same(slot and db:stringLookup(slot, 0, 0) or nil, text, where .. " text")
          checked = checked + 1
          decoded[s.name] = nil
        else
          T.same(got, nil, where .. " belongs to another switch value")
        end
      end
      T.same(next(decoded), nil, message.name .. " decodes a signal that the file doesn't have")
    end
  end
  T.truthy(checked > 0, "nothing decoded")
end

local function import(db, node, path, options)
  local status, reports = T.import(db, node, path, options)
  T.same(status, 0, "import status")
  return reports
end

local warnings = T.warnings
local function countIds(db) return T.count(db:enumIdentElements()) end

local files = {
  {file = "powertrain.dbc", prefix = "Powertrain", warnings = 1},
  {file = "fd_chassis.dbc", prefix = "fd_chassis", warnings = 0},
  {file = "../../import/data/comfort_body.dbc", prefix = "comfort_body"},
}

T.case("imported files decode every signal as the file defines it, and so do their exports", function()
  for _, f in ipairs(files) do
    local path = data .. f.file
    local messages = expectations(path)
    local db = assert(Q9Db.createDb("test"))
    local reports = import(db, nil, path)
    if f.warnings then T.same(#warnings(reports), f.warnings, f.file .. " warnings") end
    checkDecoding(db, channelOf(db, f.prefix), messages)

    local exported = os.tmpname() .. ".dbc"
    T.same(Q9Db.doexport(db, db:findByElementId(f.prefix .. "/cluster"), exported, ""), 0)
    local again = assert(Q9Db.createDb("again"))
    T.same(#warnings(import(again, nil, exported)), 0, f.file .. " warnings of the export")
    checkDecoding(again, channelOf(again, f.prefix), messages)

    -- Written once more from the re-import, the file comes out the same.
    local second = os.tmpname() .. ".dbc"
    T.same(Q9Db.doexport(again, nil, second, ""), 0)
    T.same(T.readFile(second), T.readFile(exported), f.file .. " second export")
    os.remove(exported); os.remove(second)
  end
end)

T.case("the node argument reaches the engine, which takes only a cluster or a channel", function()
  -- Imports into a cluster, into a channel and twice into one database are
  -- pinned by the golden dump dbc_targets.
  local db = assert(Q9Db.createDb("Powertrain"))
  local path = data .. "powertrain.dbc"
  import(db, nil, path)
  local before = countIds(db)
  T.raises("not into a Frame", Q9Db.doimport, db, db:findByElementId("Powertrain/frame/EngineData"), path, "", nil)
  T.same(countIds(db), before)
end)

T.case("options choose the id prefix and the language of texts; unknown ones are reported", function()
  local db = assert(Q9Db.createDb("test"))
  local reports = import(db, nil, data .. "powertrain.dbc", "prefix=Custom; language=7;colour=blue")
  local frame = assert(db:findByElementId("Custom/frame/EngineData"))
  T.same(frame:getDescription(7, 7), "Engine data, every 10 ms. Größe ändert sich nicht.")
  T.truthy(warnings(reports)[1]:find("option 'colour=blue' is not known", 1, true), warnings(reports)[1])
end)

T.case("what a file holds but the database can't is reported, and the rest comes in", function()
  local db = assert(Q9Db.createDb("test"))
  local texts = table.concat(warnings(import(db, nil, data .. "oddities.dbc")), "\n")
  for _, fragment in ipairs({
    "signal OutsideLE of message ShortFrame sticks out of its 2-byte frame",
    "signal OutsideBE of message ShortFrame sticks out of its 2-byte frame",
    "signal NoBits of message ShortFrame has 0 bits",
    "signal ShortFloat of message ShortFrame is a float of 16 bits",
    "message TwoSwitches has 2 multiplexer switches (extended multiplexing)",
    "signal Lonely of message NoSwitch is multiplexed, but message NoSwitch has no multiplexer switch",
    "message NotAFrame has identifier 0x40000000",
    "message FdByCode gives the CAN FD length code 13; it is imported with 32 bytes",
    "message NoExtendedMark has identifier 0x800 without the extended mark",
    "a comment refers to message 999",
    "environment variable Climate",
    "a value description refers to signal Missing of message ShortFrame",
    "attribute GenMsgSendType is not imported (2 values)",
  }) do
    T.truthy(texts:find(fragment, 1, true), "no report: " .. fragment)
  end
  local channel = channelOf(db, "oddities")
  local function decode(id, flags, payload)
    local out = {}
    for signal, _, raw in channel:decodeMessage(id, flags, payload) do out[#out + 1] = signal.shortname .. "=" .. tostring(raw) end
    return table.concat(out, " ")
  end
  T.same(decode(300, 0, "\x2A\x01"), "Inside=42")
  T.same(decode(301, 0, "\x21\x07\0\0\0\0\0\0"), "First=1 Second=2 Payload=7")
  T.same(decode(302, 0, "\x05\0\0\0\0\0\0\0"), "Lonely=5")
  T.same(decode(2048, CANEXTENDED, "\x09\0\0\0\0\0\0\0"), "Value=9")
  T.same(decode(1283, CANFD_FRAME, string.rep("\0", 31) .. "\x63"), "Last=99")
end)

T.case("detection, database id and info look at the content and change nothing", function()
  T.same(Q9Db.detectfile(data .. "powertrain.dbc"), "DBC")
  T.same(Q9Db.detectfile(data .. "broken.dbc"), "DBC")
  T.truthy(Q9Db.detectfile(data .. "../../import/data/seat_module.ldf") ~= "DBC", "an LDF taken as DBC")
  T.same(Q9Db.detectfile(data .. "absent.dbc"), nil)
  -- The name alone doesn't make a DBC.
  local path = T.writeTemp("just some text\nwith two lines\n", ".dbc")
  T.same(Q9Db.detectfile(path), nil)
  os.remove(path)

  T.same(Q9Db.getdatabaseid(data .. "powertrain.dbc"), "Powertrain")
  T.same(Q9Db.getdatabaseid(data .. "fd_chassis.dbc"), "fd_chassis")
  T.truthy(Q9Db.getImportFilters():find("DBC files (*.dbc)|*.dbc", 1, true), Q9Db.getImportFilters())
  T.truthy(Q9Db.getExportFilters():find("DBC files (*.dbc)|*.dbc", 1, true), Q9Db.getExportFilters())

  local db = assert(Q9Db.createDb("test"))
  local before = countIds(db)
  local counts = {[1] = 0, [2] = 0, [3] = 0}
  local summary
  T.same(Q9Db.getImportInfo(db, data .. "powertrain.dbc", function(kind, what, text)
    if kind == 0 and what > 0 then counts[what] = counts[what] + 1 end
    if kind == 0 and what == 0 then summary = text end
    return 0
  end), 0)
  T.same(summary, "Powertrain: 4 ECUs, 6 frames, 17 signals")
  T.same(counts[1], 4)
  T.same(counts[2], 6)
  T.same(counts[3], 17)
  T.same(countIds(db), before)
end)

T.case("a database built by hand exports to a DBC that decodes the same", function()
  local net = T.sampleNetwork()
  local path = os.tmpname() .. ".dbc"
  T.same(Q9Db.doexport(net.db, net.cluster, path, "version=7.1"), 0)
  T.truthy(T.readFile(path):find('VERSION "7.1"', 1, true), "version line")
  local db = assert(Q9Db.createDb("copy"))
  import(db, nil, path)
  os.remove(path)
  local channel = channelOf(db, "can")
  local function decode(c, id, payload, d)
    local out = {}
    for signal, _, raw in c:decodeMessage(id, 0, payload) do
      local value = d.internalToPhysical(signal, raw)
      out[#out + 1] = (signal.shortname or signal.eid) .. "=" .. tostring(type(value) == "number" and value or value:tonumber())
    end
    table.sort(out)
    return table.concat(out, " ")
  end
  for _, m in ipairs({{0x123, "\x34\x02\xFE\0\0\0\0\0"}, {0x200, "\x01\x34\x12\0\0\0\0\x07"},
                      {0x200, "\x02\x34\x12\0\0\0\0\x07"}}) do
    local original = decode(net.channel, m[1], m[2], net.db)
    local copy = decode(channel, m[1], m[2], db):gsub(" ?muxFrame_switch=[%d.]+", "")
    T.same(copy, original)
  end
end)

T.case("multiplexed PDUs nested by hand export as extended multiplexing, and what DBC can't say is reported", function()
  local net = T.sampleNetwork()
  local db = net.db
  -- Switch value 3 carries a multiplexed PDU without a static part (so
  -- without a switch signal), one of whose parts holds the outer PDU again.
  local part3 = assert(db:createMultiplexedPart("part3", 3, net.mux))
  assert(part3:addSegment(0, 24, 8) == 0)
  local inner = assert(db:createMultiplexedPDU("inner", 8, 0, 0, 4, 0, part3))
  local inner5 = assert(db:createMultiplexedPart("inner5", 5, inner))
  assert(inner5:addSegment(0, 4, 4) == 0)
  local c = assert(db:createSignal("C", 0, 0, 0, 0, assert(db:createCoding("C.coding", 4, Q9Db.Q9_ENCODING_DIRECT))))
  assert(db:createSignalInstance("C.si", 0, 0, -1, c, assert(db:createSignalPDU("inner5.pdu", 4, inner5))))
  local loop = assert(db:createMultiplexedPart("loop", 6, inner))
  assert(loop:setReference(net.mux) == 0)
  assert(inner:addDynamicParts(inner5, loop) == 0)
  assert(net.mux:addDynamicParts(part3) == 0)
  -- The counter of the static part also lies elsewhere in the part of value 2.
  assert(db:createSignalInstance("counter.si2", 0, 0, -1, net.counter, net.pduB))

  local path = os.tmpname() .. ".dbc"
  -- The package's entry takes no report function; the format's own does.
  local reports = {}
  T.same(require("q9filters.dbc").export(db, net.cluster, path, "", function(_, _, text)
    reports[#reports + 1] = text
    return 0
  end), 0)
  local all = table.concat(reports, "\n")
  for _, fragment in ipairs({"frame muxFrame has a part that holds its own multiplexed PDU again",
                             "signal counter of frame muxFrame lies at two places"}) do
    T.truthy(all:find(fragment, 1, true), "no report: " .. fragment .. " in " .. all)
  end
  local written = T.readFile(path)
  for _, line in ipairs({" SG_ muxFrame_switch_2 m3M : 24|4@1+", " SG_ C m5 : 28|4@1+",
                         "SG_MUL_VAL_ 512 muxFrame_switch_2 muxFrame_switch 3-3 ;",
                         "SG_MUL_VAL_ 512 C muxFrame_switch_2 5-5 ;"}) do
    T.truthy(written:find(line, 1, true), "no line: " .. line)
  end
  local copy = assert(Q9Db.createDb("copy"))
  T.same(#warnings(import(copy, nil, path)), 0, "warnings of the export")
  os.remove(path)
  local function decode(channel, payload)
    local out = {}
    for signal, _, raw in channel:decodeMessage(0x200, 0, payload) do
      out[#out + 1] = (signal.shortname or signal.eid):gsub("%.si$", "") .. "=" .. tostring(raw)
    end
    table.sort(out)
    return table.concat(out, " ")
  end
  local payload = "\x03\0\0\x95\0\0\0\x07"
  T.same(decode(channelOf(copy, "can"), payload), "C=9 counter=7 muxFrame_switch=3 muxFrame_switch_2=5")
  T.same(decode(net.channel, payload), "C=9 counter=7")
end)

T.finish()

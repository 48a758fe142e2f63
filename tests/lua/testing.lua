-- A small harness for the module's script-level tests: named cases, value
-- checks that say what differed, and a sample network built through the
-- module's own creators.
local Q9Db = require "Q9Db"

local T = {Q9Db = Q9Db}
local failures, count = 0, 0

function T.case(name, body)
  count = count + 1
  local ok, err = xpcall(body, debug.traceback)
  if not ok then
    failures = failures + 1
    io.stderr:write("FAIL ", name, "\n", tostring(err), "\n")
  end
end

-- Exact equality, including the number subtype (8 and 8.0 differ here).
function T.same(actual, expected, what)
  local ok = actual == expected and math.type(actual) == math.type(expected)
  if not ok then
    error(string.format("%s: expected %s (%s), got %s (%s)", what or "value", tostring(expected),
      math.type(expected) or type(expected), tostring(actual), math.type(actual) or type(actual)), 2)
  end
end

function T.truthy(value, what)
  if not value then error((what or "condition") .. " does not hold", 2) end
end

-- Calls f and expects a Lua error whose text contains `fragment` literally.
function T.raises(fragment, f, ...)
  local ok, err = pcall(f, ...)
  if ok then error("expected an error containing '" .. fragment .. "'", 2) end
  if not tostring(err):find(fragment, 1, true) then
    error("error '" .. tostring(err) .. "' lacks '" .. fragment .. "'", 2)
  end
end

-- Results of f as a packed table, for checking several at once.
function T.pack(...) return table.pack(...) end

function T.collect(iterator)
  local items = {}
  for item in iterator do items[#items + 1] = item end
  return items
end

function T.count(iterator) return #T.collect(iterator) end

-- The test data of a source folder, e.g. T.data("filters").
function T.data(folder) return (os.getenv("Q9DB_SOURCE_DIR") or "../..") .. "/tests/" .. folder .. "/data/" end

function T.readFile(path)
  local file = assert(io.open(path, "rb"))
  local content = file:read("a")
  file:close()
  return content
end

-- A scratch file of this content; the caller removes it.
function T.writeTemp(content, suffix)
  local path = os.tmpname() .. (suffix or "")
  local file = assert(io.open(path, "wb"))
  file:write(content)
  file:close()
  return path
end

-- A filter import with its reports collected as {kind, what, text}.
function T.import(db, node, path, options)
  local reports = {}
  local status = Q9Db.doimport(db, node, path, options or "", function(kind, what, text)
    reports[#reports + 1] = {kind = kind, what = what, text = text}
    return 0
  end)
  return status, reports
end

function T.warnings(reports)
  local texts = {}
  for _, r in ipairs(reports) do
    if r.kind == 1 then texts[#texts + 1] = r.text end
  end
  return texts
end

function T.finish()
  io.write(string.format("%d passed, %d failed\n", count - failures, failures))
  os.exit(failures == 0 and 0 or 1, true)  -- close the state, so collectors run
end

-- A CAN channel with two frames: 0x123 carries a plain PDU (an 12-bit
-- unsigned speed at bit 0, scaled by 0.5, and a signed 8-bit temperature at
-- bit 16); 0x200 carries a multiplexed PDU whose 8-bit switch at bit 0
-- selects a part with signal A (code 1) or signal B (code 2), and whose
-- static part holds a counter at bit 56.
function T.sampleNetwork()
  local db = assert(Q9Db.createDb("net"))
  local n = {db = db}
  n.cluster = assert(db:createCluster("can", Q9Db.Q9_CLUSTERTYPE_CAN))
  n.channel = assert(db:createChannel("can.ch", n.cluster))
  n.ecu = assert(db:createECU("engine"))
  local unit = assert(db:createUnitSpec("kmh", 0, "km/h"))

  local function signal(name, bitlen, encoding, compu)
    local coding = assert(db:createCoding(name .. ".coding", bitlen, encoding, unit))
    if compu then assert(coding:addInternalToPhysicalComputations(compu) == 0) end
    return assert(db:createSignal(name, 0, 0, 0, 0, coding))
  end
  local function frame(name, id, pdu)
    local f = assert(db:createFrame(name, 8))
    assert(db:createIdentifierBasedTriggering(name .. ".tr", id, 0, f, n.ecu, n.channel))
    assert(db:createPDUInstance(name .. ".pi", 0, 0, -1, pdu, f))
    return f
  end

  n.scale = assert(db:createLinearComputation("half", 0.5, 0))
  assert(n.scale:addRange(0, 4095, Q9Db.Q9_FLAG_VALID | 3) == 0)
  n.speed = signal("speed", 12, Q9Db.Q9_ENCODING_DIRECT, n.scale)
  n.temp = signal("temp", 8, Q9Db.Q9_ENCODING_2COMPL)
  n.pdu = assert(db:createSignalPDU("plain", 64))
  assert(db:createSignalInstance("speed.si", 0, 0, -1, n.speed, n.pdu))
  assert(db:createSignalInstance("temp.si", 0, 16, -1, n.temp, n.pdu))
  n.frame = frame("plainFrame", 0x123, n.pdu)

  n.mux = assert(db:createMultiplexedPDU("mux", 64, 0, 0, 8, 0))
  local function part(code, name)
    local p = assert(db:createMultiplexedPart(name, code, n.mux))
    local content = assert(db:createSignalPDU(name .. ".pdu", 64))
    assert(p:setReference(content) == 0)
    return p, content
  end
  n.static, n.staticPdu = part(0xFFFFFFFF, "static")
  assert(n.mux:setStaticPart(n.static) == 0)
  n.static:addSegment(0, 56, 8)
  n.partA, n.pduA = part(1, "partA")
  n.partB, n.pduB = part(2, "partB")
  assert(n.mux:addDynamicParts(n.partA, n.partB) == 0)
  n.partA:addSegment(0, 8, 16)
  n.partB:addSegment(0, 8, 16)
  n.counter = signal("counter", 8, Q9Db.Q9_ENCODING_DIRECT)
  n.a = signal("A", 16, Q9Db.Q9_ENCODING_DIRECT)
  n.b = signal("B", 8, Q9Db.Q9_ENCODING_DIRECT)
  assert(db:createSignalInstance("counter.si", 0, 0, -1, n.counter, n.staticPdu))
  assert(db:createSignalInstance("A.si", 0, 0, -1, n.a, n.pduA))
  assert(db:createSignalInstance("B.si", 0, 8, -1, n.b, n.pduB))
  n.muxFrame = frame("muxFrame", 0x200, n.mux)
  return n
end

return T

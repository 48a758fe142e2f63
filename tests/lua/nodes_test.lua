-- Nodes from scripts: every creator and every class's attributes, the
-- argument checks and their messages, the list iterators and the database
-- userdata's ownership.
local T = require "testing"
local Q9Db = T.Q9Db

local HEAD_A = "nodetype tag"
local HEAD_B = HEAD_A .. " databaseRef eid group param"
local HEAD_C = HEAD_B .. " shortname longname description"
local HEAD_D = HEAD_C .. " parent reference"
local TRIGGERING = HEAD_D .. " children channel frame sourceEcu flags"

-- One node of every concrete class, made with every creator.
local function everyClass()
  local db = assert(Q9Db.createDb("all"))
  local n = {Q9Db = db}
  n.Cluster = assert(db:createCluster("cl", 1))
  n.Channel = assert(db:createChannel("ch", n.Cluster))
  n.UnitSpec = assert(db:createUnitSpec("unit", 9, "V"))
  n.Frame = assert(db:createFrame("fr", 8))
  n.ElementGroup = assert(db:createECU("ecu"))
  n.AbsolutelyScheduledTriggering = assert(db:createAbsolutelyScheduledTriggering("as", 3, 1, 4, 0, n.Frame,
                                                                                  n.ElementGroup, n.Channel))
  n.IdentifierBasedTriggering = assert(db:createIdentifierBasedTriggering("ib", 0x10, 0, n.Frame, nil, n.Channel))
  n.MaskedIdentifierTriggering = assert(db:createMaskedIdentifierTriggering("mi", 0x7F0, 0x100, 0, n.Frame, nil,
                                                                            n.Channel))
  n.SignalPDU = assert(db:createSignalPDU("pdu", 64))
  n.PDUInstance = assert(db:createPDUInstance("pi", 0, 0, -1, n.SignalPDU, n.Frame))
  n.PDUTriggering = assert(db:createPDUTriggering("pt", n.SignalPDU, n.Channel))
  n.MultiplexedPDU = assert(db:createMultiplexedPDU("mux", 64, 0, 0, 8, 0))
  n.MultiplexedPart = assert(db:createMultiplexedPart("part", 1, n.MultiplexedPDU))
  n.Coding = assert(db:createCoding("coding", 8, Q9Db.Q9_ENCODING_DIRECT, n.UnitSpec))
  n.Signal = assert(db:createSignal("sig", 0, 1, 0, 10, n.Coding))
  n.SignalInstance = assert(db:createSignalInstance("si", 0, 4, -1, n.Signal, n.SignalPDU))
  n.IdentityComputation = assert(db:createIdentityComputation("id"))
  n.LinearComputation = assert(db:createLinearComputation("lin", 2, 1))
  n.MappedValueComputation = assert(db:createMappedValueComputation("mv", 7))
  n.MappedTextComputation = assert(db:createMappedTextComputation("mt", (db:stringCreateSlot(0, "on"))))
  n.ElementReference = assert(db:createElementReference("ref", n.Signal))
  n.EventControlledTiming = assert(db:createEventControlledTiming(20, n.PDUTriggering))
  n.CyclicTiming = assert(db:createCyclicTiming("100", n.IdentifierBasedTriggering))
  n.DatabaseCollections = db.collections
  assert(n.MultiplexedPart:addSegment(0, 8, 16) == 0)
  n.Segment = n.MultiplexedPart.segments()
  assert(n.LinearComputation:addRange(0, 255, Q9Db.Q9_FLAG_VALID | 3) == 0)
  n.ValueRange = n.LinearComputation.ranges()
  return n
end

local nodes = everyClass()
local db = nodes.Q9Db

local expectedNames = {
  ElementReference = HEAD_D,
  Q9Db = HEAD_D .. " collections",
  ElementGroup = HEAD_D .. " children",
  DatabaseCollections = HEAD_D .. " children identElements clusters ECUs PDUs frames signals codings views",
  Cluster = HEAD_D .. " children clusterType",
  AbsolutelyScheduledTriggering = TRIGGERING .. " slotId baseCycle repetition",
  IdentifierBasedTriggering = TRIGGERING .. " identifier",
  MaskedIdentifierTriggering = TRIGGERING .. " mask code",
  PDUTriggering = HEAD_D .. " children",
  SignalInstance = HEAD_D .. " signal byteOrder bitpos updateBitpos",
  Signal = HEAD_C .. " signalInstances flags defaultValue minValue maxValue coding",
  Coding = HEAD_C .. " unit bitlen encoding internalToPhysicalCompus physicalToInternalCompus",
  PDUInstance = HEAD_D .. " byteOrder bitpos updateBitpos",
  MultiplexedPart = HEAD_D .. " switchCode segments",
  Channel = HEAD_C .. " parent frameTriggerings PDUTriggerings PDUInstances",
  Frame = HEAD_C .. " length PDUInstances",
  UnitSpec = HEAD_B .. " displayName",
  IdentityComputation = HEAD_B .. " ranges",
  LinearComputation = HEAD_B .. " ranges scale offset",
  MappedTextComputation = HEAD_B .. " ranges textvalue",
  MappedValueComputation = HEAD_B .. " ranges value",
  SignalPDU = HEAD_C .. " bitlen triggerings parents signalInstances",
  MultiplexedPDU = HEAD_C .. " bitlen triggerings parents switchByteOrder switchPosition switchLength "
                   .. "defaultSwitchCode dynamicParts staticPart elsePart",
  EventControlledTiming = HEAD_A .. " debounceTime",
  CyclicTiming = HEAD_A .. " cycleTime",
  Segment = HEAD_A .. " byteOrder bitpos bitlen",
  ValueRange = HEAD_A .. " lowerLimit upperLimit flags",
}

-- What a value is, in a form two reads of one attribute agree on.
local function describe(value)
  if type(value) == "function" then return "function" end
  if type(value) == "userdata" and getmetatable(value) == getmetatable(db.collections) then
    return "node " .. tostring(value.eid or value.tag)
  elseif type(value) == "userdata" then
    return tostring(getmetatable(value))
  end
  return type(value) .. " " .. tostring(value)
end

T.case("every class has its attributes, and attribs agrees with indexing", function()
  local classes = 0
  for class, expected in pairs(expectedNames) do
    local node = assert(nodes[class], class)
    T.same(node.tag, class)
    local names = {}
    for name, value in Q9Db.attribs(node) do
      names[#names + 1] = name
      T.same(describe(node[name]), describe(value), class .. "." .. name)
    end
    T.same(table.concat(names, " "), expected, class)
    classes = classes + 1
  end
  T.same(classes, 27)
end)

T.case("attribute values of the links and numbers", function()
  local n = nodes
  T.same(n.SignalInstance.signal.eid, "sig")
  T.same(n.SignalInstance.bitpos, 4.0)
  T.same(n.Signal.coding.eid, "coding")
  T.same(n.Coding.unit.eid, "unit")
  T.same(n.Cluster.children().eid, "ch")
  T.same(n.IdentifierBasedTriggering.channel.eid, "ch")
  T.same(n.IdentifierBasedTriggering.frame.eid, "fr")
  T.same(n.AbsolutelyScheduledTriggering.sourceEcu.eid, "ecu")
  T.same(n.AbsolutelyScheduledTriggering.repetition, 4.0)
  T.same(n.Segment.bitlen, 16.0)
  T.same(n.ValueRange.upperLimit, 255.0)
  T.same(n.ValueRange.flags, 2147483651.0)
  T.same(tostring(n.CyclicTiming.cycleTime), "100")
  T.same(n.EventControlledTiming.debounceTime, 20.0)
  T.same(n.LinearComputation.scale, 2.0)
  T.same(n.MappedValueComputation.value, 7.0)
  T.same(db:stringLookup(n.MappedTextComputation.textvalue, 0, 0), "on")
  T.same(db:stringLookup(n.UnitSpec.displayName, 9, 9), "V")
  T.same(db.collections.eid, db:getCollections().eid)
  T.truthy(db.collections ~= db:getCollections(), "two wrappers of one node")
end)

T.case("names, ids and texts through the node methods", function()
  local f = nodes.Frame
  T.same(f.shortname, nil)
  T.same(f:getShortName(), "fr")  -- the id stands in for a missing short name
  T.truthy(f:setShortName("Short"))
  T.same(f.shortname, "Short")
  T.truthy(f:setLongName(1, "ignored", "Long"))
  T.same(f:getLongName(1, 1), "Long")
  T.truthy(f:setLongName(2, "Lost"))  -- the text is the fourth argument
  T.truthy(f:getLongName(2, 65535) ~= "Lost", "text taken from the wrong argument")
  T.truthy(f:setDescription(1, "About"))
  T.same(T.pack(f:getElementDetail(1, 1))[2], "About")
  T.truthy(f:setElementDetail(3, "L3"))
  local r = T.pack(f:getElementDetail(3, 3))
  T.same(r.n, 2)
  T.same(r[1], "L3")
  T.same(type(r[2]), "string")
  T.same(type(nodes.Signal.longname), "userdata")
  T.truthy(f:setElementId("fr2"))
  T.same(f:getElementId(), "fr2")
  T.same(db:findByElementId("fr2").eid, "fr2")
  T.same(db:getQualifiedId(), "all::all")
  T.same(db.getQualifiedId(f), "all::fr2")
  local dbId, elementId = db.splitQualifiedId("all::fr2")
  T.same(dbId .. "|" .. elementId, "all|fr2")
  T.same(T.pack(db.splitQualifiedId("plain"))[2], "plain")
end)

T.case("failing operations give nil and a status, or nothing where told", function()
  local r = T.pack(db:findByElementId("missing"))
  T.same(r[1], nil)
  T.same(r[2], 1)
  T.same(select("#", nodes.ElementGroup:findChildByElementId("missing")), 0)
  T.same(select("#", nodes.ElementReference:getReference()) >= 1, true)
  r = T.pack(nodes.Signal.getElementId(nil))
  T.same(r[2], -2147024809)
  T.same(nodes.SignalInstance:setSignal(nil), -2147024809)
  T.same(db.getNodeType(nil), 0xFFFF)
  r = T.pack(Q9Db.createDb():getCollections():getCollections())
  T.same(r[1].tag, "DatabaseCollections")
end)

T.case("argument checks name the expected and the given kind", function()
  local n = nodes
  T.raises("Signal expected, got Frame", db.internalToPhysical, n.Frame, 1)
  T.raises("Q9Node expected, got number", db.internalToPhysical, 5, 1)
  T.raises("Q9Node expected, got string", n.Frame.getShortName, "fr")
  T.raises("Q9Node expected, got userdata", n.Frame.getShortName, io.stdout)
  T.raises("Q9Node expected, got userdata", n.Frame.getShortName, n.MappedTextComputation.textvalue)
  T.raises("(null) expected, got CyclicTiming", n.Frame.getDatabaseRef, n.CyclicTiming)
  T.raises("Q9Db or DatabaseCollections expected, got userdata", db.addClusters, n.Frame)
  T.raises("Channel or Frame expected, got userdata", n.Frame.enumPDUInstances, n.Signal)
  T.raises("PDUTriggering or IdentifierBasedTriggering expected, got userdata", db.createCyclicTiming, db, 1,
    n.MaskedIdentifierTriggering)
  T.raises("7D28C4F16A9E43B0B5F2E86D1C07A93E expected, got", db.createFrame, n.Frame, "x", 8)
  T.raises("invalid encoding constant", db.createCoding, db, "bad", 8)
  T.raises("2F7B83D1C6E940A5B18D73E0F5A2C694 expected, got nil", db.createMappedTextComputation, db, "noslot", nil)
  T.raises("MultiplexedPart expected, got no value", n.Frame.enumSegments)
  T.raises("calling 'getStaticPart' on bad self (MultiplexedPDU expected, got Signal)", function()
    return n.Signal:getStaticPart()
  end)
  T.same(T.pack(db:createCoding("ok", 8, Q9Db.Q9_ENCODING_DIRECT))[1].encoding, 1.0)
end)

T.case("add methods stop at the first failure and keep what came before", function()
  local fresh = Q9Db.createDb("adds")
  local a = assert(fresh:createElementGroup("a"))
  local b = assert(fresh:createElementGroup("b"))
  local frame = assert(fresh:createFrame("f", 1))
  T.same(fresh:addViews(), 0)
  T.same(#T.collect(fresh:enumViews()), 0)
  T.raises("ElementGroup expected, got Frame", fresh.addViews, fresh, a, frame, b)
  T.same(#T.collect(fresh:enumViews()), 1)
  T.truthy(fresh:addViews(nil) ~= 0, "a null member gives the operation's status")
  T.same(fresh.collections:addViews(b), 0)
  T.same(#T.collect(fresh:enumViews()), 2)
end)

T.case("iterators: list order, fresh starts, end states", function()
  local part = nodes.MultiplexedPart
  for i = 1, 300 do assert(part:addSegment(0, i, 1) == 0) end
  local viaAttribute, viaMethod = {}, {}
  for s in part.segments do viaAttribute[#viaAttribute + 1] = s.bitpos end
  for s in part:enumSegments() do viaMethod[#viaMethod + 1] = s.bitpos end
  T.same(#viaAttribute, 301)
  T.same(table.concat(viaAttribute, ","), table.concat(viaMethod, ","))
  T.same(viaAttribute[301], 300.0)
  T.same(nodes.IdentityComputation.ranges(), nil)
  T.same(select("#", nodes.IdentityComputation.ranges()), 0)

  local frames = nodes.Channel.frameTriggerings
  T.same(frames().eid, "as")
  T.same(nodes.Channel.frameTriggerings().eid, "as", "each read starts afresh")
  frames(); frames()
  for _ = 1, 2 do
    local r = T.pack(frames())
    T.same(r[1], nil)
    T.same(r[2], 1)
  end
  local r = T.pack(nodes.Cluster:enumChildren())
  T.same(type(r[1]), "function")
  r = T.pack(nodes.Frame.enumChildren(nil))
  T.same(r[1], nil)
  T.same(r[2], -2147024809)
end)

T.case("a database is destroyed once, by its owning userdata", function()
  local temporary = Q9Db.createDb("temp")
  temporary:__gc()
  temporary:__gc()
  T.raises("destroyed database", temporary.getElementId, temporary)
  local r = T.pack(temporary:createFrame("x", 1))
  T.same(r[1], nil)
  T.same(r[2], -2147024809)
  for _ = 1, 3 do Q9Db.createDb("garbage"):createFrame("f", 8) end
  collectgarbage()
  T.same(db.eid, "all")
end)

T.case("the graph dump writes a file, and refuses a collections node", function()
  local path = os.tmpname()
  T.same(db:dumpDot(path, 0, 0), 0)
  local f = assert(io.open(path, "rb"))
  local text = f:read("a")
  f:close()
  os.remove(path)
  T.truthy(text:find("digraph", 1, true), "a Graphviz graph")
  T.raises("7D28C4F16A9E43B0B5F2E86D1C07A93E expected", db.collections.dumpDot, db.collections, path)
end)

T.case("unknown keys and keys without text read as nil", function()
  T.same(nodes.Frame.nosuch, nil)
  T.same(nodes.Frame[1], nil)
  T.same(nodes.Frame[{}], nil)
  T.same(type(nodes.Frame.getLongName), "function")
  T.raises("attempt to index", function() nodes.Frame.length = 3 end)
end)

T.finish()

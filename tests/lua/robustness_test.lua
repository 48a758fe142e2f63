-- No script can crash the process through an argument: every function of
-- every metatable and of the core table is called with hostile values in
-- each position, on receivers of every class, and must either answer or
-- raise a Lua error. Functions it hands back (iterators) get the same.
local T = require "testing"
local Q9Db = T.Q9Db
local net = T.sampleNetwork()
local db = net.db

local receivers = {db, db.collections}
for _, key in ipairs({"cluster", "channel", "ecu", "scale", "speed", "pdu", "frame", "mux", "static", "partA",
                      "counter"}) do
  receivers[#receivers + 1] = net[key]
end
receivers[#receivers + 1] = net.frame.PDUInstances()
receivers[#receivers + 1] = net.channel.frameTriggerings()
receivers[#receivers + 1] = net.speed.coding
receivers[#receivers + 1] = net.static.segments()
receivers[#receivers + 1] = net.scale.ranges()
receivers[#receivers + 1] = assert(db:createCyclicTiming(10, assert(db:createPDUTriggering("pt", net.pdu, net.channel))))

local slot = db:stringCreateSlot(0, "text")
local value = net.counter.coding.unit == nil and (db.internalToPhysical(net.counter, 3)) or nil
local hostile = {n = 13, nil, 7, -1.5, "0x10", "", {}, true, io.stdout, slot, value, net.static.segments(), db,
                 function() end}

local calls, errors = 0, 0
local function try(f, ...)
  calls = calls + 1
  local results = table.pack(pcall(f, ...))
  if not results[1] then errors = errors + 1 end
  return results
end

-- Calls what a function handed back, a few times, with and without junk.
local function exerciseResults(results)
  for i = 2, results.n do
    if type(results[i]) == "function" then
      for k = 1, hostile.n do try(results[i], hostile[k], hostile[k]) end
      for _ = 1, 3 do try(results[i]) end
    end
  end
end

local function hammer(name, f, receiverList, positions)
  for _, receiver in ipairs(receiverList) do
    for position = 1, positions do
      for k = 1, hostile.n do
        local args = {receiver}
        args[position] = hostile[k]
        exerciseResults(try(f, table.unpack(args, 1, positions)))
      end
    end
  end
end

local function functionsOf(metatable)
  local names = {}
  for name, f in pairs(metatable) do
    if type(f) == "function" and name ~= "__gc" then names[#names + 1] = name end
  end
  table.sort(names)
  return names
end

T.case("node and database methods", function()
  for _, mt in ipairs({getmetatable(db.collections), getmetatable(db)}) do
    for _, name in ipairs(functionsOf(mt)) do hammer(name, mt[name], receivers, 6) end
  end
end)

T.case("encoder methods, __gc included", function()
  local mt = getmetatable(assert(db:createEncoder(net.channel)))
  local names = functionsOf(mt)
  names[#names + 1] = "__gc"
  for _, name in ipairs(names) do
    local encoder = assert(db:createEncoder(net.channel))
    encoder:registerApp()
    hammer(name, mt[name], {encoder, db}, 4)
  end
end)

T.case("value methods and the core functions", function()
  local raw = (db.internalToPhysical(net.counter, 3))
  local signed = (db.internalToPhysical(net.a, "0xFFFF"))
  for _, v in ipairs({raw, signed}) do
    local mt = getmetatable(v)
    for _, name in ipairs(functionsOf(mt)) do hammer(name, mt[name], {v, slot, 1}, 2) end
  end
  for _, name in ipairs({"version", "createDb", "importDBC", "importLDF", "XSLtransform", "attribs"}) do
    hammer(name, Q9Db.core[name], receivers, 3)
  end
end)

T.case("the database stays whole, and the state keeps working", function()
  -- The calls may relink nodes (that is what setters do), but every node
  -- must still be reachable and readable.
  local count = 0
  for node in db:enumIdentElements() do
    for _ in Q9Db.attribs(node) do end
    count = count + 1
  end
  T.truthy(count > 20, "nodes reachable: " .. count)
  local fresh = T.sampleNetwork()
  local seen = {}
  for signal, _, raw in fresh.channel:decodeMessage(0x123, 0, "\x34\x02\xFE\0\0\0\0\0") do
    seen[#seen + 1] = signal.eid .. "=" .. tostring(raw)
  end
  T.same(table.concat(seen, " "), "speed=564 temp=254")
  T.truthy(calls > 10000, "calls made: " .. calls)
  T.truthy(errors > 0 and errors < calls, "both answers and errors seen")
end)

T.finish()

-- Decoding from scripts: the generic-for walk, its end state, and the
-- conversion of raw values in each of their three forms.
local T = require "testing"
local Q9Db = T.Q9Db
local net = T.sampleNetwork()

local function decodeAll(id, flags, payload)
  local seen = {}
  for signal, kind, value, triggering, instance in net.channel:decodeMessage(id, flags, payload) do
    seen[#seen + 1] = {name = signal.eid, kind = kind, value = tostring(value),
                       frame = triggering and triggering.frame.eid, instance = instance.eid}
  end
  return seen
end

local function names(seen)
  local out = {}
  for i, s in ipairs(seen) do out[i] = s.name .. "=" .. s.value end
  return table.concat(out, " ")
end

T.case("plain frame gives each signal with its triggering and instance", function()
  local seen = decodeAll(0x123, 0, "\x34\x02\xFE\0\0\0\0\0")
  T.same(names(seen), "speed=564 temp=254")
  T.same(seen[1].kind, Q9Db.Q9_NUMERICSIGNAL)
  T.same(seen[1].frame, "plainFrame")
  T.same(seen[2].instance, "temp.si")
end)

T.case("multiplexed frame follows the switch", function()
  T.same(names(decodeAll(0x200, 0, "\x01\x34\x12\0\0\0\0\x07")), "counter=7 A=4660")
  T.same(names(decodeAll(0x200, 0, "\x02\x34\x12\0\0\0\0\x07")), "counter=7 B=18")
  T.same(names(decodeAll(0x200, 0, "\x03\x34\x12\0\0\0\0\x07")), "counter=7")
end)

T.case("unknown identifier, wrong length and zero bytes in the payload", function()
  T.same(#decodeAll(0x124, 0, "\0\0\0\0\0\0\0\0"), 0)
  T.same(#decodeAll(0x123, 0, "\0\0\0"), 0)
  T.same(names(decodeAll(0x123, 0, "\0\0\0\0\0\0\0\0")), "speed=0 temp=0")
end)

T.case("a finished walk keeps answering nil and the end status as a float", function()
  local walk = net.channel:decodeMessage(0x123, 0, "\0\0\0\0\0\0\0\0")
  walk(); walk()
  for _ = 1, 2 do
    local r = T.pack(walk())
    T.same(r.n, 2)
    T.same(r[1], nil)
    T.same(r[2], -2147023728.0)
  end
end)

T.case("a walk without a channel reports the bad argument when called", function()
  local r = T.pack(net.db.decodeMessage(nil, 1, 0, "")())
  T.same(r[1], nil)
  T.same(r[2], -2147024809.0)
end)

T.case("internalToPhysical takes a number, a text and an InternalValue alike", function()
  local raw
  for signal, _, value in net.channel:decodeMessage(0x123, 0, "\x34\x02\xFE\0\0\0\0\0") do
    if signal.eid == "speed" then raw = value end
  end
  for _, form in ipairs({564, "564", "0x234", raw}) do
    local value, text, status = net.db.internalToPhysical(net.speed, form)
    T.same(value, 282.0, "physical value of " .. tostring(form))
    T.same(text, nil)
    T.same(status, 0)
  end
end)

T.case("two's complement raw values come out as signed InternalValues", function()
  local value, _, status = net.db.internalToPhysical(net.temp, 254)
  T.same(status, 1)  -- no computation: the coding alone applies
  T.same(tostring(value), "-2")
  T.same(value:tohexstring(), "fffffffffffffffe")
  T.same(value:tonumber(), -2.0)
end)

T.case("text computations give their slot", function()
  local slot = net.db:stringCreateSlot(0, "idle")
  local mapped = assert(net.db:createMappedTextComputation("idleText", slot))
  assert(mapped:addRange(0, 0, Q9Db.Q9_FLAG_VALID | 3) == 0)
  local coding = assert(net.db:createCoding("state.coding", 2, Q9Db.Q9_ENCODING_DIRECT))
  assert(coding:addInternalToPhysicalComputations(mapped) == 0)
  local state = assert(net.db:createSignal("state", 0, 0, 0, 0, coding))
  local _, text, status = net.db.internalToPhysical(state, 0)
  T.same(status, 0)
  T.same(net.db:stringLookup(text, 0, 0), "idle")
end)

T.case("checkValueInMinMax reads its value strictly", function()
  local db = net.db
  local coding = assert(db:createCoding("lim.coding", 8, Q9Db.Q9_ENCODING_DIRECT))
  local limited = assert(db:createSignal("limited", Q9Db.Q9_FLAG_VALID, 0, 10, 20, coding))
  T.same(db.checkValueInMinMax(limited, 15), Q9Db.Q9_VALUEINRANGE | 0)
  T.same(db.checkValueInMinMax(limited, "5"), Q9Db.Q9_VALUEBELOWRANGE | 0)
  T.same(db.checkValueInMinMax(limited, 25.5), Q9Db.Q9_VALUEABOVERANGE | 0)
  T.raises("number expected", db.checkValueInMinMax, limited, {})
end)

T.finish()

-- The frame encoder from scripts: apps, insertion, exact 64-bit changes and
-- a cyclic send collected frame by frame.
local T = require "testing"
local Q9Db = T.Q9Db
local net = T.sampleNetwork()
local db = net.db

local triggering = assert(db:createPDUTriggering("plain.pt", net.pdu, net.channel))
local timing = assert(db:createCyclicTiming(100, triggering))

local function frames(encoder)
  local out = {}
  while true do
    local frame, status = encoder:getNextFrame()
    if not frame then
      T.same(status, 1, "status once no frame is waiting")
      return out
    end
    out[#out + 1] = frame
  end
end

T.case("apps come as integers with a status, and accept numbers as text", function()
  local encoder = assert(db:createEncoder(net.channel))
  local app, status = encoder:registerApp()
  T.same(app, 0)
  T.same(status, 0)
  T.same(encoder:setSendMode("0x0", Q9Db.Q9_ENC_MODE_PERIODIC), 0)
  T.same(T.pack(encoder:getSendMode(0))[1], 2)
  T.same(encoder:insertNode("0", net.frame), 0)
  T.same(encoder:isSignalCyclic(net.speed), 0)
  T.same(encoder:isSignalCyclic(net.a), 1)
  T.same(encoder:deleteNode(0, net.frame), 0)
  T.same(encoder:deregisterApp(0), 0)
  T.same(encoder:deregisterApp(0), -2147467259)
end)

T.case("a cyclic send hands out copies of the frame's bytes", function()
  local encoder = assert(db:createEncoder(net.channel))
  local app = encoder:registerApp()
  encoder:setSendMode(app, Q9Db.Q9_ENC_MODE_PERIODIC)
  T.same(encoder:insertNode(app, net.frame), 0)
  T.same(encoder:changeSignal(app, net.speed, 0x234), 0)
  T.same(encoder:changeSignal(app, net.temp, -2), 0)
  T.same(encoder:trigger(0), 0)
  T.same(#frames(encoder), 0, "frames before the first cycle is due")
  T.same(encoder:trigger(100), 0)
  local first = frames(encoder)
  T.same(#first, 1)
  T.same(first[1].frame.eid, "plainFrame")
  T.same(first[1].data, "\x34\x02\xFE\0\0\0\0\0")
  -- The copy stays as it was while the image changes.
  encoder:changeSignal(app, net.speed, "0")
  encoder:trigger("200")
  local second = frames(encoder)
  T.same(second[#second].data, "\0\0\xFE\0\0\0\0\0")
  T.same(first[1].data, "\x34\x02\xFE\0\0\0\0\0")
end)

T.case("values given as text keep all 64 bits", function()
  local coding = assert(db:createCoding("wide.coding", 64, Q9Db.Q9_ENCODING_DIRECT))
  local wide = assert(db:createSignal("wide", 0, 0, 0, 0, coding))
  local pdu = assert(db:createSignalPDU("widePdu", 64))
  assert(db:createSignalInstance("wide.si", 0, 0, -1, wide, pdu))
  local frame = assert(db:createFrame("wideFrame", 8))
  assert(db:createIdentifierBasedTriggering("wide.tr", 0x300, 0, frame, nil, net.channel))
  assert(db:createPDUInstance("wide.pi", 0, 0, -1, pdu, frame))
  local encoder = assert(db:createEncoder(net.channel))
  local app = encoder:registerApp()
  encoder:setSendMode(app, Q9Db.Q9_ENC_MODE_ONCE)
  encoder:insertNode(app, frame)
  T.same(encoder:changeSignal(app, wide, "18446744073709551613"), 0)
  encoder:trigger(0)
  T.same(frames(encoder)[1].data, "\xFD\xFF\xFF\xFF\xFF\xFF\xFF\xFF")
  -- A number above 2^53 is rounded on its way through a double.
  encoder:setSendMode(app, Q9Db.Q9_ENC_MODE_ONCE)
  T.same(encoder:changeSignal(app, wide, 9007199254740993), 0)
  encoder:trigger(1)
  T.same(frames(encoder)[1].data, "\0\0\0\0\0\0\x20\0")
end)

T.case("failures are statuses; a missing time is an argument error", function()
  local encoder = assert(db:createEncoder(net.channel))
  T.same(encoder:deregisterApp(5), -2147467259)
  T.raises("number, string or InternalValue expected, got no value", encoder.trigger, encoder)
  T.raises("number, string or InternalValue expected, got nil", encoder.trigger, encoder, nil)
  local r = T.pack(db:createEncoder(net.frame.PDUInstances()))
  T.same(r[1], nil)
  T.same(r[2], -2147024809)
end)

T.case("after __gc every operation answers E_INVALIDARG", function()
  local encoder = assert(db:createEncoder(net.channel))
  encoder:__gc()
  encoder:__gc()
  T.same(T.pack(encoder:registerApp())[2], -2147024809)
  local frame, status = encoder:getNextFrame()
  T.same(frame, nil)
  T.same(status, -2147024809)
end)

T.case("the encoder metatable answers only to encoders", function()
  local encoder = assert(db:createEncoder(net.channel))
  T.raises("B60F1E49D38A4725C9E7A03F16B25D8C expected, got", encoder.trigger, net.frame, 0)
  T.raises("Q9Node expected, got userdata", encoder.insertNode, encoder, 0, encoder)
end)

T.finish()

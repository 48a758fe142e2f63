-- 64-bit values through Lua: the InternalValue forms, what counts as a raw
-- value, and which attributes come as floats and which as integers.
local T = require "testing"
local Q9Db = T.Q9Db
local db = Q9Db.createDb("values")

-- An unsigned InternalValue of exactly these bits, by way of cycleTime.
local function unsigned(text)
  local timing = assert(db:createCyclicTiming(text))
  return timing.cycleTime
end

local coding64 = assert(db:createCoding("c64", 64, Q9Db.Q9_ENCODING_DIRECT))
local raw64 = assert(db:createSignal("raw64", 0, 0, 0, 0, coding64))
local signed64 = assert(db:createSignal("signed64", 0, 0, 0, 0,
  assert(db:createCoding("s64", 64, Q9Db.Q9_ENCODING_2COMPL))))

-- The raw value as the library read it, printed in decimal.
local function asRaw(value) return tostring((db.internalToPhysical(raw64, value))) end

T.case("unsigned values print, convert and round exactly", function()
  for _, row in ipairs({
    {"0", "0", "0", 0.0},
    {"0xFFFFFFFFFFFFFFFF", "18446744073709551615", "ffffffffffffffff", 2.0 ^ 64},
    {"9223372036854775809", "9223372036854775809", "8000000000000001", 2.0 ^ 63},
    {"0x8000000000000C01", "9223372036854778881", "8000000000000c01", 9223372036854779904.0},
    {"255", "255", "ff", 255.0},
  }) do
    local v = unsigned(row[1])
    T.same(tostring(v), row[2], row[1] .. " in decimal")
    T.same(v:tohexstring(), row[3], row[1] .. " in hexadecimal")
    T.same(v:tonumber(), row[4], row[1] .. " as a float")
  end
end)

T.case("signed values print with a minus and as two's complement in hex", function()
  for _, row in ipairs({{"0xFFFFFFFFFFFFFFFF", "-1", "ffffffffffffffff", -1.0},
                        {"0", "0", "0", 0.0},
                        {"0x8000000000000000", "-9223372036854775808", "8000000000000000", -2.0 ^ 63},
                        {"42", "42", "2a", 42.0}}) do
    local v, _, status = db.internalToPhysical(signed64, row[1])
    T.same(status, 1)
    T.same(tostring(v), row[2])
    T.same(v:tohexstring(), row[3])
    T.same(v:tonumber(), row[4])
  end
end)

T.case("raw values from numbers, texts, InternalValues and other userdata", function()
  for _, row in ipairs({
    {"0x10", "16"}, {"010", "8"}, {"12abc", "12"}, {"abc", "0"}, {"", "0"},
    {-1, "18446744073709551615"}, {-1.0, "18446744073709551615"}, {3.9, "3"},
    {2 ^ 63, "9223372036854775808"}, {1.5e19, "15000000000000000000"},
    {9007199254740993, "9007199254740992"},  -- a Lua integer passes through a double
    {"9007199254740993", "9007199254740993"},
    {"18446744073709551615", "18446744073709551615"},
    {unsigned("0x123456789ABCDEF0"), "1311768467463790320"},
    {(db.internalToPhysical(signed64, -5)), "18446744073709551611"},
    {db, "0"}, {io.stdout, "0"},
  }) do
    T.same(asRaw(row[1]), row[2], "raw value of " .. tostring(row[1]))
  end
end)

T.case("values that are no raw value raise with the expected types named", function()
  T.raises("number, string or InternalValue expected, got nil", db.internalToPhysical, raw64, nil)
  T.raises("number, string or InternalValue expected, got no value", db.internalToPhysical, raw64)
  T.raises("number, string or InternalValue expected, got table", db.internalToPhysical, raw64, {})
  T.raises("number, string or InternalValue expected, got boolean", db.internalToPhysical, raw64, true)
end)

T.case("InternalValues have no arithmetic and compare by identity", function()
  local a, b = unsigned("7"), unsigned("7")
  T.truthy(a ~= b, "two wrappers of one number differ")
  T.same(tostring(a), tostring(b))
  T.raises("attempt to perform arithmetic", function() return a + 1 end)
  T.raises("5C0D7A3E91B64F28A7E3D05B6C19F842 expected", a.tohexstring, db)
  T.truthy(type(getmetatable(a)) == "table", "the value's metatable is visible")
end)

T.case("string slots are opaque", function()
  local slot, status = db:stringCreateSlot(0, "text")
  T.same(status, 0)
  T.same(getmetatable(slot), "StringSlot")
  T.same(slot.anything, nil)
end)

T.case("attribute number forms: integers for nodetype and param only", function()
  local frame = assert(db:createFrame("f", 8))
  T.same(frame.length, 8.0)
  T.same(frame.nodetype, 0x7266)
  T.truthy(frame.nodetype == Q9Db.Q9_NODETYPE_Frame, "integer and float compare equal")
  T.same(frame:getNodeType(), frame.nodetype)
  T.same(frame.tag, "Frame")
  T.same(db.tag, "Q9Db")
  T.truthy(frame:setParam(1.5), "setParam")  -- an int place takes only whole numbers
  T.same(frame:getParam(), 0)
  T.truthy(frame:setParam(0x1FFFFFFFF), "setParam")
  T.same(frame.param, -1)
  T.same(frame:getParam(), 0x1FFFFFFFF)

  local channel = assert(db:createChannel("ch"))
  local high = assert(db:createIdentifierBasedTriggering("t", "0x80000001", 0, frame, nil, channel))
  T.same(high.identifier, -2147483647.0)
  local masked = assert(db:createMaskedIdentifierTriggering("m", "0xFFFFFFFF", "0x80000000", 0, frame, nil, channel))
  T.same(masked.mask, 4294967295.0)
  T.same(masked.code, 2147483648.0)
  local sig = assert(db:createSignal("flagged", "0x80000000", 1, 2, 3))
  T.same(sig.flags, 2147483648.0)
  T.same(sig.minValue, 2.0)
  T.same(sig.coding, nil)
  T.same(unsigned("5").tonumber, getmetatable(unsigned("5")).tonumber)
end)

T.finish()

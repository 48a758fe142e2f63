-- The library from Lua, in brief: import a description file, then decode
-- one CAN frame into its signals' physical values and texts.
--   LUA_CPATH="build/lib/?.so" lua5.3 examples/decode_frame.lua examples/vehicle.dbc 0C8 F91180E70F148200
local Q9Db = require "Q9Db"

local file, id, hex = arg[1], tonumber(arg[2], 16), arg[3]
local payload = hex:gsub("%x%x", function(byte) return string.char(tonumber(byte, 16)) end)

local db = Q9Db.createDb("example")
local status = Q9Db.doimport(db, nil, file, "", function(kind, what, text) return 0 end)
assert(status == 0, "cannot import " .. file)
-- A DBC file imports as one cluster with one channel.
local cluster = db:enumClusters()()
local channel = cluster:enumChildren()()

local flags = id > 0x7FF and Q9Db.Q9_FLAG_CANEXTENDED or Q9Db.Q9_FLAG_CANSTANDARD
for signal, kind, raw in channel:decodeMessage(id, flags, payload) do
  local value, text = db.internalToPhysical(signal, raw)
  local unit = signal.coding.unit
  print(signal.shortname, tostring(value), unit and unit:getDisplayName(0, 0) or "",
        text and db:stringLookup(text, 0, 0) or "")
end

-- The rules the ECUs of vehicle.dbc follow beyond the frame encoder's
-- values: an alive counter in EngineStatus, and in SteeringStatus a counter
-- and a CRC-8 (SAE J1850) over the rest of the frame, so that a receiver
-- that checks them accepts the simulated bus.
--
--   q9db simulate examples/vehicle.dbc --duration 3 --script examples/restbus.lua
--
-- q9db simulate calls before_send(frame) before each frame goes out, with
--   frame.name, frame.identifier, frame.extended, frame.fd, frame.length
--   frame.time      seconds, as in the log line
--   frame.count     sends of this frame before this one, 0 the first time
--   frame.node      the Frame node of the Q9Db module (require "Q9Db")
--   frame.signals   signal name -> physical value, as the payload stood when
--                   the call began
--   frame:get(name)         a signal's physical value in the payload now; nil
--                           for one in a multiplexed part not selected
--   frame:set(name, value)  writes a physical value or one of the signal's
--                           value texts into the payload at once
--   frame:bytes()           the payload as a string
--   frame:byte(i), frame:setbyte(i, v)   byte i of the payload, from 1
-- Changes go into this send only; state of its own the script keeps in its
-- variables. A function setup(db), if defined, runs once with the database
-- before the simulation starts and may still change it; before_send must
-- not, as the frame encoder works on it. An error stops the simulation,
-- naming the line and the frame. print writes to standard error: standard
-- output is the capture.

-- CRC-8 SAE J1850: polynomial 0x1D, initial value 0xFF, final XOR 0xFF.
local crc8Table = {}
for byte = 0, 255 do
  local crc = byte
  for _ = 1, 8 do
    crc = crc & 0x80 ~= 0 and (crc << 1 ~ 0x1D) & 0xFF or crc << 1 & 0xFF
  end
  crc8Table[byte] = crc
end

local function crc8(bytes, first, last)
  local crc = 0xFF
  for i = first, last do
    crc = crc8Table[crc ~ bytes:byte(i)]
  end
  return crc ~ 0xFF
end

local rules = {
  EngineStatus = function(frame)
    frame:set("AliveCounter", frame.count % 16)
  end,
  SteeringStatus = function(frame)
    frame:set("SteeringCounter", frame.count % 16)
    -- Bytes 2 to 8, the counter among them: the CRC comes last.
    frame:set("SteeringCRC", crc8(frame:bytes(), 2, frame.length))
  end,
}

function before_send(frame)
  local rule = rules[frame.name]
  if rule then rule(frame) end
end

-- Builds database nodes from the model of a DBC file (dbc_model.lua).
--
-- Per message: a Frame, an IdentifierBasedTriggering on the channel, a PDU
-- placed at bit 0 of the frame and, with a cycle time, a PDUTriggering with
-- a CyclicTiming (milliseconds, as the file gives them). A plain message
-- carries a SignalPDU. A multiplexed message carries a MultiplexedPDU whose
-- switch is the multiplexer signal; its static part holds the plain signals
-- and the switch signal, and each switch value has a dynamic part. A part's
-- segments are the signals' own fields, so its PDU sees them one after the
-- other, little-endian, from bit 0; the frame encoder writes them back
-- through the same segments without touching the other parts' bits.
--
-- Element ids are paths under a prefix that no element of the database uses
-- yet (the database id of the file, made unique by "#2", "#3", ...):
--   P/cluster  P/channel  P/ECU/<node>  P/unit/<unit text>
--   P/frame|triggering|PDU|PDUInstance|PDUTriggering/<message>
--   P/part/<message>/static|<switch value>, their PDUs P/PDU/<message>/...
--   P/signal|instance|coding/<message>/<signal>
--   P/compu/<message>/<signal>/text/<raw>|linear|negate|inverse|inverse-negative
-- Short names carry the plain names of the file.

local dbcModel = require "q9filters.dbc_model"

local M = {}

-- Public constants of the library (values fixed by its C interface).
local CLUSTERTYPE_CAN = 1
local BYTEORDER_LITTLE, BYTEORDER_BIG = 0, 1
local FLAG_VALID = 0x80000000
local CLOSED_BOTH, CLOSED_LOWER = 3, 1
local CANEXTENDED, CANFD_FRAME, CANFD_FASTDATA = 1, 4, 8
local ENCODING_DIRECT, ENCODING_2COMPL, ENCODING_IEEE = 1, 3, 4
local NO_UPDATE_BIT = -1
local STATIC_PART_CODE = 0xFFFFFFFF

M.REPORT_INFO, M.REPORT_WARNING, M.REPORT_ERROR = 0, 1, 2

local function hex(status)
  return string.format("0x%08X", (math.tointeger(status) or 0) & 0xFFFFFFFF)
end

local function check(status, what)
  if status ~= 0 and status ~= true then
    error(string.format("%s failed with status %s", what, hex(status)), 0)
  end
end

-- The first path component of every registered id, to find a free prefix.
local function usedPrefixes(db)
  local used = {}
  local walk = db:enumIdentElements()
  if walk then
    for element in walk do
      local eid = element.eid
      local head = eid and eid:match("^(.-)/")
      if head then used[head] = true end
    end
  end
  return used
end

local function freePrefix(db, wanted)
  local used = usedPrefixes(db)
  if not used[wanted] then return wanted end
  local n = 2
  while used[wanted .. "#" .. n] do n = n + 1 end
  return wanted .. "#" .. n
end

local function isInteger(x)
  return x == math.floor(x) and x > -2^63 and x < 2^63
end

-- Limits of the value that the coding hands to the computations.
local function rawRange(signal)
  if signal.valtype ~= "integer" then return -math.huge, math.huge end
  local bits = signal.bitlen
  if signal.signed then return -2.0^(bits - 1), 2.0^(bits - 1) - 1 end
  return 0, 2.0^bits - 1
end

-- Value table keys are raw values; a signed signal's key may be written as
-- its bit pattern, so both forms are taken.
local function normaliseKey(signal, key)
  if signal.valtype == "integer" and signal.signed and key >= 2^(signal.bitlen - 1) then
    return key - 2^signal.bitlen
  end
  return key
end

local function sortedKeys(values)
  local keys = {}
  for key in pairs(values) do keys[#keys + 1] = key end
  table.sort(keys)
  return keys
end

-- A session holds what one import needs: the database, the prefix, the
-- language of texts, ids given so far and the shared units.
local Session = {}
Session.__index = Session

function Session:id(path)
  local id = self.prefix .. "/" .. path
  if self.taken[id] then
    local n = 2
    while self.taken[id .. "#" .. n] do n = n + 1 end
    id = id .. "#" .. n
  end
  self.taken[id] = true
  return id
end

-- Every node is made here: a failing creator means the database can't take
-- more, and the import stops with the reason.
function Session:create(method, id, ...)
  local node, status = self.db[method](self.db, id, ...)
  if node == nil then
    error(string.format("%s %s failed with status %s", method, tostring(id), hex(status)), 0)
  end
  return node
end

function Session:name(node, plain)
  if plain and plain ~= "" then check(node:setShortName(plain), "setting a short name") end
end

function Session:describe(node, text)
  if text and text ~= "" then check(node:setDescription(self.language, text), "setting a description") end
end

function Session:unit(text)
  if text == nil or text == "" then return nil end
  local unit = self.units[text]
  if not unit then
    unit = self:create("createUnitSpec", self:id("unit/" .. text), self.language, text)
    self.units[text] = unit
  end
  return unit
end

-- Ranges of the inverse, from a physical value to the raw one. The library
-- truncates towards zero when it makes the raw value, so the offset carries
-- half a step towards the raw value's sign, which rounds to the nearest
-- raw value on both sides of zero.
function Session:inverse(coding, signal, base, physicalDefault)
  local db, scale, offset = self.db, signal.scale, signal.offset
  if scale == 0 then
    self.warn(string.format("signal %s of message %s has the factor 0: values can be decoded, not encoded",
      signal.name, self.current.name))
    return
  end
  local low, high = rawRange(signal)
  local function physical(raw) return raw * scale + offset end
  local function add(id, rawLow, rawHigh, lowClosed, highClosed, bias)
    local compu = self:create("createLinearComputation", self:id(id), 1 / scale, -offset / scale + bias)
    local a, b, aClosed, bClosed = physical(rawLow), physical(rawHigh), lowClosed, highClosed
    if scale < 0 then a, b, aClosed, bClosed = b, a, bClosed, aClosed end
    local flags = FLAG_VALID | (aClosed and 1 or 0) | (bClosed and 2 or 0)
    check(compu:addRange(a, b, flags), "adding a range")
    return compu
  end
  if signal.valtype ~= "integer" then
    check(coding:addPhysicalToInternalComputations(add(base .. "inverse", low, high, true, true, 0)), "adding a computation")
    return
  end
  local positive = add(base .. "inverse", 0, high, true, true, 0.5)
  if low >= 0 then
    check(coding:addPhysicalToInternalComputations(positive), "adding a computation")
    return
  end
  local negative = add(base .. "inverse-negative", low, 0, true, false, -0.5)
  -- The frame encoder sets start values through the first inverse, whatever
  -- its range, so the one that holds the start value goes first.
  local first, second = positive, negative
  local rawDefault = (physicalDefault - offset) / scale
  if rawDefault < 0 then first, second = negative, positive end
  check(coding:addPhysicalToInternalComputations(first, second), "adding a computation")
end

function Session:coding(signal)
  local db, message = self.db, self.current
  local path = message.name .. "/" .. signal.name
  local encoding = ENCODING_DIRECT
  if signal.valtype ~= "integer" then
    encoding = ENCODING_IEEE
  elseif signal.signed then
    encoding = ENCODING_2COMPL
  end
  local coding = self:create("createCoding", self:id("coding/" .. path), signal.bitlen, encoding, self:unit(signal.unit))
  self:name(coding, signal.plainName)

  local base = "compu/" .. path .. "/"
  local low, high = rawRange(signal)
  local toPhysical = {}
  -- Texts first: they leave the raw value as it is for the scaling after them.
  if signal.values then
    for _, key in ipairs(sortedKeys(signal.values)) do
      local raw = normaliseKey(signal, key)
      if raw < low or raw > high then
        self.warn(string.format("value description %s of signal %s in message %s lies outside the signal's raw values; it is not imported",
          string.format("%.0f", key), signal.name, message.name))
      else
        local slot = db:stringCreateSlot(self.language, signal.values[key])
        local text = self:create("createMappedTextComputation", self:id(base .. "text/" .. string.format("%.0f", raw)), slot)
        check(text:addRange(raw, raw, FLAG_VALID | CLOSED_BOTH), "adding a range")
        toPhysical[#toPhysical + 1] = text
      end
    end
  end
  local scale, offset = signal.scale, signal.offset
  if signal.valtype == "integer" and scale == 1 and not isInteger(offset) then
    -- A factor of exactly one keeps integers integer and would cut the
    -- fraction off the offset; negating twice gives a float with the
    -- whole offset and no rounding.
    local negate = self:create("createLinearComputation", self:id(base .. "negate"), -1, 0)
    check(negate:addRange(low, high, FLAG_VALID | CLOSED_BOTH), "adding a range")
    local linear = self:create("createLinearComputation", self:id(base .. "linear"), -1, offset)
    check(linear:addRange(-high, -low, FLAG_VALID | CLOSED_BOTH), "adding a range")
    toPhysical[#toPhysical + 1] = negate
    toPhysical[#toPhysical + 1] = linear
  else
    local linear = self:create("createLinearComputation", self:id(base .. "linear"), scale, offset)
    check(linear:addRange(low, high, FLAG_VALID | CLOSED_BOTH), "adding a range")
    toPhysical[#toPhysical + 1] = linear
  end
  check(coding:addInternalToPhysicalComputations(table.unpack(toPhysical)), "adding a computation")
  return coding, base
end

function Session:signal(signal)
  local db, message = self.db, self.current
  local coding, base = self:coding(signal)
  local physicalDefault = (signal.startValue or 0) * signal.scale + signal.offset
  -- min = max = 0 means no limits in a DBC; open infinite limits let every
  -- value pass the library's limit check.
  local flags, minimum, maximum = 0, -math.huge, math.huge
  if not (signal.min == 0 and signal.max == 0) then
    flags, minimum, maximum = FLAG_VALID | CLOSED_BOTH, signal.min, signal.max
  end
  local node = self:create("createSignal", self:id("signal/" .. message.name .. "/" .. signal.name), flags,
    physicalDefault, minimum, maximum, coding)
  self:name(node, signal.plainName)
  self:describe(node, signal.comment)
  self:inverse(coding, signal, base, physicalDefault)
  self.signalCount = self.signalCount + 1
  return node
end

function Session:instance(signal, node, pdu, order, position)
  local instance = self:create("createSignalInstance", self:id("instance/" .. self.current.name .. "/" .. signal.name),
    order, position, NO_UPDATE_BIT, node, pdu)
  self:name(instance, signal.plainName)
end

local function byteOrder(signal)
  return signal.bigendian and BYTEORDER_BIG or BYTEORDER_LITTLE
end

function Session:plainPdu(frame)
  local db, message = self.db, self.current
  local pdu = self:create("createSignalPDU", self:id("PDU/" .. message.name), message.length * 8)
  self:name(pdu, message.plainName)
  for _, signal in ipairs(message.signals) do
    self:instance(signal, self:signal(signal), pdu, byteOrder(signal), signal.startbit)
  end
  return pdu
end

-- One part of a multiplexed PDU: a segment per signal, and the part's PDU
-- with the signals one after the other.
function Session:part(mpdu, code, label, signals)
  local db, message = self.db, self.current
  local part = self:create("createMultiplexedPart", self:id("part/" .. message.name .. "/" .. label), code, mpdu)
  local bits = 0
  for _, signal in ipairs(signals) do
    check(part:addSegment(byteOrder(signal), signal.startbit, signal.bitlen), "adding a segment")
    bits = bits + signal.bitlen
  end
  local pdu = self:create("createSignalPDU", self:id("PDU/" .. message.name .. "/" .. label), bits, part)
  self:name(pdu, message.plainName)
  local position = 0
  for _, signal in ipairs(signals) do
    self:instance(signal, self:signal(signal), pdu, BYTEORDER_LITTLE, position)
    position = position + signal.bitlen
  end
  return part
end

function Session:multiplexedPdu()
  local db, message = self.db, self.current
  local switch = message.switch
  local mpdu = self:create("createMultiplexedPDU", self:id("PDU/" .. message.name), message.length * 8,
    byteOrder(switch), switch.startbit, switch.bitlen, 0)
  self:name(mpdu, message.plainName)

  local static, byCode, codes = {}, {}, {}
  for _, signal in ipairs(message.signals) do
    if signal.mode == "m" then
      local code = signal.modevalue
      if not byCode[code] then
        byCode[code] = {}
        codes[#codes + 1] = code
      end
      table.insert(byCode[code], signal)
    else
      static[#static + 1] = signal
    end
  end
  check(mpdu:setStaticPart(self:part(mpdu, STATIC_PART_CODE, "static", static)), "setting the static part")
  table.sort(codes)
  for _, code in ipairs(codes) do
    if code >= 2^switch.bitlen then
      self.warn(string.format("signals of message %s with switch value %d can never be selected by the %d-bit switch %s",
        message.name, code, switch.bitlen, switch.name))
    end
    check(mpdu:addDynamicParts(self:part(mpdu, code, tostring(code), byCode[code])), "adding a dynamic part")
  end
  return mpdu
end

function Session:frame(message)
  local db = self.db
  self.current = message
  local frame = self:create("createFrame", self:id("frame/" .. message.name), message.length)
  self:name(frame, message.plainName)
  self:describe(frame, message.comment)

  local flags = (message.extended and CANEXTENDED or 0) | (message.fd and CANFD_FRAME or 0) |
                (message.fastData and CANFD_FASTDATA or 0)
  local sender = self.ecus[message.sender]
  local triggering = self:create("createIdentifierBasedTriggering", self:id("triggering/" .. message.name),
    message.identifier, flags, frame, sender, self.channel)
  self:name(triggering, message.plainName)

  local pdu = message.switch and self:multiplexedPdu() or self:plainPdu(frame)
  self:create("createPDUInstance", self:id("PDUInstance/" .. message.name), BYTEORDER_LITTLE, 0, NO_UPDATE_BIT, pdu, frame)

  if message.cycleTime then
    local pduTriggering = self:create("createPDUTriggering", self:id("PDUTriggering/" .. message.name), pdu, self.channel)
    self:create("createCyclicTiming", message.cycleTime, pduTriggering)
  end
  self.frameCount = self.frameCount + 1
end

-- The cluster and channel to import into: the node given, or new ones.
function Session:target(node, plainName, comment)
  local db = self.db
  if node == nil then
    local cluster = self:create("createCluster", self:id("cluster"), CLUSTERTYPE_CAN)
    self:name(cluster, plainName)
    self:describe(cluster, comment)
    self.channel = self:create("createChannel", self:id("channel"), cluster)
    self:name(self.channel, plainName)
    return
  end
  local cluster
  if node.tag == "Channel" then
    self.channel = node
    cluster = node.group
  elseif node.tag == "Cluster" then
    cluster = node
    for child in node.children do
      if child.tag == "Channel" then self.channel = child; break end
    end
  else
    error(string.format("a DBC file is imported into a cluster or a channel, not into a %s", node.tag), 0)
  end
  if cluster and cluster.tag == "Cluster" and cluster.clusterType ~= CLUSTERTYPE_CAN then
    error(string.format("cluster %s is no CAN cluster", cluster.eid or "?"), 0)
  end
  if not self.channel then
    self.channel = self:create("createChannel", self:id("channel"), cluster)
    self:name(self.channel, plainName)
  end
  if comment and comment ~= "" then
    self.warn("the comment on the whole network is not imported: the file goes into an existing cluster")
  end
end

local function baseName(path)
  return ((path:match("([^/\\]+)$") or path):gsub("%.[^.]*$", ""))
end

-- Parses the file; the parser's message (with line and column) or the
-- reason it couldn't be opened ends the import before anything changes.
function M.parse(Q9Db, path)
  local tree, problem = Q9Db.importDBC(path)
  if tree then return tree end
  if type(problem) == "number" then
    error(string.format("%s: the file can't be read (status %s)", path, hex(problem)), 0)
  end
  error(string.format("%s: %s", path, problem), 0)
end

-- The database id that a file names: its DBName attribute, else nil.
function M.databaseId(Q9Db, path)
  local ok, tree = pcall(M.parse, Q9Db, path)
  if not ok then return nil end
  return dbcModel.read(tree, function() end).dbName
end

function M.import(Q9Db, db, node, path, options, report)
  local function warn(text)
    if report then report(M.REPORT_WARNING, 0, text) end
  end
  local tree = M.parse(Q9Db, path)
  local model = dbcModel.read(tree, warn)
  local plainName = model.dbName or baseName(path)
  local session = setmetatable({
    db = db, prefix = freePrefix(db, options.prefix or plainName), language = options.language or 0,
    taken = {}, units = {}, ecus = {}, warn = warn, frameCount = 0, signalCount = 0,
  }, Session)

  session:target(node, plainName, model.comment)
  for _, ecu in ipairs(model.ecus) do
    local group = session:create("createECU", session:id("ECU/" .. ecu.name))
    session:name(group, ecu.plainName)
    session:describe(group, ecu.comment)
    session.ecus[ecu.name] = group
  end
  for _, message in ipairs(model.messages) do
    if not message.skip then session:frame(message) end
  end
  if report then
    report(M.REPORT_INFO, 0, string.format("%s: %d ECUs, %d frames, %d signals imported under the id prefix %s",
      baseName(path), #model.ecus, session.frameCount, session.signalCount, session.prefix))
  end
  return 0
end

-- What a file holds, without touching the database.
function M.info(Q9Db, path, report)
  local function say(kind, what, text)
    if report then report(kind, what, text) end
  end
  local tree = M.parse(Q9Db, path)
  local model = dbcModel.read(tree, function(text) say(M.REPORT_WARNING, 0, text) end)
  local signals = 0
  for _, ecu in ipairs(model.ecus) do say(M.REPORT_INFO, 1, ecu.plainName) end
  for _, message in ipairs(model.messages) do
    if not message.skip then
      say(M.REPORT_INFO, 2, string.format("%s: identifier 0x%X%s%s, %d bytes, sent by %s", message.plainName,
        message.identifier, message.extended and " (extended)" or "", message.fd and ", CAN FD" or "",
        message.length, message.sender))
      for _, signal in ipairs(message.signals) do
        say(M.REPORT_INFO, 3, message.plainName .. "." .. signal.plainName)
        signals = signals + 1
      end
    end
  end
  local frames = 0
  for _, message in ipairs(model.messages) do
    if not message.skip then frames = frames + 1 end
  end
  say(M.REPORT_INFO, 0, string.format("%s: %d ECUs, %d frames, %d signals", model.dbName or baseName(path),
    #model.ecus, frames, signals))
  return 0
end

return M

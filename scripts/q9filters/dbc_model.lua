-- Reads the tree that importDBC gives into a plain model of the network:
-- nodes, messages with their signals, and everything that the rest of the
-- file says about them (comments, attributes, value tables, value types),
-- resolved to the message or signal it belongs to. Import and info both
-- start from this model, so they agree on what a file holds and on what
-- can't be mapped.
--
-- The tree keeps DBC numbers as floats and attribute values as texts; here
-- they become integers and typed values. Problems are passed to warn(text)
-- and the offending item is left out (signals) or the reference dropped.

local M = {}

local EXTENDED_BIT = 0x80000000
local MAX_EXTENDED = 0x1FFFFFFF
local MAX_STANDARD = 0x7FF

-- CAN FD sizes by DLC code; a DBC normally gives the byte count, but some
-- writers put the code (9..15) there.
local FD_SIZE_OF_CODE = {[9] = 12, [10] = 16, [11] = 20, [12] = 24, [13] = 32, [14] = 48, [15] = 64}
local FD_SIZES = {[12] = true, [16] = true, [20] = true, [24] = true, [32] = true, [48] = true, [64] = true}

local function toInteger(value)
  return math.tointeger(value) or math.floor(value)
end

-- The key under which statements refer to a message: its number as written.
local function messageKey(number)
  return toInteger(number)
end

-- Attribute values arrive as texts. An enumeration may be given by index
-- (the usual form) or by its text.
local function attributeValue(definition, text)
  if definition and definition.typ == "ENUM" then
    local index = math.tointeger(tonumber(text))
    if index and definition.values and definition.values[index + 1] then
      return definition.values[index + 1]
    end
    return text
  end
  if definition and (definition.typ == "INT" or definition.typ == "HEX" or definition.typ == "FLOAT") then
    return tonumber(text)
  end
  return tonumber(text) or text
end

-- Walk index of a big-endian bit: bit 7 of byte 0 is 0, bit 0 of byte 0 is 7,
-- bit 7 of byte 1 is 8. A big-endian field runs along increasing walk indexes.
local function walkIndex(bit)
  return bit ~ 7
end

-- Whether a field lies inside a payload of `bytes` bytes.
local function fitsFrame(startbit, bitlen, bigendian, bytes)
  local limit = bytes * 8
  if bigendian then
    return startbit < limit and walkIndex(startbit) + bitlen - 1 < limit
  end
  return startbit + bitlen <= limit
end

local function describeSignal(message, signal)
  return string.format("signal %s of message %s", signal.name, message.name)
end

-- Builds the model. `warn(text)` receives what can't be mapped.
function M.read(tree, warn)
  local model = {ecus = {}, messages = {}}
  local ecuByName, messageByKey = {}, {}
  local definitions, defaults = {}, {}
  local pending = {comments = {}, values = {}, attrs = {}, valtypes = {}}

  -- First pass: the statements that define things, in file order.
  for _, entry in ipairs(tree) do
    local tag = entry.tag
    if tag == "ecu" then
      if ecuByName[entry.id] then
        warn(string.format("node %s is listed twice; the second entry is ignored", entry.id))
      else
        local ecu = {name = entry.id}
        ecuByName[entry.id] = ecu
        model.ecus[#model.ecus + 1] = ecu
      end
    elseif tag == "frame" then
      local message = {
        key = messageKey(entry.frameid), name = entry.id, dlc = toInteger(entry.dlc),
        sender = entry.sender, signals = {}, signalByName = {},
      }
      if messageByKey[message.key] then
        warn(string.format("message %s repeats the identifier of message %s; comments and attributes go to the first",
          message.name, messageByKey[message.key].name))
      else
        messageByKey[message.key] = message
      end
      model.messages[#model.messages + 1] = message
      for _, s in ipairs(entry) do
        local signal = {
          name = s.id, mode = s.mode, modevalue = s.modevalue and toInteger(s.modevalue),
          startbit = toInteger(s.startbit), bitlen = toInteger(s.bitlen),
          bigendian = s.bigendian == true, signed = s.signed == true,
          scale = s.scale, offset = s.offset, min = s.min, max = s.max,
          unit = s.unit, receivers = s.receivers or {}, valtype = "integer",
        }
        if message.signalByName[signal.name] then
          warn(string.format("%s is defined twice; the second definition is ignored", describeSignal(message, signal)))
        else
          message.signalByName[signal.name] = signal
          message.signals[#message.signals + 1] = signal
        end
      end
    elseif tag == "attrdef" then
      definitions[entry.id] = entry
    elseif tag == "attrdefault" then
      defaults[entry.id] = entry.value
    elseif tag == "comment" then
      pending.comments[#pending.comments + 1] = entry
    elseif tag == "value" then
      pending.values[#pending.values + 1] = entry
    elseif tag == "attr" then
      pending.attrs[#pending.attrs + 1] = entry
    elseif tag == "sigvaltype" then
      pending.valtypes[#pending.valtypes + 1] = entry
    end
  end

  -- References to messages and signals, resolved with a message of their own.
  local function findMessage(number, what)
    local message = messageByKey[messageKey(number)]
    if not message then
      warn(string.format("%s refers to message %s, which the file doesn't define", what, string.format("%.0f", number)))
    end
    return message
  end
  local function findSignal(number, name, what)
    local message = findMessage(number, what)
    if not message then return nil end
    local signal = message.signalByName[name]
    if not signal then
      warn(string.format("%s refers to signal %s of message %s, which the file doesn't define", what, name, message.name))
    end
    return signal, message
  end

  for _, c in ipairs(pending.comments) do
    if c.ntyp == nil then
      model.comment = c.text
    elseif c.ntyp == "BO_" then
      local message = findMessage(c.frame, "a comment")
      if message then message.comment = c.text end
    elseif c.ntyp == "SG_" then
      local signal = findSignal(c.frame, c.signal, "a comment")
      if signal then signal.comment = c.text end
    elseif c.ntyp == "BU_" then
      local ecu = ecuByName[c.refid]
      if ecu then
        ecu.comment = c.text
      else
        warn(string.format("a comment refers to node %s, which the file doesn't list", c.refid))
      end
    else
      warn(string.format("the comment on environment variable %s is not imported: environment variables have no place in the database", c.refid))
    end
  end

  for _, v in ipairs(pending.values) do
    if v.envvar then
      warn(string.format("the value descriptions of environment variable %s are not imported: environment variables have no place in the database", v.envvar))
    else
      local signal = findSignal(v.frame, v.signal, "a value description")
      if signal then signal.values = v.values or {} end
    end
  end

  for _, t in ipairs(pending.valtypes) do
    local signal, message = findSignal(t.frame, t.signal, "a signal value type")
    if signal then
      local kind = toInteger(t.sigvaltype)
      if kind == 1 then
        signal.valtype = "float"
      elseif kind == 2 then
        signal.valtype = "double"
      elseif kind ~= 0 then
        warn(string.format("%s has value type %d, which is unknown; it is read as an integer", describeSignal(message, signal), kind))
      end
    end
  end

  -- Attributes: the ones that mean something to the database are applied;
  -- the others are counted and reported once per name.
  local ignored, ignoredOrder = {}, {}
  local function note(name)
    if not ignored[name] then
      ignored[name] = 0
      ignoredOrder[#ignoredOrder + 1] = name
    end
    ignored[name] = ignored[name] + 1
  end
  local function store(object, name, text)
    object.attributes = object.attributes or {}
    object.attributes[name] = attributeValue(definitions[name], text)
  end
  for _, a in ipairs(pending.attrs) do
    local known = M.KNOWN_ATTRIBUTES[a.id]
    if not known then
      note(a.id)
    elseif a.ntyp == nil then
      store(model, a.id, a.value)
    elseif a.ntyp == "BO_" then
      local message = findMessage(a.frame, "attribute " .. a.id)
      if message then store(message, a.id, a.value) end
    elseif a.ntyp == "SG_" then
      local signal = findSignal(a.frame, a.signal, "attribute " .. a.id)
      if signal then store(signal, a.id, a.value) end
    elseif a.ntyp == "BU_" then
      local ecu = ecuByName[a.refid]
      if ecu then store(ecu, a.id, a.value) end
    else
      note(a.id)
    end
  end
  for _, name in ipairs(ignoredOrder) do
    local count = ignored[name]
    warn(string.format("attribute %s is not imported (%d %s)", name, count, count == 1 and "value" or "values"))
  end

  -- What an object's attribute is, explicit or by the file's default.
  local function attribute(object, name)
    if object.attributes and object.attributes[name] ~= nil then return object.attributes[name] end
    if defaults[name] ~= nil then return attributeValue(definitions[name], defaults[name]) end
    return nil
  end

  model.dbName = attribute(model, "DBName")
  if type(model.dbName) ~= "string" or model.dbName == "" then model.dbName = nil end

  for _, ecu in ipairs(model.ecus) do
    local long = attribute(ecu, "SystemNodeLongSymbol")
    ecu.plainName = type(long) == "string" and long ~= "" and long or ecu.name
  end

  for _, message in ipairs(model.messages) do
    M.resolveMessage(message, attribute, warn)
  end
  return model
end

-- Attributes the import maps; every other one is reported as not imported.
M.KNOWN_ATTRIBUTES = {
  DBName = true, GenMsgCycleTime = true, VFrameFormat = true, CANFD_BRS = true,
  GenSigStartValue = true, SystemSignalLongSymbol = true, SystemMessageLongSymbol = true,
  SystemNodeLongSymbol = true,
}

-- Frame format, size, cycle time and signal checks of one message.
function M.resolveMessage(message, attribute, warn)
  local raw = message.key
  local id = raw & ~EXTENDED_BIT & 0xFFFFFFFF
  local format = attribute(message, "VFrameFormat")
  format = type(format) == "string" and format or ""
  message.extended = raw & EXTENDED_BIT ~= 0 or format:find("^Extended") ~= nil or format == "J1939PG"
  message.fd = format:find("FD", 1, true) ~= nil
  message.fastData = message.fd and tostring(attribute(message, "CANFD_BRS") or "1") == "1"
  message.identifier = id
  if id > MAX_EXTENDED then
    message.skip = string.format("message %s has identifier 0x%X, which no CAN frame can carry; it is not imported",
      message.name, id)
    warn(message.skip)
    return
  end
  if not message.extended and id > MAX_STANDARD then
    warn(string.format("message %s has identifier 0x%X without the extended mark; it is imported as an extended frame",
      message.name, id))
    message.extended = true
  end

  local bytes = message.dlc
  if message.fd and FD_SIZE_OF_CODE[bytes] and not FD_SIZES[bytes] then
    warn(string.format("message %s gives the CAN FD length code %d; it is imported with %d bytes",
      message.name, bytes, FD_SIZE_OF_CODE[bytes]))
    bytes = FD_SIZE_OF_CODE[bytes]
  end
  message.length = bytes

  local long = attribute(message, "SystemMessageLongSymbol")
  message.plainName = type(long) == "string" and long ~= "" and long or message.name
  local cycle = attribute(message, "GenMsgCycleTime")
  message.cycleTime = type(cycle) == "number" and cycle > 0 and toInteger(cycle) or nil

  local kept, switches = {}, {}
  for _, signal in ipairs(message.signals) do
    local problem
    if signal.bitlen < 1 or signal.bitlen > 64 then
      problem = string.format("has %d bits; only 1 to 64 can be decoded", signal.bitlen)
    elseif signal.valtype == "float" and signal.bitlen ~= 32 then
      problem = string.format("is a float of %d bits; a float has 32", signal.bitlen)
    elseif signal.valtype == "double" and signal.bitlen ~= 64 then
      problem = string.format("is a double of %d bits; a double has 64", signal.bitlen)
    elseif not fitsFrame(signal.startbit, signal.bitlen, signal.bigendian, bytes) then
      problem = string.format("sticks out of its %d-byte frame", bytes)
    elseif signal.mode == "M" and signal.valtype ~= "integer" then
      problem = "is a multiplexer switch of floating-point type"
    end
    if problem then
      warn(string.format("%s %s; it is not imported", describeSignal(message, signal), problem))
    else
      local long = attribute(signal, "SystemSignalLongSymbol")
      signal.plainName = type(long) == "string" and long ~= "" and long or signal.name
      local start = attribute(signal, "GenSigStartValue")
      signal.startValue = type(start) == "number" and start or nil
      if signal.mode == "M" then switches[#switches + 1] = signal end
      kept[#kept + 1] = signal
    end
  end
  message.signals = kept

  -- One switch per message: a DBC with several (extended multiplexing)
  -- keeps the first, and the signals that depend on the others are read
  -- as if the first selected them.
  if #switches > 1 then
    warn(string.format("message %s has %d multiplexer switches (extended multiplexing); only %s is used as the switch",
      message.name, #switches, switches[1].name))
    for i = 2, #switches do switches[i].mode = nil end
  end
  message.switch = switches[1]
  if not message.switch then
    for _, signal in ipairs(kept) do
      if signal.mode == "m" then
        warn(string.format("%s is multiplexed, but message %s has no multiplexer switch; it is imported as a plain signal",
          describeSignal(message, signal), message.name))
        signal.mode = nil
      end
    end
  end
end

return M

-- Writes the frames of one CAN channel as a DBC file.
--
-- The walk goes channel -> identifier triggerings -> frame -> PDU instances
-- -> PDUs -> signal instances, and turns the computations of each coding
-- back into the DBC's factor, offset and value table. Signals of the parts
-- of a multiplexed PDU find their place in the frame through the part's
-- segments. Names that can't stand in a DBC file go along as long-symbol
-- attributes. What DBC can't say is passed to warn(text) and left out.

local text = require "q9filters.dbc_text"

local M = {}

local CLUSTERTYPE_CAN = 1
local BYTEORDER_LITTLE, BYTEORDER_BIG = 0, 1
local FRAMETYPE_MASK, CANEXTENDED, CANSTD_OR_EXT = 3, 1, 2
local CANFD_FRAME, CANFD_FASTDATA = 4, 8
local ENCODING_DIRECT, ENCODING_1COMPL, ENCODING_2COMPL, ENCODING_IEEE = 1, 2, 3, 4
local ENCODING_SIGNED, ENCODING_TYPEMASK = 0x10000000, 0xFFFF
local EXTENDED_BIT = 0x80000000
-- DBC needs a node name where a frame has no sender or a signal no receiver.
local NO_NODE = "No_Node"

-- VFrameFormat as most DBC files define it; the import reads it by text.
local FRAME_FORMATS = {"StandardCAN", "ExtendedCAN", "reserved", "reserved", "reserved", "reserved", "reserved",
  "reserved", "reserved", "reserved", "reserved", "reserved", "reserved", "reserved", "StandardCAN_FD",
  "ExtendedCAN_FD"}
local FORMAT_EXTENDED, FORMAT_STANDARD_FD, FORMAT_EXTENDED_FD = 1, 14, 15

local function integer(value)
  return math.tointeger(value) or math.floor(value)
end

-- The plain name of an element: its short name, else the last part of its id.
local function plainName(node)
  local short = node.shortname
  if short and short ~= "" then return short end
  local eid = node.eid or ""
  return eid:match("([^/]*)$")
end

-- The DBC name of an element, made unique by `namer`: its short name when
-- that is an identifier, else the last part of its id when that is one (a
-- DBC import keeps the file's name there), else the short name made into
-- one. A short name the DBC name doesn't carry comes second, for a long
-- symbol.
local function dbcName(node, namer)
  local word = plainName(node)
  if not text.isIdentifier(word) then
    local tail = (node.eid or ""):match("([^/]*)$")
    if text.isIdentifier(tail) then word = tail end
  end
  local name = namer(word)
  local short = node.shortname
  if short and short ~= "" and short ~= name then return name, short end
  return name
end

local function list(iterator)
  local items = {}
  if iterator then
    for item in iterator do items[#items + 1] = item end
  end
  return items
end

-- The channel to write: the node given (a channel or a cluster, whose first
-- channel counts), else the first channel of the first CAN cluster.
local function pickChannel(db, node, warn)
  local cluster
  if node == nil then
    for candidate in db:enumClusters() or function() end do
      if candidate.clusterType == CLUSTERTYPE_CAN then cluster = candidate; break end
    end
    if not cluster then error("the database holds no CAN cluster to export", 0) end
  elseif node.tag == "Cluster" then
    cluster = node
  elseif node.tag == "Channel" then
    local group = node.group
    return node, group and group.tag == "Cluster" and group or nil
  else
    error(string.format("a DBC file is written from a cluster or a channel, not from a %s", node.tag), 0)
  end
  if cluster.clusterType ~= CLUSTERTYPE_CAN then
    error(string.format("cluster %s is no CAN cluster", plainName(cluster)), 0)
  end
  local channels = {}
  for child in cluster.children do
    if child.tag == "Channel" then channels[#channels + 1] = child end
  end
  if #channels == 0 then error(string.format("cluster %s has no channel", plainName(cluster)), 0) end
  if #channels > 1 then
    warn(string.format("cluster %s has %d channels; only the first is written", plainName(cluster), #channels))
  end
  return channels[1], cluster
end

-- Where a bit field of a part's image lies in the frame: the part's segments
-- laid one after the other make the image, little-endian from bit 0.
local function placeInFrame(segments, position, length)
  local start = 0
  for _, segment in ipairs(segments) do
    local bitpos, bitlen = integer(segment.bitpos), integer(segment.bitlen)
    local offset = position - start
    if offset >= 0 and offset + length <= bitlen then
      if integer(segment.byteOrder) == BYTEORDER_LITTLE then return BYTEORDER_LITTLE, bitpos + offset end
      -- Inside a big-endian segment: image bit i is the segment's bit of
      -- weight 2^i, so the field's top bit lies that far from the segment's.
      return BYTEORDER_BIG, ((bitpos ~ 7) + bitlen - offset - length) ~ 7
    end
    start = start + bitlen
  end
  return nil
end

local Writer = {}
Writer.__index = Writer

function Writer:lookup(slot)
  if slot == nil then return "" end
  return self.db:stringLookup(slot, self.language, self.language) or ""
end

function Writer:description(node)
  return node:getDescription(self.language, self.language) or ""
end

-- Factor, offset and value table of a coding, from its computations in
-- their order: linear ones compose, and the keys of text ones are taken
-- back to raw values through the linear ones before them.
function Writer:scaling(coding, where)
  local scale, offset, values = 1, 0, {}
  for compu in coding.internalToPhysicalCompus do
    local tag = compu.tag
    if tag == "LinearComputation" then
      scale, offset = scale * compu.scale, offset * compu.scale + compu.offset
    elseif tag == "MappedTextComputation" then
      local label = self:lookup(compu.textvalue)
      for range in compu.ranges do
        if range.lowerLimit == range.upperLimit and range.flags & 3 ~= 0 then
          values[#values + 1] = {raw = (range.lowerLimit - offset) / scale, text = label}
        else
          self.warn(string.format("%s: a text over the range %s to %s can't be written; DBC texts stand for single values",
            where, text.number(range.lowerLimit), text.number(range.upperLimit)))
        end
      end
    elseif tag ~= "IdentityComputation" then
      self.warn(string.format("%s: a %s can't be written to a DBC file; it is left out", where, tag))
    end
  end
  return scale, offset, values
end

-- One signal as the DBC sees it, or nil when DBC can't hold it.
function Writer:signal(node, byteOrder, startbit, message)
  local where = string.format("signal %s of frame %s", plainName(node), message.name)
  local coding = node.coding
  if not coding then
    self.warn(where .. " has no coding; it is left out")
    return nil
  end
  local bitlen = integer(coding.bitlen)
  local encoding = integer(coding.encoding)
  local kind = encoding & ENCODING_TYPEMASK
  local name, longName = dbcName(node, message.signalName)
  local signal = {name = name, longName = longName, bitlen = bitlen, startbit = startbit,
                  bigendian = byteOrder == BYTEORDER_BIG, node = node}
  if kind == ENCODING_IEEE then
    if bitlen ~= 32 and bitlen ~= 64 then
      self.warn(string.format("%s is a float of %d bits; it is left out", where, bitlen))
      return nil
    end
    signal.valtype, signal.signed = bitlen == 32 and 1 or 2, true
  elseif kind == ENCODING_2COMPL then
    signal.signed = true
  elseif kind == ENCODING_DIRECT and encoding & ENCODING_SIGNED == 0 then
    signal.signed = false
  elseif kind == ENCODING_DIRECT or kind == ENCODING_1COMPL then
    self.warn(where .. " is coded as sign and magnitude or one's complement, which DBC lacks; it is written as two's complement")
    signal.signed = true
  else
    self.warn(string.format("%s has an encoding (%d) that DBC lacks; it is left out", where, kind))
    return nil
  end

  signal.scale, signal.offset, signal.values = self:scaling(coding, where)
  local flags = integer(node.flags)
  local minimum, maximum = node.minValue, node.maxValue
  if flags & 3 ~= 0 and minimum > -math.huge and maximum < math.huge then
    signal.min, signal.max = minimum, maximum
  else
    signal.min, signal.max = 0, 0
  end
  local unit = coding.unit
  signal.unit = unit and unit:getDisplayName(self.language, self.language) or ""
  signal.comment = self:description(node)
  if signal.scale ~= 0 then
    local raw = (node.defaultValue - signal.offset) / signal.scale
    if not signal.valtype then raw = math.floor(raw + 0.5) end
    if raw ~= 0 then signal.startValue = raw end
  end
  return signal
end

-- The cycle time of a PDU, from the CyclicTiming of one of its triggerings.
local function cycleTime(pdu)
  for triggering in pdu.triggerings do
    for timing in triggering.children do
      if timing.tag == "CyclicTiming" then return timing.cycleTime:tonumber() end
    end
  end
  return nil
end

function Writer:plainPdu(pdu, offset, message)
  for instance in pdu.signalInstances do
    local node = instance.signal
    if node then
      local signal = self:signal(node, integer(instance.byteOrder), offset + integer(instance.bitpos), message)
      if signal then message.signals[#message.signals + 1] = signal end
    end
  end
end

-- The signals of one part of a multiplexed PDU, with the mode word `mode`.
function Writer:partSignals(part, offset, message, mode)
  local pdu = part.reference
  if not pdu then return {} end
  if pdu.tag ~= "SignalPDU" then
    self.warn(string.format("frame %s nests a multiplexed PDU in a part; its signals are left out", message.name))
    return {}
  end
  local segments = list(part.segments)
  local found = {}
  for instance in pdu.signalInstances do
    local node = instance.signal
    local length = node and node.coding and integer(node.coding.bitlen)
    if length then
      local order, position
      if integer(instance.byteOrder) == BYTEORDER_LITTLE then
        if #segments == 0 then
          order, position = BYTEORDER_LITTLE, integer(instance.bitpos)
        else
          order, position = placeInFrame(segments, integer(instance.bitpos), length)
        end
      end
      if order == nil then
        self.warn(string.format("signal %s of frame %s doesn't lie in one segment of its part; it is left out",
          plainName(node), message.name))
      else
        local signal = self:signal(node, order, offset + position, message)
        if signal then
          signal.mode = mode
          found[#found + 1] = signal
        end
      end
    end
  end
  return found
end

function Writer:multiplexedPdu(pdu, offset, message)
  if message.multiplexed then
    self.warn(string.format("frame %s carries more than one multiplexed PDU; only the first is written", message.name))
    return
  end
  message.multiplexed = true
  local switchOrder = integer(pdu.switchByteOrder)
  local switchStart = offset + integer(pdu.switchPosition)
  local switchLength = integer(pdu.switchLength)
  if integer(pdu.switchPosition) < 0 or switchLength == 0 then
    self.warn(string.format("frame %s has its switch outside the payload; its multiplexed signals are left out", message.name))
    return
  end

  local static = pdu.staticPart and self:partSignals(pdu.staticPart, offset, message, nil) or {}
  local switch
  for _, signal in ipairs(static) do
    if signal.startbit == switchStart and signal.bitlen == switchLength and
       signal.bigendian == (switchOrder == BYTEORDER_BIG) and not signal.valtype then
      switch = signal
      break
    end
  end
  if not switch then
    -- DBC names its switch as a signal; a switch without one gets a plain
    -- signal of its own.
    switch = {name = message.signalName(message.name .. "_switch"), bitlen = switchLength, startbit = switchStart,
              bigendian = switchOrder == BYTEORDER_BIG, signed = false, scale = 1, offset = 0, min = 0, max = 0,
              unit = "", values = {}, comment = ""}
    table.insert(static, 1, switch)
  end
  switch.mode = "M"
  for _, signal in ipairs(static) do message.signals[#message.signals + 1] = signal end
  for part in pdu.dynamicParts do
    local code = integer(part.switchCode)
    for _, signal in ipairs(self:partSignals(part, offset, message, "m" .. code)) do
      message.signals[#message.signals + 1] = signal
    end
  end
  if pdu.elsePart then
    self.warn(string.format("frame %s has a part for all other switch values, which DBC lacks; it is left out", message.name))
  end
end

function Writer:message(triggering)
  local frame = triggering.frame
  if not frame then return nil end
  local flags = integer(triggering.flags)
  local identifier = integer(triggering.identifier) & 0xFFFFFFFF
  local frameType = flags & FRAMETYPE_MASK
  local extended = frameType == CANEXTENDED or (frameType == CANSTD_OR_EXT and identifier > 0x7FF)
  local ecu = triggering.sourceEcu
  local name, longName = dbcName(frame, self.messageName)
  local message = {
    name = name, longName = longName, key = identifier | (extended and EXTENDED_BIT or 0),
    extended = extended, fd = flags & CANFD_FRAME ~= 0, fastData = flags & CANFD_FASTDATA ~= 0,
    length = integer(frame.length), sender = ecu and self:ecuName(ecu) or NO_NODE,
    comment = self:description(frame), signals = {}, signalName = text.namer(),
  }
  for instance in frame.PDUInstances do
    local pdu = instance.reference
    local offset = integer(instance.bitpos)
    if pdu and pdu.tag == "SignalPDU" then
      self:plainPdu(pdu, offset, message)
    elseif pdu and pdu.tag == "MultiplexedPDU" then
      self:multiplexedPdu(pdu, offset, message)
    end
    if pdu and not message.cycleTime then message.cycleTime = cycleTime(pdu) end
  end
  return message
end

-- ECUs get their DBC names once, in the order they are met.
function Writer:ecuName(ecu)
  local eid = ecu.eid or tostring(ecu)
  local entry = self.ecuByEid[eid]
  if not entry then
    local name, longName = dbcName(ecu, self.ecuNamer)
    entry = {name = name, longName = longName, comment = self:description(ecu)}
    self.ecuByEid[eid] = entry
    self.ecus[#self.ecus + 1] = entry
  end
  return entry.name
end

function Writer:collect(channel, cluster)
  -- ECUs that this cluster's import made come first, senders or not.
  local prefix = cluster and cluster.eid and cluster.eid:match("^(.*)/cluster$")
  if prefix then
    for ecu in self.db:enumECUs() or function() end do
      if ecu.eid and ecu.eid:sub(1, #prefix + 5) == prefix .. "/ECU/" then self:ecuName(ecu) end
    end
  end
  for triggering in channel.frameTriggerings do
    if triggering.tag == "IdentifierBasedTriggering" then
      local message = self:message(triggering)
      if message then self.messages[#self.messages + 1] = message end
    else
      self.warn(string.format("triggering %s is no identifier triggering, which DBC lacks; it is left out",
        plainName(triggering)))
    end
  end
end

function Writer:lines(options)
  local out, losses = {}, {characters = 0, quotes = 0}
  local function line(...) out[#out + 1] = table.concat({...}) end
  local function quote(s) return text.quote(s, losses) end
  local num = text.number

  line("VERSION ", quote(options.version or ""))
  line("")
  line("NS_ :")
  for word in ([[NS_DESC_ CM_ BA_DEF_ BA_ VAL_ CAT_DEF_ CAT_ FILTER BA_DEF_DEF_ EV_DATA_ ENVVAR_DATA_
      SGTYPE_ SGTYPE_VAL_ BA_DEF_SGTYPE_ BA_SGTYPE_ SIG_TYPE_REF_ VAL_TABLE_ SIG_GROUP_ SIG_VALTYPE_
      SIGTYPE_VALTYPE_ BO_TX_BU_ BA_DEF_REL_ BA_REL_ BA_DEF_DEF_REL_ BU_SG_REL_ BU_EV_REL_ BU_BO_REL_
      SG_MUL_VAL_]]):gmatch("%S+") do
    line("\t", word)
  end
  line("")
  line("BS_:")
  line("")
  local names = {}
  for _, ecu in ipairs(self.ecus) do names[#names + 1] = ecu.name end
  line("BU_: ", table.concat(names, " "))
  line("")

  for _, message in ipairs(self.messages) do
    line("BO_ ", string.format("%d", message.key), " ", message.name, ": ", string.format("%d", message.length), " ",
      message.sender)
    for _, s in ipairs(message.signals) do
      local mode = s.mode and (" " .. s.mode) or ""
      line(" SG_ ", s.name, mode, " : ", string.format("%d|%d", s.startbit, s.bitlen), "@", s.bigendian and "0" or "1",
        s.signed and "-" or "+", " (", num(s.scale), ",", num(s.offset), ") [", num(s.min), "|", num(s.max), "] ",
        quote(s.unit), " ", NO_NODE)
    end
    line("")
  end

  if self.comment ~= "" then line("CM_ ", quote(self.comment), ";") end
  for _, ecu in ipairs(self.ecus) do
    if ecu.comment ~= "" then line("CM_ BU_ ", ecu.name, " ", quote(ecu.comment), ";") end
  end
  for _, message in ipairs(self.messages) do
    if message.comment ~= "" then line("CM_ BO_ ", message.key, " ", quote(message.comment), ";") end
    for _, s in ipairs(message.signals) do
      if s.comment ~= "" then line("CM_ SG_ ", message.key, " ", s.name, " ", quote(s.comment), ";") end
    end
  end

  local formats = {}
  for _, f in ipairs(FRAME_FORMATS) do formats[#formats + 1] = quote(f) end
  line('BA_DEF_  "DBName" STRING ;')
  line('BA_DEF_ BO_  "GenMsgCycleTime" INT 0 65535;')
  line('BA_DEF_ BO_  "VFrameFormat" ENUM  ', table.concat(formats, ","), ";")
  line('BA_DEF_ BO_  "CANFD_BRS" ENUM  "0","1";')
  line('BA_DEF_ SG_  "GenSigStartValue" FLOAT -1.7E+308 1.7E+308;')
  line('BA_DEF_DEF_  "DBName" "";')
  line('BA_DEF_DEF_  "GenMsgCycleTime" 0;')
  line('BA_DEF_DEF_  "VFrameFormat" "StandardCAN";')
  line('BA_DEF_DEF_  "CANFD_BRS" "1";')
  line('BA_DEF_DEF_  "GenSigStartValue" 0;')
  -- Long symbols only where a name needs one, so that other files stay as
  -- they were.
  local longNodes, longMessages, longSignals = {}, {}, {}
  for _, ecu in ipairs(self.ecus) do
    if ecu.longName then longNodes[#longNodes + 1] = ecu end
  end
  for _, message in ipairs(self.messages) do
    if message.longName then longMessages[#longMessages + 1] = message end
    for _, s in ipairs(message.signals) do
      if s.longName then longSignals[#longSignals + 1] = {message = message, signal = s} end
    end
  end
  for _, kind in ipairs({{"BU_", "SystemNodeLongSymbol", longNodes}, {"BO_", "SystemMessageLongSymbol", longMessages},
                         {"SG_", "SystemSignalLongSymbol", longSignals}}) do
    if #kind[3] > 0 then
      line("BA_DEF_ ", kind[1], '  "', kind[2], '" STRING ;')
      line('BA_DEF_DEF_  "', kind[2], '" "";')
    end
  end
  line('BA_ "DBName" ', quote(self.dbName), ";")
  for _, ecu in ipairs(longNodes) do
    line('BA_ "SystemNodeLongSymbol" BU_ ', ecu.name, " ", quote(ecu.longName), ";")
  end
  for _, message in ipairs(longMessages) do
    line('BA_ "SystemMessageLongSymbol" BO_ ', message.key, " ", quote(message.longName), ";")
  end
  for _, entry in ipairs(longSignals) do
    line('BA_ "SystemSignalLongSymbol" SG_ ', entry.message.key, " ", entry.signal.name, " ",
      quote(entry.signal.longName), ";")
  end
  for _, message in ipairs(self.messages) do
    if message.cycleTime and message.cycleTime > 0 then
      line('BA_ "GenMsgCycleTime" BO_ ', message.key, " ", num(message.cycleTime), ";")
    end
    local format = message.fd and (message.extended and FORMAT_EXTENDED_FD or FORMAT_STANDARD_FD) or
                   (message.extended and FORMAT_EXTENDED or nil)
    if format then line('BA_ "VFrameFormat" BO_ ', message.key, " ", format, ";") end
    if message.fd and not message.fastData then line('BA_ "CANFD_BRS" BO_ ', message.key, " 0;") end
    for _, s in ipairs(message.signals) do
      if s.startValue then
        line('BA_ "GenSigStartValue" SG_ ', message.key, " ", s.name, " ", num(s.startValue), ";")
      end
    end
  end

  for _, message in ipairs(self.messages) do
    for _, s in ipairs(message.signals) do
      if #s.values > 0 then
        local pairs_ = {}
        table.sort(s.values, function(a, b) return a.raw < b.raw end)
        for _, v in ipairs(s.values) do
          -- The reader takes no negative keys; a signed raw value is
          -- written as its bit pattern, which the import reads back.
          local key = v.raw
          if key < 0 then key = key + 2^s.bitlen end
          pairs_[#pairs_ + 1] = num(key) .. " " .. quote(v.text)
        end
        line("VAL_ ", message.key, " ", s.name, " ", table.concat(pairs_, " "), " ;")
      end
    end
  end
  for _, message in ipairs(self.messages) do
    for _, s in ipairs(message.signals) do
      if s.valtype then line("SIG_VALTYPE_ ", message.key, " ", s.name, " : ", s.valtype, ";") end
    end
  end

  if losses.characters > 0 then
    self.warn(string.format("%d characters have no place in Windows-1252 and are written as '?'", losses.characters))
  end
  if losses.quotes > 0 then
    self.warn(string.format("%d quotation marks inside texts are written as apostrophes", losses.quotes))
  end
  line("")
  return table.concat(out, "\r\n")
end

function M.export(db, node, path, options, warn)
  local channel, cluster = pickChannel(db, node, warn)
  local writer = setmetatable({
    db = db, language = options.language or 0, warn = warn, messages = {}, ecus = {}, ecuByEid = {},
    messageName = text.namer(), ecuNamer = text.namer(),
  }, Writer)
  writer.comment = cluster and writer:description(cluster) or ""
  writer.dbName = cluster and plainName(cluster) or plainName(channel)
  writer:collect(channel, cluster)
  local content = writer:lines(options)
  local file, problem = io.open(path, "wb")
  if not file then error(string.format("%s: the file can't be written (%s)", path, problem), 0) end
  file:write(content)
  file:close()
  return 0
end

return M

-- Writes the frames of one CAN channel as a DBC file.
--
-- The walk goes channel -> identifier triggerings -> frame -> PDU instances
-- -> PDUs -> signal instances, and turns the computations of each coding
-- back into the DBC's factor, offset and value table. Signals of the parts
-- of a multiplexed PDU find their place in the frame through the part's
-- segments. Parts that nest multiplexed PDUs, or share signals, are written
-- as extended multiplexing (SG_MUL_VAL_). Names that can't stand in a DBC
-- file go along as long-symbol attributes. What DBC can't say is passed to
-- warn(text) and left out.

local text = require "q9filters.dbc_text"
local common = require "q9filters.export_common"
local plainName, list = common.plainName, common.list

local M = {}

local CLUSTERTYPE_CAN = 1
local BYTEORDER_LITTLE, BYTEORDER_BIG = 0, 1
local FRAMETYPE_MASK, CANEXTENDED, CANSTD_OR_EXT = 3, 1, 2
local CANFD_FRAME, CANFD_FASTDATA = 4, 8
local ENCODING_DIRECT, ENCODING_1COMPL, ENCODING_2COMPL, ENCODING_IEEE = 1, 2, 3, 4
local ENCODING_SIGNED, ENCODING_TYPEMASK = 0x10000000, 0xFFFF
local EXTENDED_BIT = 0x80000000
-- Multiplexed PDUs nest one level per switch; a database deeper than this
-- more likely loops back on itself.
local MAX_NESTING = 32
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

-- A field of a part's image in the coordinates of the PDU that holds the
-- part, through the part's segments; nil when it doesn't lie within one.
-- The image is little-endian, so only little-endian fields can lie in it.
local function outOfPart(segments, order, position, length)
  if order ~= BYTEORDER_LITTLE then return nil end
  if #segments == 0 then return order, position end
  return placeInFrame(segments, position, length)
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
      local order, position = outOfPart(segments, integer(instance.byteOrder), integer(instance.bitpos), length)
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

-- Extended multiplexing. A multiplexed PDU is walked down through the PDUs
-- of all its parts; each signal instance becomes a field in the coordinates
-- of the PDU being walked, with `key` telling the same signal met in other
-- parts and `selector` the innermost switch value that selects it (nil where
-- none does: a static part belongs to whatever selects its PDU).

local function signalKey(node)
  return node.eid or ("\0" .. plainName(node))
end

-- A float can't switch; a switch made up for lack of a signal (no node) can.
local function canSwitch(field)
  return not field.node or integer(field.node.coding.encoding) & ENCODING_TYPEMASK ~= ENCODING_IEEE
end

-- Problems go to walk.problems, and are reported only if the extended
-- writing is the one used. walk.sequences gets each part's members in the
-- order of their places in its image: the import lays them there in the
-- order the file lists them, and keeps that order in every part.
function Writer:fieldsOf(pdu, message, walk, depth)
  local fields = {}
  if pdu.tag == "SignalPDU" then
    for instance in pdu.signalInstances do
      local node = instance.signal
      if node and node.coding then
        fields[#fields + 1] = {node = node, key = signalKey(node), order = integer(instance.byteOrder),
                               position = integer(instance.bitpos), length = integer(node.coding.bitlen)}
      end
    end
    return fields
  end
  if pdu.tag ~= "MultiplexedPDU" then
    walk.problem(string.format("frame %s has a %s in a part, which DBC lacks; it is left out",
      message.name, pdu.tag))
    return fields
  end
  local switch = {order = integer(pdu.switchByteOrder), position = integer(pdu.switchPosition),
                  length = integer(pdu.switchLength)}
  if switch.position < 0 or switch.length == 0 then
    walk.problem(string.format(
      "frame %s has a switch outside its PDU; the signals of that multiplexed PDU are left out", message.name))
    return fields
  end
  if pdu.elsePart then
    walk.problem(string.format(
      "frame %s has a part for all other switch values, which DBC lacks; it is left out", message.name))
  end
  local eid = pdu.eid
  if (eid and walk.open[eid]) or depth > MAX_NESTING then
    walk.problem(string.format("frame %s has a part that holds its own multiplexed PDU again; that part is left out",
      message.name))
    return fields
  end
  if eid then walk.open[eid] = true end
  local parts = {}
  if pdu.staticPart then parts[1] = {part = pdu.staticPart} end
  for part in pdu.dynamicParts do parts[#parts + 1] = {part = part, value = integer(part.switchCode)} end
  local switchField
  -- DBC names its switch as a signal; a switch without one gets a plain
  -- signal of its own, first among the static ones.
  local function madeSwitch()
    switchField = {key = {}, order = switch.order, position = switch.position, length = switch.length}
    table.insert(fields, 1, switchField)
    return switchField
  end
  for _, p in ipairs(parts) do
    if p.value ~= nil and not switchField then madeSwitch() end
    local inner = p.part.reference
    if inner and inner.tag == "MultiplexedPDU" then walk.nested = true end
    local members = inner and self:fieldsOf(inner, message, walk, depth + 1) or {}
    local byPlace = {}
    for i, f in ipairs(members) do byPlace[i] = {field = f, index = i} end
    table.sort(byPlace, function(a, b)
      if a.field.position ~= b.field.position then return a.field.position < b.field.position end
      return a.index < b.index
    end)
    local sequence = {}
    for i, entry in ipairs(byPlace) do sequence[i] = entry.field.key end
    walk.sequences[#walk.sequences + 1] = sequence

    local segments = list(p.part.segments)
    for _, f in ipairs(members) do
      local order, position = outOfPart(segments, f.order, f.position, f.length)
      if order == nil then
        walk.problem(string.format(
          "signal %s of frame %s doesn't lie in one segment of its part; it is left out",
          f.node and plainName(f.node) or "switch", message.name))
      else
        f.order, f.position = order, position
        if p.value == nil and not switchField and order == switch.order and position == switch.position and
           f.length == switch.length and canSwitch(f) then
          switchField = f
        end
        fields[#fields + 1] = f
      end
    end
    if p.value == nil and not switchField then table.insert(sequence, 1, madeSwitch().key) end
    for _, f in ipairs(members) do
      if p.value ~= nil and not f.selector then f.selector = {switch = switchField, value = p.value} end
    end
  end
  if switchField then walk.switches[switchField.key] = true end
  if eid then walk.open[eid] = nil end
  return fields
end

-- The keys in an order that keeps every part's members in their order,
-- else in the order they were met. A database that no file could make may
-- have no such order; then the earliest met goes first.
local function fileOrder(merged, sequences)
  local index, after, before = {}, {}, {}
  for i, m in ipairs(merged) do index[m.key], after[m.key], before[m.key] = i, {}, 0 end
  for _, sequence in ipairs(sequences) do
    local previous
    for _, key in ipairs(sequence) do
      if index[key] then
        if previous and previous ~= key and not after[previous][key] then
          after[previous][key] = true
          before[key] = before[key] + 1
        end
        previous = key
      end
    end
  end
  local ordered, done = {}, {}
  for _ = 1, #merged do
    local pick
    for _, m in ipairs(merged) do
      if not done[m.key] and (pick == nil or (before[m.key] == 0 and before[pick.key] > 0)) then pick = m end
      if pick and before[pick.key] == 0 then break end
    end
    done[pick.key] = true
    ordered[#ordered + 1] = pick
    for key in pairs(after[pick.key]) do before[key] = before[key] - 1 end
  end
  return ordered
end

-- Value lists as DBC ranges: "0-3, 7-7".
local function ranges(values)
  table.sort(values)
  local out, low, high = {}, nil, nil
  for _, v in ipairs(values) do
    if low and v == high + 1 then
      high = v
    elseif not (low and v == high) then
      if low then out[#out + 1] = string.format("%d-%d", low, high) end
      low, high = v, v
    end
  end
  if low then out[#out + 1] = string.format("%d-%d", low, high) end
  return table.concat(out, ", ")
end

-- A multiplexed PDU that nests others, chains them through its static part
-- or shares signals among parts, written as extended multiplexing. False
-- when it is a plain one, which is written as such.
function Writer:extendedPdu(pdu, offset, message)
  local walk = {problems = {}, sequences = {}, switches = {}, open = {}}
  function walk.problem(problem)
    if not walk.problems[problem] then
      walk.problems[problem] = true
      walk.problems[#walk.problems + 1] = problem
    end
  end
  local fields = self:fieldsOf(pdu, message, walk, 1)
  local merged, byKey, shared = {}, {}, false
  for _, f in ipairs(fields) do
    local m = byKey[f.key]
    local selector = f.selector and f.selector.switch.key
    if not m then
      m = {key = f.key, field = f, selector = selector, values = {}}
      byKey[f.key] = m
      merged[#merged + 1] = m
    else
      shared = true
    end
    local name = f.node and plainName(f.node) or message.name .. "_switch"
    if m.field.order ~= f.order or m.field.position ~= f.position then
      walk.problem(string.format(
        "signal %s of frame %s lies at two places; only the first is written", name, message.name))
    elseif m.selector ~= selector then
      walk.problem(string.format(
        "signal %s of frame %s is selected by different switches in different parts, which DBC lacks; only its first part is written",
        name, message.name))
    elseif selector then
      m.values[#m.values + 1] = f.selector.value
    end
  end
  if not walk.nested and not shared then return false end
  for _, problem in ipairs(walk.problems) do self.warn(problem) end

  local written = {}
  for _, m in ipairs(fileOrder(merged, walk.sequences)) do
    local f, signal = m.field, nil
    if f.node then
      signal = self:signal(f.node, f.order, offset + f.position, message)
    else
      signal = {name = message.signalName(message.name .. "_switch"), bitlen = f.length,
                startbit = offset + f.position, bigendian = f.order == BYTEORDER_BIG, signed = false, scale = 1,
                offset = 0, min = 0, max = 0, unit = "", values = {}, comment = ""}
    end
    if signal then
      written[m.key] = signal
      message.signals[#message.signals + 1] = signal
      signal.selection = m
    end
  end
  message.selections = {}
  for _, signal in ipairs(message.signals) do
    local m = signal.selection
    if m then
      signal.selection = nil
      local switch = m.selector and written[m.selector]
      if m.selector and not switch then
        self.warn(string.format("signal %s of frame %s is selected by a switch that is left out; it is written as a plain signal",
          signal.name, message.name))
      end
      if switch then
        table.sort(m.values)
        signal.mode = "m" .. m.values[1] .. (walk.switches[m.key] and "M" or "")
        message.selections[#message.selections + 1] = {signal = signal, switch = switch, ranges = ranges(m.values)}
      elseif walk.switches[m.key] then
        signal.mode = "M"
      end
    end
  end
  return true
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
      if message.multiplexed or not self:extendedPdu(pdu, offset, message) then
        self:multiplexedPdu(pdu, offset, message)
      end
      message.multiplexed = true
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
  for _, message in ipairs(self.messages) do
    for _, selection in ipairs(message.selections or {}) do
      line("SG_MUL_VAL_ ", message.key, " ", selection.signal.name, " ", selection.switch.name, " ", selection.ranges, " ;")
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
  local channel, cluster = common.pickChannel(db, node, CLUSTERTYPE_CAN, "CAN", "DBC", warn)
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

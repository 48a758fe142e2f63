-- Writes one LIN channel of a database as a LIN description file.
--
-- The export is the inverse of the library's LDF import (src/import/Ldf*):
-- importing what it writes gives back the database it was written from.
-- What the import keeps in fields and links is read from there; what it
-- keeps only as text is read back from the text: the channel's description
-- holds the protocol and language versions, the master's its time base and
-- jitter, a slave's its node attributes, a command slot's the command. An
-- encoding type is the set of computations its signals share, named by
-- their ids (P/encoding/<type>/<n>) and written in the order of n. A
-- signal's initial value is its default value taken back to raw through
-- the computation that made it.
--
-- What the import doesn't keep can't come back: a signal's subscribers, the
-- names of encoding types without computations (BCD or ASCII alone), the
-- initial value of an ASCII signal. Only where a frame of a LIN 2.x file
-- has the classic checksum without a LIN 1.x publisher is a LIN 1.x slave
-- written as a subscriber of its first signal, since that is what gave it
-- the classic checksum. What LDF can't say is passed to warn(text) and
-- left out, or written the nearest way, as the text says.

local text = require "q9filters.ldf_text"
local common = require "q9filters.export_common"
local plainName, list = common.plainName, common.list

local M = {}

local CLUSTERTYPE_LIN = 3
local ENH_CHECKSUM = 0x20
local ENCODING_DIRECT, ENCODING_PACKED_BCD, ENCODING_ASCII = 1, 6, 7
local ENCODING_SIGNED, ENCODING_TYPEMASK = 0x10000000, 0xFFFF
local BYTEORDER_LITTLE = 0
local SWITCH_PATTERN = {0, 0, 8}  -- event-triggered frames switch on byte 0
-- Commands of schedule tables, and whether their first item is a node.
local COMMANDS = {AssignNAD = true, ConditionalChangeNAD = false, DataDump = true, SaveConfiguration = true,
                  AssignFrameIdRange = true, FreeFormat = false, AssignFrameId = true}
local TIMINGS = {"P2_min", "ST_min", "N_As_timeout", "N_Cr_timeout"}

local function integer(value)
  return math.tointeger(value) or math.floor(value)
end

-- Nodes are told apart by their ids; wrappers of one node differ.
local function keyOf(node)
  return node.eid or ("\0" .. node.tag .. "\0" .. plainName(node))
end

local function sameNode(a, b)
  return a ~= nil and b ~= nil and keyOf(a) == keyOf(b)
end

local function hex(value, width)
  if value < 0 then return string.format("%d", value) end  -- the reader's 32-bit integers read it back
  return string.format("0x%0" .. (width or 2) .. "X", value)
end

-- A param in thousandths as the file writes it: microseconds as ms, bit/s as kbit/s.
local function thousandths(param)
  return text.number(param / 1000)
end

local Reader = {}
Reader.__index = Reader

function Reader:description(node)
  return node:getDescription(self.language, self.language) or ""
end

-- The LDF name of a node, unique within its kind and given once: its short
-- name when that is an identifier (or a keyword, where the file may have
-- one), else one made of it.
function Reader:name(kind, node, keywordAllowed)
  local scope = self.names[kind]
  if not scope then
    scope = {byKey = {}, used = {}}
    self.names[kind] = scope
  end
  local key = keyOf(node)
  local name = scope.byKey[key]
  if name then return name end
  local wanted = plainName(node)
  name = keywordAllowed and wanted:find("^[%a_][%w_]*$") and wanted or text.identifier(wanted)
  if scope.used[name] then
    local n = 2
    while scope.used[name .. "_" .. n] do n = n + 1 end
    name = name .. "_" .. n
  end
  if name ~= wanted then self.warn(string.format("%s %s is written as %s", kind, wanted, name)) end
  scope.byKey[key], scope.used[name] = name, true
  return name
end

-- Groups of the cluster with this short name that belong to the channel.
function Reader:containers(shortname)
  local found = {}
  if not self.cluster then return found end
  for child in self.cluster.children do
    if child.tag == "ElementGroup" and child.shortname == shortname and sameNode(child.reference, self.channel) then
      found[#found + 1] = child
    end
  end
  return found
end

function Reader:underPrefix(node, kind)
  local eid = node.eid
  local start = self.prefix and (self.prefix .. "/" .. kind .. "/")
  return start ~= nil and eid ~= nil and eid:sub(1, #start) == start
end

function Reader:header()
  -- The name the import gives cluster and channel, from which ids take their prefix.
  local channel = self.channel
  local channelName = channel.shortname or (self.cluster and self.cluster.shortname) or self.prefix or
                      plainName(channel)
  local description = self:description(channel)
  local protocol, language, speed = description:match("^LIN protocol (.*), language (.*), (%S+) kbps$")
  local param = channel:getParam() or 0
  if not protocol then
    self.warn(string.format("channel %s doesn't tell its LIN protocol and language versions; 2.1 is written",
      channelName))
    protocol, language = "2.1", "2.1"
  end
  -- The speed as the description has it, if it is the param's; else the param.
  local written = tonumber(speed or "")
  if not written or math.floor(written * 1000 + 0.5) ~= param then speed = thousandths(param) end
  if not speed:find("[.eE]") then speed = speed .. ".0" end
  self.head = {protocol = protocol, language = language, speed = speed, channelName = channelName}
  self.protocol = text.versionNumber(protocol)
  self.languageVersion = tonumber(language:match("^%s*(%d+%.?%d*)") or "") or 0
end

-- The node attributes that the import sums up in a slave's description.
local function parseAttributes(description)
  local protocol, rest = description:match("^LIN slave, protocol (.-); (configured NAD .*)$")
  if not protocol then return nil end
  local a = {timings = {}}
  if protocol ~= "unknown" then a.protocol = protocol end
  for item in (rest .. "; "):gmatch("(.-); ") do
    local configured = item:match("^configured NAD 0x%x+$")  -- the ECU's param holds it
    local initial = item:match("^initial NAD (0x%x+)$")
    local supplier, func, variant = item:match("^supplier (0x%x+), function (0x%x+)(.*)$")
    local timing, ms = item:match("^([%w_]+) (%S+) ms$")
    if configured then
      -- nothing more to keep
    elseif initial then
      a.initial = math.tointeger(tonumber(initial))
    elseif supplier then
      a.product = {math.tointeger(tonumber(supplier)), math.tointeger(tonumber(func)),
                   variant:match("^, variant (%S+)$")}
    elseif timing and tonumber(ms) then
      a.timings[timing] = ms
    else
      return nil
    end
  end
  return a
end

-- An ECU of the channel, met first by its id prefix or through a link.
function Reader:node(ecu)
  local key = keyOf(ecu)
  local entry = self.nodeByKey[key]
  if entry then return entry end
  entry = {node = ecu, param = ecu:getParam() or 0}
  local description = self:description(ecu)
  local timebase, jitter = description:match("^LIN master; time base (%S+) ms, jitter (%S+) ms$")
  if timebase and not self.master then
    entry.master, entry.timebase, entry.jitter = true, timebase, jitter
    self.master = entry
  else
    entry.attributes = parseAttributes(description)
    self.slaves[#self.slaves + 1] = entry
  end
  -- Only node attributes and diagnostic addresses need a name that is no keyword.
  entry.name = self:name("node", ecu, entry.master or not entry.attributes and entry.param == 0)
  self.nodeByKey[key] = entry
  return entry
end

-- A signal of the channel, with what its coding says.
function Reader:signal(node)
  local key = keyOf(node)
  local entry = self.signalByKey[key]
  if entry ~= nil then return entry or nil end
  local coding = node.coding
  if not coding then
    self.warn(string.format("signal %s has no coding; it is left out", plainName(node)))
    self.signalByKey[key] = false
    return nil
  end
  entry = {node = node, name = self:name("signal", node), size = integer(coding.bitlen), coding = coding,
           diagnostic = self:description(node) == "diagnostic signal", subscribers = {}}
  local encoding = integer(coding.encoding)
  local kind = encoding & ENCODING_TYPEMASK
  if (kind ~= ENCODING_DIRECT and kind ~= ENCODING_PACKED_BCD and kind ~= ENCODING_ASCII) or
     encoding & ENCODING_SIGNED ~= 0 then
    self.warn(string.format("signal %s has a signed or other coding (%d) that LDF lacks; %s",
      entry.name, kind, "its bits are written as an unsigned value"))
  end
  entry.kind = kind
  self.signalByKey[key] = entry
  self.signals[#self.signals + 1] = entry
  return entry
end

-- The signals of a frame's signal PDUs, with their places in the frame.
function Reader:frameSignals(entry)
  local frame = entry.node
  for pduInstance in frame.PDUInstances do
    local pdu = pduInstance.reference
    if pdu and pdu.tag == "SignalPDU" then
      self.frameByPdu[keyOf(pdu)] = entry
      for instance in pdu.signalInstances do
        local node = instance.signal
        local signal = node and self:signal(node)
        local offset = integer(pduInstance.bitpos) + integer(instance.bitpos)
        if not signal then
          -- left out, and reported, above
        elseif integer(instance.byteOrder) ~= BYTEORDER_LITTLE or
               integer(pduInstance.byteOrder) ~= BYTEORDER_LITTLE then
          self.warn(string.format("signal %s of frame %s is big-endian, which LDF lacks; it is left out",
            signal.name, entry.name))
        elseif offset < 0 or offset + signal.size > entry.length * 8 then
          self.warn(string.format("signal %s of frame %s lies outside the frame; it is left out",
            signal.name, entry.name))
        else
          entry.signals[#entry.signals + 1] = {signal = signal, offset = offset}
          if not signal.publisherNode and entry.publisher then signal.publisherNode = entry.publisher end
        end
      end
    elseif pdu then
      self.warn(string.format("frame %s carries a %s, which LDF lacks outside event-triggered frames; %s",
        entry.name, pdu.tag, "its signals are left out"))
    end
  end
end

-- The multiplexed PDU of an event-triggered frame, if the frame is one.
local function eventPdu(frame)
  local instances = list(frame.PDUInstances)
  local pdu = #instances == 1 and instances[1].reference
  if not pdu or pdu.tag ~= "MultiplexedPDU" or pdu.staticPart or pdu.elsePart then return nil end
  local switch = {integer(pdu.switchByteOrder), integer(pdu.switchPosition), integer(pdu.switchLength)}
  for i, v in ipairs(SWITCH_PATTERN) do
    if switch[i] ~= v then return nil end
  end
  return pdu
end

function Reader:frames()
  self.frameList, self.frameByKey, self.frameByPdu = {}, {}, {}
  local events = {}
  for triggering in self.channel.frameTriggerings do
    local frame = triggering.frame
    if triggering.tag ~= "IdentifierBasedTriggering" or not frame then
      self.warn(string.format("triggering %s is no identifier triggering of a frame, which LDF lacks; %s",
        plainName(triggering), "it is left out"))
    else
      local entry = {node = frame, triggering = triggering, name = self:name("frame", frame),
                     id = integer(triggering.identifier), flags = integer(triggering.flags),
                     length = integer(frame.length), signals = {}}
      local source = triggering.sourceEcu
      entry.publisher = source and self:node(source)
      if self:description(frame) == "diagnostic frame" then
        entry.kind = "diagnostic"
      else
        entry.mux = eventPdu(frame)
        entry.kind = entry.mux and "event" or "unconditional"
      end
      if entry.id < 0 or entry.id > 63 then
        self.warn(string.format("frame %s has the identifier %d, outside LIN's 0 to 63; it is left out",
          entry.name, entry.id))
      elseif entry.length < 1 or entry.length > 8 then
        self.warn(string.format("frame %s is %d bytes long, outside LIN's 1 to 8; it is left out",
          entry.name, entry.length))
      else
        if entry.flags & ~ENH_CHECKSUM ~= 0 then
          self.warn(string.format("frame %s has triggering flags 0x%X that LDF lacks; they are left out",
            entry.name, entry.flags))
        end
        if entry.kind == "event" then events[#events + 1] = entry else self:frameSignals(entry) end
        self.frameList[#self.frameList + 1] = entry
        self.frameByKey[keyOf(frame)] = entry
      end
    end
  end
  -- Associated frames are found by their PDUs, so after all the others.
  for _, entry in ipairs(events) do
    entry.associated = {}
    for part in entry.mux.dynamicParts do
      local pdu = part.reference
      local frame = pdu and self.frameByPdu[keyOf(pdu)]
      if frame and frame.kind == "unconditional" then
        entry.associated[#entry.associated + 1] = frame
      else
        self.warn(string.format("event-triggered frame %s: part %s carries no unconditional frame; it is left out",
          entry.name, plainName(part)))
      end
    end
    for child in entry.triggering.children do
      if child.shortname == "collision_resolving_schedule_table" and child.reference then
        entry.collision = child.reference
      end
    end
    if #entry.associated == 0 then
      self.warn(string.format("event-triggered frame %s has no frames to carry, which LDF lacks; it is left out",
        entry.name))
      self.frameByKey[keyOf(entry.node)] = nil
      for i, f in ipairs(self.frameList) do
        if f == entry then table.remove(self.frameList, i) break end
      end
    end
  end
end

-- Sporadic frames: groups of references to unconditional frames.
function Reader:sporadicFrames()
  self.sporadic = {}
  for _, container in ipairs(self:containers("Sporadic_frames")) do
    for group in container.children do
      local entry = {node = group, name = self:name("frame", group), frames = {}}
      for ref in group.children do
        local frame = ref.reference and self.frameByKey[keyOf(ref.reference)]
        if frame and frame.kind == "unconditional" then
          entry.frames[#entry.frames + 1] = frame
        else
          self.warn(string.format("sporadic frame %s: %s is no unconditional frame of the channel; it is left out",
            entry.name, plainName(ref)))
        end
      end
      if #entry.frames == 0 then
        self.warn(string.format("sporadic frame %s has no frames to send, which LDF lacks; it is left out",
          entry.name))
      else
        self.sporadic[#self.sporadic + 1] = entry
        self.frameByKey[keyOf(group)] = entry
      end
    end
  end
end

-- The signals that are the channel's without being placed in a frame.
function Reader:unplacedSignals()
  for signal in self.db:enumSignals() or function() end do
    if self:underPrefix(signal, "signal") then self:signal(signal) end
  end
  for ecu in self.db:enumECUs() or function() end do
    if self:underPrefix(ecu, "ECU") then self:node(ecu) end
  end
end

-- The raw value whose physical value is the signal's default: through the
-- linear ranges in their decoding order, where the first that holds a raw
-- value scales it, else the raw value itself. Where two ranges give the
-- default, the one whose inverse the coding lists first made it.
local function initialRaw(signal, linear, firstInverse)
  local default = signal.node.defaultValue
  local top = signal.size >= 64 and 2.0^64 - 1 or (1 << signal.size) - 1
  local function firstRange(raw)
    for i, r in ipairs(linear) do
      if raw >= r.lo and raw <= r.hi then return i end
    end
    return nil
  end
  local order = {}
  for i, r in ipairs(linear) do
    table.insert(order, r.inverse and r.inverse == firstInverse and 1 or #order + 1, i)
  end
  for _, i in ipairs(order) do
    local r = linear[i]
    local guess = r.scale ~= 0 and math.floor((default - r.offset) / r.scale + 0.5) or math.ceil(r.lo)
    for _, raw in ipairs({guess, guess - 1, guess + 1}) do
      raw = math.tointeger(raw) or raw
      if raw >= r.lo and raw <= r.hi and raw * r.scale + r.offset == default and firstRange(raw) == i then
        return raw
      end
    end
  end
  if default == math.floor(default) and default >= 0 and default <= top and not firstRange(default) then
    return math.tointeger(default) or default
  end
  -- A negative initial value (a scalar with bit 31 set) is taken as an
  -- unsigned 64-bit raw value, which rounds to 2^64 or just below.
  if default >= 2^63 and default > top then
    local raw = default - 2^64
    raw = math.tointeger(raw < 0 and raw or -1)
    if raw and raw >= -2^31 then return raw end
  end
  return nil
end

-- A computation as a value description of an encoding type, or nil.
function Reader:valueOf(compu, signal)
  local ranges = list(compu.ranges)
  local r = ranges[1]
  if #ranges == 1 then
    local lo, hi = r.lowerLimit, r.upperLimit
    local whole = lo == math.floor(lo) and hi == math.floor(hi)
    if compu.tag == "MappedTextComputation" and lo == hi and whole then
      local label = self.db:stringLookup(compu.textvalue, self.language, self.language)
      return {kind = "logical", value = integer(lo), text = label or ""}
    elseif compu.tag == "IdentityComputation" and lo == hi and whole then
      return {kind = "logical", value = integer(lo)}
    elseif compu.tag == "LinearComputation" and whole then
      if lo < -2^31 or hi >= 2^31 then
        self.warn(string.format("signal %s: the raw range %s..%s is wider than LDF's 32-bit integers; %s",
          signal.name, text.number(lo), text.number(hi), "it reads back otherwise"))
      end
      return {kind = "physical", lo = integer(lo), hi = integer(hi), scale = compu.scale, offset = compu.offset}
    end
  end
  self.warn(string.format("signal %s: its %s has no LDF value description; it is left out", signal.name, compu.tag))
  return nil
end

-- The encoding type of a signal, shared by all signals with the same
-- computations, and the signal's initial value.
function Reader:encoding(signal)
  local compus = list(signal.coding.internalToPhysicalCompus)
  local top = signal.size >= 64 and 2.0^64 - 1 or (1 << signal.size) - 1
  if #compus == 1 and compus[1].tag == "IdentityComputation" then
    local ranges = list(compus[1].ranges)
    if #ranges == 1 and ranges[1].lowerLimit == 0 and ranges[1].upperLimit == top then compus = {} end
  end
  local marker = signal.kind == ENCODING_PACKED_BCD and "bcd_value" or signal.kind == ENCODING_ASCII and "ascii_value"
  local linear = {}
  for _, c in ipairs(compus) do
    if c.tag == "LinearComputation" then
      local r = list(c.ranges)[1]
      if r then
        linear[#linear + 1] = {lo = r.lowerLimit, hi = r.upperLimit, scale = c.scale, offset = c.offset,
                               inverse = c.eid and c.eid .. "/inverse"}
      end
    end
  end
  if signal.kind == ENCODING_ASCII then
    signal.raw = 0  -- the import keeps no initial value of a text
  else
    local firstInverse = signal.coding.physicalToInternalCompus()
    signal.raw = initialRaw(signal, linear, firstInverse and firstInverse.eid)
    if not signal.raw then
      self.warn(string.format("signal %s: no raw value gives its default value %s; the initial value 0 is written",
        signal.name, text.number(signal.node.defaultValue)))
      signal.raw = 0
    end
  end
  if #compus == 0 and not marker then return end

  local keys, indices, name, indexed = {}, {}, nil, true
  local start = self.prefix and (self.prefix .. "/encoding/")
  for i, c in ipairs(compus) do
    local eid = c.eid
    local typeName, index
    if eid and start and eid:sub(1, #start) == start then
      typeName, index = eid:sub(#start + 1):match("^(.+)/(%d+)$")
    end
    keys[#keys + 1] = eid or ("\0" .. signal.name)
    name = name or typeName
    indexed = indexed and index ~= nil and typeName == name
    indices[i] = tonumber(index)
  end
  local key = #compus > 0 and table.concat(keys, "\0") or ("\0" .. marker)
  local encoding = self.encodingByKey[key]
  if not encoding then
    local made = #compus == 0 and (marker == "bcd_value" and "BCD" or "ASCII") or signal.name .. "_Encoding"
    encoding = {wanted = name or made, kept = name ~= nil, values = {}, signals = {}}
    local unit = signal.coding.unit
    local unitText = unit and (unit:getDisplayName(self.language, self.language) or plainName(unit))
    local byIndex, placed = {}, {}
    for i, c in ipairs(compus) do
      local value = self:valueOf(c, signal)
      if value then
        if value.kind == "physical" then value.unit = unitText end
        if indexed then byIndex[indices[i]] = value else placed[#placed + 1] = value end
      end
    end
    if indexed then
      -- Values at their places in the file; BCD or ASCII fills the first gap.
      local highest = 0
      for index in pairs(byIndex) do highest = math.max(highest, index) end
      for index = 1, highest do
        if byIndex[index] then
          placed[#placed + 1] = byIndex[index]
        elseif marker then
          placed[#placed + 1] = {kind = marker}
          marker = nil
        end
      end
    end
    if marker then placed[#placed + 1] = {kind = marker} end
    encoding.values = placed
    self.encodingByKey[key] = encoding
    self.encodings[#self.encodings + 1] = encoding
  end
  encoding.signals[#encoding.signals + 1] = signal
end

-- A slave whose LIN protocol is below 2.0 makes its frames use the classic
-- checksum; which frames then read back with which is checked here, and a
-- LIN 1.x subscriber added where only one can give a frame its checksum.
function Reader:checksums()
  local old = {}
  for _, slave in ipairs(self.slaves) do
    local a = slave.attributes
    if a and a.protocol and text.versionNumber(a.protocol) < 2 then old[#old + 1] = slave end
  end
  local function isOld(node) return node and node.attributes and node.attributes.protocol and
    text.versionNumber(node.attributes.protocol) < 2 end
  local function readBack(frame)
    if self.protocol < 2 or frame.kind == "diagnostic" then return 0 end
    if frame.kind == "event" then
      for _, f in ipairs(frame.associated) do
        if readBack(f) == 0 then return 0 end
      end
      return ENH_CHECKSUM
    end
    if isOld(frame.publisher) then return 0 end
    for _, s in ipairs(frame.signals) do
      for _, node in ipairs(s.signal.subscribers) do
        if isOld(node) then return 0 end
      end
    end
    return ENH_CHECKSUM
  end
  for _, frame in ipairs(self.frameList) do
    if frame.kind == "unconditional" and frame.flags & ENH_CHECKSUM == 0 and readBack(frame) ~= 0 and
       #old > 0 and #frame.signals > 0 then
      table.insert(frame.signals[1].signal.subscribers, old[1])
    end
  end
  for _, frame in ipairs(self.frameList) do
    local want, got = frame.flags & ENH_CHECKSUM, readBack(frame)
    if want ~= got then
      self.warn(string.format("frame %s uses the %s checksum, which the file can't give it; %s the %s one",
        frame.name, want ~= 0 and "enhanced" or "classic", "it reads back with", got ~= 0 and "enhanced" or "classic"))
    end
  end
end

function Reader:schedules()
  self.tables, self.tableByKey = {}, {}
  for _, container in ipairs(self:containers("Schedule_tables")) do
    for group in container.children do
      local entry = {name = self:name("schedule table", group), slots = {}}
      self.tables[#self.tables + 1] = entry
      self.tableByKey[keyOf(group)] = entry
      for slot in group.children do
        local short, target = slot.shortname or "", slot.reference
        local delay = thousandths(slot:getParam() or 0)
        local command, items = self:description(slot):match("^(%w+) { (.*) }$")
        if COMMANDS[short] ~= nil and command == short then
          local parts = {}
          for item in (items .. ", "):gmatch("(.-), ") do parts[#parts + 1] = item end
          if COMMANDS[short] and not (target and target.tag == "ElementGroup") then
            self.warn(string.format("schedule table %s: command %s addresses no node of the database; %s",
              entry.name, short, "it is left out"))
          else
            if COMMANDS[short] then parts[1] = self:node(target).name end
            local command = short .. " { " .. table.concat(parts, ", ") .. " }"
            entry.slots[#entry.slots + 1] = {text = command, delay = delay}
          end
        else
          local frame = target and self.frameByKey[keyOf(target)]
          if frame then
            entry.slots[#entry.slots + 1] = {frame = frame, delay = delay}
          else
            self.warn(string.format("schedule table %s: slot %s refers to no frame of the channel; it is left out",
              entry.name, short))
          end
        end
      end
    end
  end
  for _, frame in ipairs(self.frameList) do
    if frame.collision then
      frame.collisionTable = self.tableByKey[keyOf(frame.collision)]
      if not frame.collisionTable then
        self.warn(string.format("event-triggered frame %s: %s is no schedule table of the channel; it is left out",
          frame.name, "its collision resolving table"))
      end
    end
  end
end

function Reader:signalGroups()
  self.groups = {}
  for _, container in ipairs(self:containers("Signal_groups")) do
    for group in container.children do
      local entry = {name = self:name("signal group", group), size = group:getParam() or 0, members = {}}
      for ref in group.children do
        local signal = ref.reference and self.signalByKey[keyOf(ref.reference)]
        if signal then
          entry.members[#entry.members + 1] = {signal = signal, offset = ref:getParam() or 0}
        else
          self.warn(string.format("signal group %s: %s is no signal of the channel; it is left out",
            entry.name, plainName(ref)))
        end
      end
      self.groups[#self.groups + 1] = entry
    end
  end
end

-- What a slave's node attributes refer to: signals and frames by role.
function Reader:attributeLinks()
  for _, slave in ipairs(self.slaves) do
    local a = slave.attributes
    if a then
      a.faultStates, a.frames = {}, {}
      for ref in slave.node.children do
        local role, target = ref.shortname, ref.reference
        local signal = target and self.signalByKey[keyOf(target)]
        local frame = target and self.frameByKey[keyOf(target)]
        if role == "response_error" and signal then
          a.responseError = signal
        elseif role == "fault_state_signals" and signal then
          a.faultStates[#a.faultStates + 1] = signal
        elseif role == "configurable_frames" and frame and frame.kind ~= nil then
          a.frames[#a.frames + 1] = {frame = frame, id = ref:getParam() or 0}
        else
          self.warn(string.format("node attributes of %s: %s refers to nothing the file holds; it is left out",
            slave.name, tostring(role)))
        end
      end
      -- Message ids when any differs from the frame's index, as LIN 2.0 gives them.
      for i, f in ipairs(a.frames) do
        if f.id ~= i - 1 then a.withIds = true end
      end
    end
  end
end

function Reader:collect()
  self:header()
  self:frames()
  self:sporadicFrames()
  self:unplacedSignals()
  for _, signal in ipairs(self.signals) do self:encoding(signal) end
  self:schedules()
  self:signalGroups()
  self:attributeLinks()
  self:checksums()
  if not self.master then
    self.warn("the channel has no LIN master (an ECU described as one); the Nodes section names none")
  end
  -- Encoding types the import named keep their names; made ones give way.
  local used = {}
  for pass = 1, 2 do
    for _, e in ipairs(self.encodings) do
      if (pass == 1) == (e.kept == true) then
        local base = text.identifier(e.wanted)
        local name, n = base, 2
        while used[name] do name, n = base .. "_" .. n, n + 1 end
        used[name], e.name = true, name
      end
    end
  end
end

-- The text of the file.

local function initialValue(signal)
  local raw = signal.raw
  if raw >= 0 and (signal.size > 16 and signal.size % 8 == 0 or raw >= 2^31) then
    local bytes = {}
    for _ = 1, (signal.size + 7) // 8 do
      local byte = raw % 256
      bytes[#bytes + 1] = string.format("0x%02X", integer(byte))
      raw = (raw - byte) // 256
    end
    return "{" .. table.concat(bytes, ", ") .. "}"
  end
  return string.format("%d", integer(raw))
end

function Reader:lines()
  local out = {}
  local function line(...) out[#out + 1] = table.concat({...}) end
  local function section(name, items, body, required)
    if #items == 0 and not required then return end
    line(name, " {")
    for _, item in ipairs(items) do body(item) end
    line("}")
    line("")
  end
  local head = self.head
  line("LIN_description_file;")
  line("LIN_protocol_version = ", text.quote(head.protocol), ";")
  line("LIN_language_version = ", text.quote(head.language), ";")
  line("LIN_speed = ", head.speed, " kbps;")
  line("Channel_name = ", text.quote(head.channelName), ";")
  line("")

  line("Nodes {")
  local master = self.master
  if master then line("  Master: ", master.name, ", ", master.timebase, " ms, ", master.jitter, " ms;") end
  local slaveNames = {}
  for _, slave in ipairs(self.slaves) do slaveNames[#slaveNames + 1] = slave.name end
  line("  Slaves: ", table.concat(slaveNames, ", "), ";")
  line("}")
  line("")

  local addresses = {}
  for _, slave in ipairs(self.slaves) do
    if not slave.attributes and slave.param ~= 0 then addresses[#addresses + 1] = slave end
  end
  section("Diagnostic_addresses", addresses, function(slave) line("  ", slave.name, ": ", hex(slave.param), ";") end)

  local plain, diagnostic = {}, {}
  for _, s in ipairs(self.signals) do table.insert(s.diagnostic and diagnostic or plain, s) end
  local fallback = self.master or self.slaves[1]
  section("Signals", plain, function(s)
    local publisher = s.publisherNode or fallback
    local names = {}
    for _, node in ipairs(s.subscribers) do names[#names + 1] = ", " .. node.name end
    line("  ", s.name, ": ", s.size, ", ", initialValue(s), ", ", publisher and publisher.name or "",
      table.concat(names), ";")
  end, true)
  section("Diagnostic_signals", diagnostic, function(s)
    line("  ", s.name, ": ", s.size, ", ", initialValue(s), ";")
  end)

  local byKind = {unconditional = {}, event = {}, diagnostic = {}}
  for _, f in ipairs(self.frameList) do table.insert(byKind[f.kind], f) end
  local function placed(frame)
    for _, s in ipairs(frame.signals) do line("    ", s.signal.name, ", ", s.offset, ";") end
    line("  }")
  end
  section("Frames", byKind.unconditional, function(f)
    local publisher = f.publisher or fallback
    if not f.publisher then
      self.warn(string.format("frame %s has no publisher; it is written as published by %s", f.name,
        publisher and publisher.name or "nobody"))
    end
    line("  ", f.name, ": ", hex(f.id), ", ", publisher and publisher.name or "", ", ", f.length, " {")
    placed(f)
  end, true)
  section("Sporadic_frames", self.sporadic, function(s)
    local names = {}
    for _, f in ipairs(s.frames) do names[#names + 1] = f.name end
    line("  ", s.name, ": ", table.concat(names, ", "), ";")
  end)
  section("Event_triggered_frames", byKind.event, function(f)
    local names = {}
    for _, a in ipairs(f.associated) do names[#names + 1] = ", " .. a.name end
    local collision = f.collisionTable and (f.collisionTable.name .. ", ") or ""
    line("  ", f.name, ": ", collision, hex(f.id), table.concat(names), ";")
  end)
  section("Diagnostic_frames", byKind.diagnostic, function(f)
    if f.length ~= 8 then
      self.warn(string.format("diagnostic frame %s is %d bytes long; LDF gives diagnostic frames 8", f.name, f.length))
    end
    line("  ", f.name, ": ", hex(f.id), " {")
    placed(f)
  end)

  local attributed = {}
  for _, slave in ipairs(self.slaves) do
    if slave.attributes then attributed[#attributed + 1] = slave end
  end
  -- Required from language version 2.0 on; below it only what a database holds.
  section("Node_attributes", attributed, function(slave)
    local a = slave.attributes
    line("  ", slave.name, " {")
    if a.protocol then line("    LIN_protocol = ", text.quote(a.protocol), ";") end
    line("    configured_NAD = ", hex(slave.param), ";")
    if a.initial then line("    initial_NAD = ", hex(a.initial), ";") end
    if a.product then
      local variant = a.product[3] and (", " .. a.product[3]) or ""
      line("    product_id = ", hex(a.product[1], 4), ", ", hex(a.product[2], 4), variant, ";")
    end
    if a.responseError then line("    response_error = ", a.responseError.name, ";") end
    if #a.faultStates > 0 then
      local names = {}
      for _, s in ipairs(a.faultStates) do names[#names + 1] = s.name end
      line("    fault_state_signals = ", table.concat(names, ", "), ";")
    end
    for _, timing in ipairs(TIMINGS) do
      if a.timings[timing] then line("    ", timing, " = ", a.timings[timing], " ms;") end
    end
    if a.product or #a.frames > 0 then
      line("    configurable_frames {")
      for _, f in ipairs(a.frames) do
        line("      ", f.frame.name, a.withIds and (" = " .. hex(f.id)) or "", ";")
      end
      line("    }")
    end
    line("  }")
  end, self.languageVersion >= 2)

  section("Schedule_tables", self.tables, function(t)
    line("  ", t.name, " {")
    for _, slot in ipairs(t.slots) do line("    ", slot.text or slot.frame.name, " delay ", slot.delay, " ms;") end
    line("  }")
  end, true)
  section("Signal_groups", self.groups, function(g)
    line("  ", g.name, ": ", g.size, " {")
    for _, m in ipairs(g.members) do line("    ", m.signal.name, ", ", m.offset, ";") end
    line("  }")
  end)
  section("Signal_encoding_types", self.encodings, function(e)
    line("  ", e.name, " {")
    for _, v in ipairs(e.values) do
      if v.kind == "logical" then
        line("    logical_value, ", v.value, v.text and (", " .. text.quote(v.text)) or "", ";")
      elseif v.kind == "physical" then
        line("    physical_value, ", v.lo, ", ", v.hi, ", ", text.number(v.scale), ", ", text.number(v.offset),
          v.unit and (", " .. text.quote(v.unit)) or "", ";")
      else
        line("    ", v.kind, ";")
      end
    end
    line("  }")
  end)
  section("Signal_representation", self.encodings, function(e)
    local names = {}
    for _, s in ipairs(e.signals) do names[#names + 1] = s.name end
    line("  ", e.name, ": ", table.concat(names, ", "), ";")
  end)
  return table.concat(out, "\n")
end

function M.export(db, node, path, options, warn)
  local channel, cluster = common.pickChannel(db, node, CLUSTERTYPE_LIN, "LIN", "LDF", warn)
  local reader = setmetatable({
    db = db, channel = channel, cluster = cluster, language = options.language or 0, warn = warn,
    prefix = (channel.eid or ""):match("^(.*)/channel$"), names = {}, nodeByKey = {}, slaves = {},
    signalByKey = {}, signals = {}, encodingByKey = {}, encodings = {},
  }, Reader)
  reader:collect()
  local content = reader:lines()
  local file, problem = io.open(path, "wb")
  if not file then
    -- io.open's message starts with the path itself.
    if problem:sub(1, #path + 2) == path .. ": " then problem = problem:sub(#path + 3) end
    error(string.format("%s: the file can't be written (%s)", path, problem), 0)
  end
  local written, failure = file:write(content)
  local closed, closeFailure = file:close()
  if not written or not closed then
    error(string.format("%s: the file can't be written (%s)", path, failure or closeFailure), 0)
  end
  return 0
end

return M

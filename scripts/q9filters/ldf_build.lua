-- Builds database nodes from the reader's tree of an LDF file.
--
-- Element ids: every id of one import starts with a prefix P that no other
-- import into the same database uses (the channel name, the second text or
-- the file's base name, with "#2", "#3"... added when it is taken):
--   P/cluster  P/channel  (when the import makes them)
--   P/ECU/<node>              master and slaves; P/ECU/<node>/... their references
--   P/frame/<frame>           frames of all kinds, sporadic frames included
--   P/triggering|PDU|PDUInstance/<frame>, P/instance/<frame>/<signal>,
--   P/part/<event-triggered frame>/<associated frame>
--   P/signal|coding/<signal>  signals and diagnostic signals
--   P/compu/<signal>/identity[/inverse]   for signals without encoding
--   P/encoding/<type>/<n>[/inverse], P/unit/<type>   shared by all users of a type
--   P/schedules  P/schedule/<table>  P/slot/<table>/<n>
--   P/sporadic  P/signal-groups  P/signal-group/<group>[/<signal>]
-- Short names carry the plain names of the file.
local text = require "q9filters.ldf_text"
local encodings = require "q9filters.ldf_encoding"

local B = {}

local DIAGNOSTIC_IDS = {[0x3C] = true, [0x3D] = true}

local function created(node, status, id)
  if not node then
    error(string.format("creating %s failed with status %s", id or "a node", tostring(status)), 0)
  end
  return node
end

local function named(node, name)
  node:setShortName(name)
  return node
end

-- The protected identifier: the frame id with its two parity bits, which
-- is also the first data byte of a frame sent in an event-triggered slot.
local function protectedId(id)
  local function bit(n) return (id >> n) & 1 end
  local p0 = bit(0) ~ bit(1) ~ bit(2) ~ bit(4)
  local p1 = 1 ~ (bit(1) ~ bit(3) ~ bit(4) ~ bit(5))
  return id | (p0 << 6) | (p1 << 7)
end
B.protectedId = protectedId

-- Picks the prefix: the first of base, base#2, base#3... that is neither
-- an element id nor the first path part of one.
local function uniquePrefix(db, base)
  local used = {}
  local walk = db:enumIdentElements()
  for element in walk or function() end do
    local eid = element.eid
    if eid then used[eid:match("^(.-)/") or eid] = true end
  end
  local candidate, n = base, 1
  while used[candidate] do
    n = n + 1
    candidate = base .. "#" .. n
  end
  return candidate
end

local function versionOf(textValue)
  return tonumber(textValue and textValue:match("^%s*([%d.]+)")) or 0
end

-- The cluster and channel to import into, from the node argument.
local function target(ctx, node)
  local db, core = ctx.db, ctx.core
  local kind = node and node:getNodeType()
  if node == nil then
    local cluster = named(created(db:createCluster(ctx.id("cluster"), core.Q9_CLUSTERTYPE_LIN)), ctx.clusterName)
    local channel = named(created(db:createChannel(ctx.id("channel"), cluster)), ctx.clusterName)
    return cluster, channel, true
  elseif kind == core.Q9_NODETYPE_Cluster then
    local channel = named(created(db:createChannel(ctx.id("channel"), node)), ctx.clusterName)
    return node, channel, true
  elseif kind == core.Q9_NODETYPE_Channel then
    local group = node.group
    if group and group:getNodeType() ~= core.Q9_NODETYPE_Cluster then group = nil end
    return group, node, false
  end
  error(string.format("the node to import into must be a Cluster or a Channel, not %s",
    tostring(node.tag)), 0)
end

-- A group under the cluster holding one kind of element; without a cluster
-- (a channel that belongs to none) it stands alone and is found by its id.
local function container(ctx, suffix, name)
  local group = created(ctx.db:createElementGroup(ctx.id(suffix), ctx.cluster, ctx.channel))
  return named(group, name)
end

local function reference(ctx, owner, id, to, name, param)
  local ref = named(created(ctx.db:createElementReference(id, to), nil, id), name)
  if param then ref:setParam(param) end
  owner:appendChildren(ref)
  return ref
end

--------------------------------------------------------------------------
-- Nodes

local function buildNodes(ctx, s)
  local nodes = s.nodes
  local function ecu(name, description)
    if ctx.ecus[name] then
      ctx.warn("node %s is listed twice; the second is left out", name)
      return
    end
    local e = named(created(ctx.db:createECU(ctx.id("ECU", name))), name)
    e:setDescription(ctx.language, description)
    ctx.ecus[name] = e
    ctx.ecuOrder[#ctx.ecuOrder + 1] = name
    return e
  end
  local m = nodes.Master
  ecu(m.name, string.format("LIN master; time base %s ms, jitter %s ms",
    text.number(m.timebase), text.number(m.jitter)))
  ctx.master = m.name
  for _, slave in ipairs(nodes.Slaves) do ecu(slave, "LIN slave") end

  -- LIN 1.x files give the slaves' addresses in a section of their own.
  for name, address in pairs(s.diagnosticaddresses or {}) do
    if name ~= "tag" then
      local e = ctx.ecus[name]
      local nad = math.tointeger(tonumber(address))
      if e and nad then e:setParam(nad)
      else ctx.warn("diagnostic address of %s: %s", name, e and "not a number: " .. address or "no such node") end
    end
  end

  if s.composite and #s.composite > 0 then
    local names = {}
    for _, configuration in ipairs(s.composite) do names[#names + 1] = configuration.name end
    ctx.warn("composite node configurations are not mapped: %s", table.concat(names, ", "))
  end
end

--------------------------------------------------------------------------
-- Signals and their encodings

local function representations(ctx, s)
  local byName = {}
  for _, enc in ipairs(s.signalencodingtypes or {}) do
    if byName[enc.name] then
      ctx.warn("signal encoding %s is defined twice; the second is left out", enc.name)
    else
      byName[enc.name] = enc
    end
  end
  local ofSignal = {}
  for _, rep in ipairs(s.signalrepresentations or {}) do
    local enc = byName[rep.name]
    if not enc then
      ctx.warn("signal representation names the encoding %s, which is not defined", rep.name)
    else
      for _, signal in ipairs(rep) do
        if ofSignal[signal] then
          ctx.warn("signal %s has the encodings %s and %s; it takes %s", signal, ofSignal[signal].name,
            rep.name, ofSignal[signal].name)
        else
          ofSignal[signal] = enc
        end
      end
    end
  end
  return ofSignal
end

-- The raw start value: a number, or for a byte array the bytes in
-- transmission order, which a little-endian field holds low byte first.
local function initialRaw(ctx, def)
  local init = def.initvalue
  if type(init) ~= "table" then return math.tointeger(init) or 0 end
  local raw, exact = 0, true
  for i, element in ipairs(init) do
    local byte = math.tointeger(tonumber(element)) or 0
    if byte < 0 or byte > 255 then
      ctx.warn("signal %s: initial byte %s is no byte value; 0 is taken", def.name, element)
      byte = 0
    end
    raw = raw | (byte << (8 * (i - 1)))
  end
  if #init * 8 ~= def.size then
    ctx.warn("signal %s: %d initial bytes for a size of %d bits", def.name, #init, math.tointeger(def.size))
  end
  -- Doubles hold 53 bits exactly; the default value of a wider array is rounded.
  if raw >= (1 << 53) or raw < 0 then exact = false end
  if not exact then
    ctx.warn("signal %s: the initial value of the byte array is wider than 53 bits; "
      .. "the default value is rounded", def.name)
  end
  return raw
end

local function unsignedAsDouble(raw)
  if raw >= 0 then return raw + 0.0 end
  return (raw >> 1) * 2.0 + (raw & 1)
end

local function buildSignal(ctx, def, enc, diagnostic)
  local db, core = ctx.db, ctx.core
  local name = def.name
  if ctx.signals[name] then
    ctx.warn("signal %s is defined twice; the second is left out", name)
    return
  end
  local size = math.tointeger(def.size)
  if not size or size < 1 or size > 64 then
    ctx.warn("signal %s: a size of %s bits can't be mapped (1 to 64); the signal is left out",
      name, text.number(def.size))
    return
  end
  local id = ctx.id("signal", name)
  local raw = initialRaw(ctx, def)
  local encoding = enc and ctx.encoding(enc)
  local encodingType = encoding and encoding.encodingType or core.Q9_ENCODING_DIRECT
  local coding = named(created(db:createCoding(ctx.id("coding", name), size, encodingType,
    encoding and encoding.unit)), name)

  local top = size == 64 and 18446744073709551615.0 or ((1 << size) - 1) + 0.0
  local default, flags, minValue, maxValue = unsignedAsDouble(raw), 0xC0000003, 0.0, top
  if encoding and encodingType ~= core.Q9_ENCODING_ASCII and (#encoding.internal > 0) then
    local physical, item = encodings.physicalOf(encoding, raw)
    if physical then default = physical end
    coding:addInternalToPhysicalComputations(table.unpack(encoding.internal))
    coding:addPhysicalToInternalComputations(table.unpack(encodings.inverseFor(encoding, default, item)))
    -- Limits: the span of the physical ranges, else of the logical values.
    local lo, hi = math.huge, -math.huge
    for _, p in ipairs(encoding.physical) do
      lo, hi = math.min(lo, p.image.lo), math.max(hi, p.image.hi)
    end
    if lo > hi then
      for _, l in ipairs(encoding.logical) do lo, hi = math.min(lo, l.value), math.max(hi, l.value) end
    end
    flags, minValue, maxValue = 0x80000003, lo, hi
  elseif encodingType ~= core.Q9_ENCODING_ASCII then
    -- Without an encoding the raw value is the value: an identity over the
    -- signal's whole range makes every value valid and encodable.
    local identity = created(db:createIdentityComputation(ctx.id("compu", name, "identity")))
    identity:addRange(0, top, 0xC0000003)
    local inverse = created(db:createIdentityComputation(ctx.id("compu", name, "identity", "inverse")))
    inverse:addRange(0, top, 0x80000003)
    coding:addInternalToPhysicalComputations(identity)
    coding:addPhysicalToInternalComputations(inverse)
  else
    default = 0.0
  end

  local signal = named(created(db:createSignal(id, flags, default, minValue, maxValue, coding)), name)
  if diagnostic then signal:setDescription(ctx.language, "diagnostic signal") end
  ctx.signals[name] = {node = signal, def = def, size = size}
end

local function buildSignals(ctx, s)
  local ofSignal = representations(ctx, s)
  for _, def in ipairs(s.signals) do buildSignal(ctx, def, ofSignal[def.name], false) end
  for _, def in ipairs(s.diagnosticsignals or {}) do buildSignal(ctx, def, ofSignal[def.name], true) end
  for name in pairs(ofSignal) do
    if not ctx.signals[name] then ctx.warn("signal representation names the signal %s, which is not defined", name) end
  end
end

--------------------------------------------------------------------------
-- Frames

-- LIN 2.x frames carry the enhanced checksum, unless a LIN 1.x slave
-- publishes or reads them; diagnostic frames always carry the classic one.
local function checksumFlags(ctx, def, diagnostic)
  if diagnostic or ctx.protocol < 2 then return 0 end
  local involved = {[def.publishedby] = true}
  for _, inst in ipairs(def) do
    local signal = ctx.signals[inst.name]
    for _, reader in ipairs(signal and signal.def.subscribedby or {}) do involved[reader] = true end
  end
  for node in pairs(involved) do
    local version = ctx.nodeProtocol[node]
    if version and version < 2 then return 0 end
  end
  return ctx.core.Q9_FLAG_LIN_ENH_CHECKSUM
end

local function claimFrameName(ctx, name)
  if ctx.frameNames[name] then
    ctx.warn("frame %s is defined twice; the second is left out", name)
    return false
  end
  ctx.frameNames[name] = true
  return true
end

local function checkIdentifier(ctx, name, ident)
  if not ident or ident < 0 or ident > 63 then
    ctx.warn("frame %s: identifier %s is outside 0 to 63; the frame is left out", name, text.number(ident))
    return false
  end
  if ctx.usedIds[ident] then
    ctx.warn("frame %s: identifier %s is already used by %s on this channel", name, text.hex(ident),
      ctx.usedIds[ident])
  end
  ctx.usedIds[ident] = name
  return true
end

local function frameWithTriggering(ctx, name, ident, length, flags, publisher)
  local db = ctx.db
  local frame = named(created(db:createFrame(ctx.id("frame", name), length)), name)
  local ecu = publisher and ctx.ecus[publisher]
  if publisher and not ecu then
    ctx.warn("frame %s: publisher %s is no node of the file", name, publisher)
  end
  local triggering = named(created(db:createIdentifierBasedTriggering(ctx.id("triggering", name), ident, flags,
    frame, ecu, ctx.channel)), name)
  return frame, triggering
end

-- A frame with signals: frame, triggering, one PDU filling the frame, and
-- a signal instance per signal entry that fits.
local function buildSignalFrame(ctx, def, diagnostic)
  local db = ctx.db
  local name = def.name
  local ident = math.tointeger(def.ident)
  if not claimFrameName(ctx, name) or not checkIdentifier(ctx, name, ident) then return end
  local length = diagnostic and 8 or math.tointeger(def.size)
  if not length or length < 1 or length > 8 then
    ctx.warn("frame %s: a length of %s bytes can't be mapped (1 to 8); the frame is left out",
      name, text.number(def.size))
    return
  end
  local publisher = def.publishedby
  if diagnostic then publisher = ident == 0x3C and ctx.master or nil end
  local frame, triggering = frameWithTriggering(ctx, name, ident, length,
    checksumFlags(ctx, def, diagnostic), publisher)
  if diagnostic then frame:setDescription(ctx.language, "diagnostic frame") end
  local pdu = named(created(db:createSignalPDU(ctx.id("PDU", name), length * 8)), name)
  created(db:createPDUInstance(ctx.id("PDUInstance", name), ctx.core.Q9_BYTEORDER_LITTLEENDIAN, 0, -1, pdu, frame))
  local placed = {}
  for _, inst in ipairs(def) do
    local signal = ctx.signals[inst.name]
    local offset = math.tointeger(inst.offset)
    if not signal then
      ctx.warn("frame %s: signal %s is not defined; it is left out", name, inst.name)
    elseif placed[inst.name] then
      ctx.warn("frame %s: signal %s is placed twice; the second is left out", name, inst.name)
    elseif not offset or offset < 0 or offset + signal.size > length * 8 then
      ctx.warn("frame %s: signal %s at bit %s with %d bits sticks out of the frame's %d bytes; it is left out",
        name, inst.name, text.number(inst.offset), signal.size, length)
    else
      placed[inst.name] = true
      created(db:createSignalInstance(ctx.id("instance", name, inst.name), ctx.core.Q9_BYTEORDER_LITTLEENDIAN, offset, -1,
        signal.node, pdu))
    end
  end
  ctx.frames[name] = {node = frame, triggering = triggering, pdu = pdu, length = length, ident = ident,
                      unconditional = not diagnostic}
  if not diagnostic and DIAGNOSTIC_IDS[ident] then
    ctx.warn("frame %s uses the diagnostic identifier %s", name, text.hex(ident))
  end
end

-- An event-triggered frame answers with one of its associated frames, whose
-- first byte is that frame's protected identifier. So its PDU is
-- multiplexed on that byte: one part per associated frame, holding the
-- associated frame's own PDU.
local function buildEventTriggered(ctx, def)
  local db, core = ctx.db, ctx.core
  local name = def.name
  local ident = math.tointeger(def.ident)
  local associated, length = {}, nil
  for _, frameName in ipairs(def) do
    local f = ctx.frames[frameName]
    if not f or not f.unconditional then
      ctx.warn("event-triggered frame %s: %s is no unconditional frame; it is left out", name, frameName)
    else
      if length and f.length ~= length then
        ctx.warn("event-triggered frame %s: associated frames differ in length (%d and %d bytes); "
          .. "the frame takes %d", name, length, f.length, math.max(length, f.length))
      end
      length = math.max(length or 0, f.length)
      associated[#associated + 1] = {name = frameName, frame = f}
    end
  end
  if not claimFrameName(ctx, name) or not checkIdentifier(ctx, name, ident) then return end
  length = length or 8
  local flags = core.Q9_FLAG_LIN_ENH_CHECKSUM
  for _, a in ipairs(associated) do
    if a.frame.triggering.flags == 0 then flags = 0 end
  end
  if ctx.protocol < 2 then flags = 0 end
  local frame, triggering = frameWithTriggering(ctx, name, ident, length, flags, nil)
  frame:setDescription(ctx.language, "event-triggered frame")
  local mux = named(created(db:createMultiplexedPDU(ctx.id("PDU", name), length * 8, core.Q9_BYTEORDER_LITTLEENDIAN,
    0, 8, 0)), name)
  created(db:createPDUInstance(ctx.id("PDUInstance", name), core.Q9_BYTEORDER_LITTLEENDIAN, 0, -1, mux, frame))
  for _, a in ipairs(associated) do
    local part = named(created(db:createMultiplexedPart(ctx.id("part", name, a.name),
      protectedId(a.frame.ident), mux)), a.name)
    mux:addDynamicParts(part)
    part:setReference(a.frame.pdu)
    a.frame.pdu:addParents(part)
  end
  ctx.frames[name] = {node = frame, triggering = triggering, pdu = mux, length = length, ident = ident,
                      collisionTable = def.collisionresolvingscheduletable}
end

-- A sporadic frame has no identifier of its own: the master sends one of
-- its associated frames in the slot. It becomes a group of references to
-- those frames in priority order.
local function buildSporadic(ctx, def)
  local name = def.name
  if not claimFrameName(ctx, name) then return end
  ctx.sporadicGroup = ctx.sporadicGroup or container(ctx, "sporadic", "Sporadic_frames")
  local id = ctx.id("frame", name)
  local group = named(created(ctx.db:createElementGroup(id, ctx.sporadicGroup, nil)), name)
  group:setDescription(ctx.language, "sporadic frame")
  for i, frameName in ipairs(def) do
    local f = ctx.frames[frameName]
    if not f or not f.unconditional then
      ctx.warn("sporadic frame %s: %s is no unconditional frame; it is left out", name, frameName)
    else
      reference(ctx, group, id .. "/" .. i, f.node, frameName, i - 1)
    end
  end
  ctx.frames[name] = {node = group, sporadic = true}
end

local function buildFrames(ctx, s)
  for _, def in ipairs(s.frames) do buildSignalFrame(ctx, def, false) end
  for _, def in ipairs(s.diagnosticframes or {}) do buildSignalFrame(ctx, def, true) end
  for _, def in ipairs(s.eventtriggeredframes or {}) do buildEventTriggered(ctx, def) end
  for _, def in ipairs(s.sporadicframes or {}) do buildSporadic(ctx, def) end
end

--------------------------------------------------------------------------
-- Node attributes

local function buildNodeAttributes(ctx, s)
  for _, attr in ipairs(s.nodeattributes or {}) do
    local name = attr.name
    local e = ctx.ecus[name]
    if not e then
      ctx.warn("node attributes of %s: no such node; they are left out", name)
    else
      local id = ctx.id("ECU", name)
      local lines = {string.format("LIN slave, protocol %s", attr.LIN_protocol),
                     "configured NAD " .. text.hex(attr.configured_NAD)}
      e:setParam(math.tointeger(attr.configured_NAD) or 0)
      if attr.diagaddress then lines[#lines + 1] = "initial NAD " .. text.hex(attr.diagaddress) end
      local p = attr.productid
      if p then
        lines[#lines + 1] = string.format("supplier 0x%04X, function 0x%04X%s", math.tointeger(p.supplierid) or 0,
          math.tointeger(p.functionid) or 0, p.variant and ", variant " .. text.number(p.variant) or "")
      end
      for _, key in ipairs({{"P2_min", "P2_min"}, {"ST_min", "ST_min"}, {"N_as", "N_As_timeout"},
                            {"N_CR_timeout", "N_Cr_timeout"}}) do
        if attr[key[1]] then lines[#lines + 1] = string.format("%s %s ms", key[2], text.number(attr[key[1]])) end
      end
      e:setDescription(ctx.language, table.concat(lines, "; "))

      local function signalRef(signalName, suffix, role)
        local signal = ctx.signals[signalName]
        if signal then reference(ctx, e, id .. "/" .. suffix, signal.node, role)
        else ctx.warn("node attributes of %s: %s %s is not defined", name, role, signalName) end
      end
      if attr.responseerror then signalRef(attr.responseerror, "response_error", "response_error") end
      for i, signalName in ipairs(attr.faultstatesignals or {}) do
        signalRef(signalName, "fault_state_signal/" .. i, "fault_state_signals")
      end
      -- param: the message id a LIN 2.0 file gives, else the frame's index.
      for i, cf in ipairs(attr.configurableframes or {}) do
        local f = ctx.frames[cf.name]
        if f and not f.sporadic then
          reference(ctx, e, id .. "/configurable_frame/" .. i, f.node, "configurable_frames",
            math.tointeger(cf.ident) or (i - 1))
        else
          ctx.warn("node attributes of %s: configurable frame %s is not defined", name, cf.name)
        end
      end
    end
  end
end

--------------------------------------------------------------------------
-- Schedule tables

local function commandText(slot)
  local t = slot.tag
  if t == "assignNAD" then return string.format("AssignNAD { %s }", slot.node)
  elseif t == "saveconfiguration" then return string.format("SaveConfiguration { %s }", slot.node)
  elseif t == "assignframeid" then return string.format("AssignFrameId { %s, %s }", slot.node, slot.frame)
  elseif t == "conditionalChangeNAD" then
    local v = {}
    for _, k in ipairs({"NAD", "id", "byte", "mask", "inv", "new_NAD"}) do v[#v + 1] = text.hex(slot[k]) end
    return "ConditionalChangeNAD { " .. table.concat(v, ", ") .. " }"
  elseif t == "assignframeidrange" then
    local v = {slot.node, text.number(slot.frameindex)}
    for _, pid in ipairs(slot.framePIDs or {}) do v[#v + 1] = text.hex(pid) end
    return "AssignFrameIdRange { " .. table.concat(v, ", ") .. " }"
  elseif t == "datadump" or t == "freeformat" then
    local v = {t == "datadump" and slot.name or nil}
    for _, b in ipairs(slot.data) do v[#v + 1] = text.hex(b) end
    return (t == "datadump" and "DataDump" or "FreeFormat") .. " { " .. table.concat(v, ", ") .. " }"
  end
  return t
end

local COMMAND_NAMES = {assignNAD = "AssignNAD", conditionalChangeNAD = "ConditionalChangeNAD",
                       datadump = "DataDump", saveconfiguration = "SaveConfiguration",
                       assignframeidrange = "AssignFrameIdRange", freeformat = "FreeFormat",
                       assignframeid = "AssignFrameId"}

local function buildSchedules(ctx, s)
  local tables = s.scheduletables or {}
  if #tables == 0 then return end
  local holder = container(ctx, "schedules", "Schedule_tables")
  for _, def in ipairs(tables) do
    local name = def.name
    if ctx.schedules[name] then
      ctx.warn("schedule table %s is defined twice; the second is left out", name)
    else
      local group = named(created(ctx.db:createElementGroup(ctx.id("schedule", name), holder, nil)), name)
      ctx.schedules[name] = group
      local cycle = 0
      for i, slot in ipairs(def) do
        local delay = text.microseconds(slot.time)
        cycle = cycle + delay
        local slotId = ctx.id("slot", name, i)
        if slot.tag == "identifier" then
          local f = ctx.frames[slot.frame]
          if f then
            reference(ctx, group, slotId, f.node, slot.frame, delay)
          else
            ctx.warn("schedule table %s, slot %d: frame %s is not defined; the slot stays empty",
              name, i, slot.frame)
            reference(ctx, group, slotId, nil, slot.frame, delay)
          end
        else
          -- Commands go out in the master request frame; the slot names the
          -- command and refers to the node it addresses.
          local nodeName = slot.node or (slot.tag == "datadump" and slot.name) or nil
          local target = nodeName and ctx.ecus[nodeName]
          if nodeName and not target then
            ctx.warn("schedule table %s, slot %d: node %s is not defined", name, i, nodeName)
          end
          local ref = reference(ctx, group, slotId, target, COMMAND_NAMES[slot.tag] or slot.tag, delay)
          ref:setDescription(ctx.language, commandText(slot))
        end
      end
      group:setParam(cycle)
      ctx.scheduleCount = ctx.scheduleCount + 1
    end
  end
  -- An event-triggered frame refers to the table that resolves its collisions.
  for name, f in pairs(ctx.frames) do
    if f.collisionTable then
      local group = ctx.schedules[f.collisionTable]
      if group then
        reference(ctx, f.triggering, ctx.id("triggering", name, "collision_resolving"), group,
          "collision_resolving_schedule_table")
      else
        ctx.warn("event-triggered frame %s: collision resolving schedule table %s is not defined",
          name, f.collisionTable)
      end
    end
  end
end

local function buildSignalGroups(ctx, s)
  local groups = s.signalgroups or {}
  if #groups == 0 then return end
  local holder = container(ctx, "signal-groups", "Signal_groups")
  for _, def in ipairs(groups) do
    local id = ctx.id("signal-group", def.name)
    local group = named(created(ctx.db:createElementGroup(id, holder, nil)), def.name)
    group:setParam(math.tointeger(def.size) or 0)
    for _, member in ipairs(def) do
      local signal = ctx.signals[member.name]
      if signal then
        reference(ctx, group, id .. "/" .. member.name, signal.node, member.name, math.tointeger(member.offset))
      else
        ctx.warn("signal group %s: signal %s is not defined", def.name, member.name)
      end
    end
  end
end

--------------------------------------------------------------------------

-- Builds everything of `tree` into db. options.prefix names the import
-- (cluster name and id prefix) in place of the channel name or the file's
-- base name; options.language is the language of descriptions and texts.
function B.build(db, node, path, options, report, tree)
  local core = text.core()
  local s = text.sections(tree)
  local global = s.global
  local base = options.prefix or (global.Channel_name ~= "" and global.Channel_name) or text.baseName(path)
  base = text.utf8(base)

  local warnings = 0
  local ctx = {
    db = db, core = core, language = options.language or 0, ecus = {}, ecuOrder = {}, signals = {}, frames = {}, frameNames = {},
    usedIds = {}, schedules = {}, nodeProtocol = {}, scheduleCount = 0,
    protocol = versionOf(global.LIN_protocol_version),
  }
  function ctx.warn(fmt, ...)
    warnings = warnings + 1
    if report then report(1, 0, string.format(fmt, ...)) end
  end
  ctx.prefix = uniquePrefix(db, base)
  ctx.clusterName = base
  function ctx.id(...)
    return ctx.prefix .. "/" .. table.concat({...}, "/")
  end
  local built = {}
  function ctx.encoding(enc)
    built[enc] = built[enc] or encodings.build(ctx, enc)
    return built[enc]
  end
  for _, attr in ipairs(s.nodeattributes or {}) do
    ctx.nodeProtocol[attr.name] = versionOf(attr.LIN_protocol)
  end

  local cluster, channel, made = target(ctx, node)
  ctx.cluster, ctx.channel = cluster, channel
  if made then
    channel:setParam(math.floor(global.LIN_speed * 1000 + 0.5))
    channel:setDescription(ctx.language, string.format("LIN protocol %s, language %s, %s kbps",
      global.LIN_protocol_version, global.LIN_language_version, text.number(global.LIN_speed)))
  end
  if cluster and cluster.clusterType ~= core.Q9_CLUSTERTYPE_LIN then
    ctx.warn("the cluster imported into is no LIN cluster")
  end
  for triggering in channel.frameTriggerings do
    if triggering.identifier then ctx.usedIds[math.tointeger(triggering.identifier)] = triggering.shortname or "?" end
  end

  buildNodes(ctx, s)
  buildSignals(ctx, s)
  buildFrames(ctx, s)
  buildNodeAttributes(ctx, s)
  buildSchedules(ctx, s)
  buildSignalGroups(ctx, s)
  return ctx, warnings
end

return B

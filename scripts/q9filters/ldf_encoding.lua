-- Signal encoding types of an LDF file as computations.
--
-- One encoding type becomes one set of computations, shared by the codings
-- of all signals that use it (a computation has no link back to its coding).
-- Internal to physical:
--   logical_value v, "text"   MappedTextComputation on the closed range v..v
--   logical_value v           IdentityComputation on v..v, so v counts as valid
--   physical_value a, b, s, o LinearComputation s, o on the closed range a..b
-- Physical to internal: the inverse of each, on the physical range.
--
-- The decoder visits every computation of a coding in list order and each
-- one sees the value that the previous one produced. So the texts come
-- first (they leave the value as it is), and the linear ones are ordered so
-- that no range's scaled values fall into the raw range of a later one.
local text = require "q9filters.ldf_text"

local E = {}

local RANGE_INTERNAL = 0xC0000003  -- valid, internal values, both limits closed
local RANGE_PHYSICAL = 0x80000003  -- valid, both limits closed

local function overlaps(a, b)
  return a.lo <= b.hi and b.lo <= a.hi
end

-- Kahn's algorithm over "must come before" edges, lowest file position first
-- among the ready ones so that independent ranges keep the file's order.
-- Returns the order and, if the ranges scale into each other both ways, the
-- pairs that no order can keep apart.
local function orderLinear(items)
  local before, pending = {}, {}
  for i = 1, #items do before[i], pending[i] = {}, 0 end
  local clashes = {}
  for i, a in ipairs(items) do
    for j, b in ipairs(items) do
      -- a's results fall into b's raw range: b must be visited before a.
      if i ~= j and overlaps(a.image, b.raw) then
        before[j][#before[j] + 1] = i
        pending[i] = pending[i] + 1
        if j > i and overlaps(b.image, a.raw) then clashes[#clashes + 1] = {a, b} end
      end
    end
  end
  local order, done = {}, {}
  while #order < #items do
    local pick
    for i = 1, #items do
      if not done[i] and pending[i] == 0 then pick = i; break end
    end
    if not pick then  -- a cycle: keep the rest in file order
      for i = 1, #items do if not done[i] then pick = i; break end end
    end
    done[pick] = true
    order[#order + 1] = items[pick]
    for _, k in ipairs(before[pick]) do pending[k] = pending[k] - 1 end
  end
  return order, clashes
end

local function assertNode(node, status, what)
  if not node then error(string.format("creating %s failed with status %s", what, tostring(status)), 0) end
  return node
end

-- Builds the computations of one encoding type. `ctx` carries db, core,
-- ids and warn. The result describes what a coding needs:
--   internal, inverse: computation lists in the order to add them
--   encodingType: the Q9_ENCODING_ value for the coding
--   unit: UnitSpec or nil
--   physical: list of {raw, image, scale, offset} in decoding order
--   logical: list of {value, text}
function E.build(ctx, enc)
  local db, core = ctx.db, ctx.core
  local base = ctx.id("encoding", enc.name)
  local result = {name = enc.name, internal = {}, inverse = {}, physical = {}, logical = {},
                  encodingType = core.Q9_ENCODING_DIRECT}
  local linear, units = {}, {}

  for index, value in ipairs(enc) do
    local id = base .. "/" .. index
    if value.tag == "logicalvalue" then
      local v = value.intvalue
      local c
      if value.textvalue then
        local slot = db:stringCreateSlot(ctx.language, text.utf8(value.textvalue))
        c = assertNode(db:createMappedTextComputation(id, slot), nil, id)
      else
        c = assertNode(db:createIdentityComputation(id), nil, id)
      end
      c:addRange(v, v, RANGE_INTERNAL)
      local back = assertNode(db:createIdentityComputation(id .. "/inverse"), nil, id)
      back:addRange(v, v, RANGE_PHYSICAL)
      result.internal[#result.internal + 1] = c
      result.inverse[#result.inverse + 1] = back
      result.logical[#result.logical + 1] = {value = v, text = value.textvalue and text.utf8(value.textvalue),
                                             inverse = back}
    elseif value.tag == "physicalvalue" then
      local s, o = value.scale, value.offset
      local a, b = value.minvalue, value.maxvalue
      if a > b then a, b = b, a end
      local p, q = a * s + o, b * s + o
      if p > q then p, q = q, p end
      linear[#linear + 1] = {id = id, raw = {lo = a, hi = b}, image = {lo = p, hi = q},
                             scale = s, offset = o}
      if value.textvalue and value.textvalue ~= "" then units[#units + 1] = text.utf8(value.textvalue) end
      -- On integers a scale of exactly one adds only the whole part of the offset.
      if s == 1 and o ~= math.floor(o) then
        ctx.warn("signal encoding %s: physical range %s..%s has scale 1 and offset %s; "
          .. "the decoder adds only the whole part of the offset to integer values",
          enc.name, text.number(a), text.number(b), text.number(o))
      end
    elseif value.tag == "bcdvalue" then
      result.encodingType = core.Q9_ENCODING_PACKED_BCD
    elseif value.tag == "asciivalue" then
      result.encodingType = core.Q9_ENCODING_ASCII
    end
  end

  local order, clashes = orderLinear(linear)
  for _, pair in ipairs(clashes) do
    ctx.warn("signal encoding %s: physical ranges %s..%s and %s..%s scale into each other; "
      .. "values of one may be scaled a second time by the other", enc.name,
      text.number(pair[1].raw.lo), text.number(pair[1].raw.hi),
      text.number(pair[2].raw.lo), text.number(pair[2].raw.hi))
  end
  for _, item in ipairs(order) do
    local c = assertNode(db:createLinearComputation(item.id, item.scale, item.offset), nil, item.id)
    c:addRange(item.raw.lo, item.raw.hi, RANGE_INTERNAL)
    result.internal[#result.internal + 1] = c
    if item.scale ~= 0 then
      local back = assertNode(db:createLinearComputation(item.id .. "/inverse", 1 / item.scale,
        -item.offset / item.scale), nil, item.id)
      back:addRange(item.image.lo, item.image.hi, RANGE_PHYSICAL)
      result.inverse[#result.inverse + 1] = back
      item.inverse = back
    else
      ctx.warn("signal encoding %s: physical range %s..%s has scale 0; its values can't be encoded",
        enc.name, text.number(item.raw.lo), text.number(item.raw.hi))
    end
    result.physical[#result.physical + 1] = item
  end

  if result.encodingType == core.Q9_ENCODING_ASCII and (#linear > 0 or #result.logical > 0) then
    ctx.warn("signal encoding %s: ascii_value with logical or physical values; the values don't apply to text",
      enc.name)
  end

  if #units > 0 then
    for i = 2, #units do
      if units[i] ~= units[1] then
        ctx.warn("signal encoding %s: physical ranges name the units '%s' and '%s'; the coding takes '%s'",
          enc.name, units[1], units[i], units[1])
        break
      end
    end
    local id = ctx.id("unit", enc.name)
    result.unit = assertNode(db:createUnitSpec(id, ctx.language, units[1]), nil, id)
    result.unit:setShortName(units[1])
  end
  return result
end

-- The physical value of a raw value by an encoding's computations, the way
-- the decoder finds it; nil if no physical range holds it.
function E.physicalOf(encoding, raw)
  for _, item in ipairs(encoding.physical) do
    if raw >= item.raw.lo and raw <= item.raw.hi then return raw * item.scale + item.offset, item end
  end
  return nil
end

-- The inverse computations with the one that holds `physical` first: the
-- encoder turns a signal's default value into raw bits through the first
-- inverse computation of its coding, whatever its range.
function E.inverseFor(encoding, physical, item)
  local first = item and item.inverse
  if not first then
    for _, logical in ipairs(encoding.logical) do
      if logical.value == physical then first = logical.inverse; break end
    end
  end
  local list = {first}
  for _, c in ipairs(encoding.inverse) do
    if c ~= first then list[#list + 1] = c end
  end
  return list
end

return E

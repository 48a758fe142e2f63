-- LIN description files (LDF): detection, database id, import and the
-- summary of a file. The reader in the library turns the file into a tree
-- of tables; ldf_build walks it and makes the nodes. LDF has no export.
--
-- The second text holds options, "key=value" pairs separated by ";":
--   prefix=<text>   the cluster's name and id prefix instead of Channel_name
--   language=<n>    the language of descriptions, units and value texts (0)
-- Reports, as in the DBC filter: first = 0 information, 1 something that
-- could not be mapped (the rest still imports); second = for information,
-- what the text names (0 the file, 1 an ECU, 2 a frame, 3 a signal), else 0.
-- A file the reader refuses raises an error with the reader's message.
local text = require "q9filters.ldf_text"
local build = require "q9filters.ldf_build"

local M = {
  name = "ldf",
  importFilter = "LIN description files (*.ldf)|*.ldf",
}

-- The start of a file with its comments taken out, enough to see the head.
local function head(path)
  local file = io.open(path, "rb")
  if not file then return nil end
  local content = file:read(65536) or ""
  file:close()
  content = content:gsub("/%*.-%*/", " "):gsub("/%*.*$", " "):gsub("//[^\n]*", " ")
  return content
end

-- An LDF file begins, after blanks and comments, with its keyword.
function M.detect(path)
  local content = head(path)
  return content ~= nil and content:match("^%s*LIN_description_file[^%w_]") ~= nil
end

-- The Channel_name of the file head, if it has one.
function M.databaseId(path)
  local content = head(path)
  if not content then return nil end
  local headText = content:match("^(.-)Nodes%s*{") or content
  local name = headText:match('Channel_name%s*=%s*"(.-)"%s*;')
  return name and text.utf8(name) or nil
end

function M.import(db, node, path, options, report)
  local function warn(message)
    if report then report(1, 0, message) end
  end
  local parsed = text.options(options, warn)
  local tree = text.read(path)
  local ctx = build.build(db, node, path, parsed, report, tree)
  if report then
    local frames, signals = 0, 0
    for _, f in pairs(ctx.frames) do if not f.sporadic then frames = frames + 1 end end
    for _ in pairs(ctx.signals) do signals = signals + 1 end
    report(0, 0, string.format("%s: %d ECUs, %d frames, %d signals, %d schedule tables imported under the id prefix %s",
      text.baseName(path), #ctx.ecuOrder, frames, signals, ctx.scheduleCount, ctx.prefix))
  end
  return nil
end

-- What a file holds, without touching the database: the second number
-- says what a line names (0 the file or a schedule table, 1 an ECU,
-- 2 a frame, 3 a signal), as in the DBC filter's summary.
function M.info(db, path, report)
  local tree = text.read(path)
  local s = text.sections(tree)
  local function say(what, fmt, ...)
    if report then report(0, what, string.format(fmt, ...)) end
  end
  local g = s.global
  say(0, "LIN description file, protocol %s, language %s, %s kbps%s", g.LIN_protocol_version,
    g.LIN_language_version, text.number(g.LIN_speed),
    g.Channel_name and ", channel " .. text.utf8(g.Channel_name) or "")

  say(1, "%s: master", s.nodes.Master.name)
  for _, slave in ipairs(s.nodes.Slaves) do say(1, "%s: slave", slave) end

  for _, f in ipairs(s.frames) do
    say(2, "%s: identifier %s, %d bytes, sent by %s", f.name, text.hex(f.ident), math.tointeger(f.size) or 0,
      f.publishedby)
  end
  for _, f in ipairs(s.eventtriggeredframes or {}) do
    say(2, "%s: event-triggered, identifier %s, for %s", f.name, text.hex(f.ident), table.concat(f, ", "))
  end
  for _, f in ipairs(s.sporadicframes or {}) do
    say(2, "%s: sporadic, for %s", f.name, table.concat(f, ", "))
  end
  for _, f in ipairs(s.diagnosticframes or {}) do
    say(2, "%s: diagnostic, identifier %s", f.name, text.hex(f.ident))
  end
  for _, sig in ipairs(s.signals) do
    say(3, "%s: %s bits, sent by %s", sig.name, text.number(sig.size), sig.publishedby)
  end
  for _, sig in ipairs(s.diagnosticsignals or {}) do
    say(3, "%s: diagnostic, %s bits", sig.name, text.number(sig.size))
  end
  for _, t in ipairs(s.scheduletables or {}) do
    local cycle = 0
    for _, slot in ipairs(t) do cycle = cycle + slot.time end
    say(0, "schedule table %s: %d slots, %s ms", t.name, #t, text.number(cycle))
  end
  return nil
end

return M

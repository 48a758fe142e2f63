-- What the DBC and LDF exports share: the plain name of an element, lists
-- from iterators, the channel an export writes, and names made into the
-- identifiers of a file format.

local E = {}

-- The plain name of an element: its short name, else the last part of its id.
function E.plainName(node)
  local short = node.shortname
  if short and short ~= "" then return short end
  return (node.eid or ""):match("([^/]*)$")
end

function E.list(iterator)
  local items = {}
  if iterator then
    for item in iterator do items[#items + 1] = item end
  end
  return items
end

-- The channel to write and its cluster: the node given (a channel, or a
-- cluster whose first channel counts), else the first channel of the first
-- cluster of clusterType. kind names the bus ("CAN", "LIN"), format the
-- file ("DBC", "LDF").
function E.pickChannel(db, node, clusterType, kind, format, warn)
  local plainName = E.plainName
  local cluster
  if node == nil then
    for candidate in db:enumClusters() or function() end do
      if candidate.clusterType == clusterType then cluster = candidate; break end
    end
    if not cluster then error("the database holds no " .. kind .. " cluster to export", 0) end
  elseif node.tag == "Cluster" then
    cluster = node
  elseif node.tag == "Channel" then
    local group = node.group
    if group and group.tag == "Cluster" then
      if group.clusterType ~= clusterType then
        error(string.format("channel %s belongs to cluster %s, which is no %s cluster", plainName(node),
          plainName(group), kind), 0)
      end
      return node, group
    end
    return node, nil
  else
    error(string.format("a%s %s file is written from a cluster or a channel, not from a %s",
      format == "LDF" and "n" or "", format, node.tag), 0)
  end
  if cluster.clusterType ~= clusterType then
    error(string.format("cluster %s is no %s cluster", plainName(cluster), kind), 0)
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

-- A function that makes a name an identifier of a format: letters, digits
-- and "_", not starting with a digit, none of keywords (a set).
function E.identifierMaker(keywords)
  return function(name)
    local word = (name or ""):gsub("[^%w_]", "_")
    if word == "" then word = "unnamed" end
    if word:find("^%d") then word = "_" .. word end
    if keywords[word] then word = word .. "_" end
    return word
  end
end

return E

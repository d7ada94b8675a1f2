-- Shows what kqft, kqft-server and hosts of their library say to each other:
-- in Wireshark and tshark 4.0 and later. Copy it into the folder that "Help,
-- About, Folders, Personal Lua Plugins" names, or
--
--   tshark -X lua_script:kqft.lua -r capture.pcapng -Y kqft
--
-- TCP port 9999 unless the preferences name another one; links over other
-- ports are recognised by their first message. The format of each message
-- stands in docs/protocol.md.

local kqft = Proto("kqft", "Measurement file transfer")

local HEAD_BYTES = 20
local MARKER = "KQFT"
local VERSION = 1
local MOST_BODY_BYTES = 2147483499
local MOST_ROWS = 1000 -- of a list, each a line of the tree

local MESSAGES = {
  [2500] = "announce a file to receive",
  [2501] = "upload data",
  [2502] = "end of an uploaded file",
  [2503] = "stop a download",
  [2504] = "total size of files",
  [2505] = "ask for a file",
  [2506] = "download data",
  [2507] = "end of a downloaded file",
  [2508] = "upload data could not be stored",
  [2509] = "ask for missing ranges",
  [2510] = "report a resent range",
  [2511] = "ask for the project directory",
  [2512] = "ask for the list of projects",
  [2513] = "delete a project",
  [2514] = "ask for the files of a project",
}

local RESULTS = {
  [1] = "success",
  [-2] = "the server did not answer in time",
  [-4] = "the request could not be sent",
  [-7] = "the server cannot open the file",
  [-8] = "the server cannot create the file",
  [-9] = "the server is ending this session",
  [-10] = "the server cannot write the data",
  [-11] = "refused: the session is sending a download",
  [-12] = "refused: the session is receiving an upload",
  [-13] = "data arrived while no upload was prepared",
  [-14] = "no connection to the server",
  [-15] = "an upload is already running",
  [-16] = "a download is already running",
  [-17] = "the local file cannot be opened",
  [-18] = "a request could not be sent",
  [-19] = "no answer within 10 s",
  [-20] = "the connection was lost while sending",
  [-21] = "the end of the file was not confirmed within 30 s",
  [-22] = "no answer about file sizes within 5 s",
  [-23] = "the local file cannot be created",
  [-24] = "the request for a file could not be sent",
  [-25] = "no answer about a file within 5 s",
  [-26] = "no data arrived for more than 10 s",
  [-27] = "received data could not be written",
  [-28] = "the server stopped sending before the end of the file",
  [-29] = "refused: a transfer is running in this session",
  [-30] = "the lost-info file does not exist",
  [-31] = "a lost-info file cannot be loaded",
  [-32] = "an operation on a lost-info file failed",
  [-33] = "the local file cannot be positioned",
  [-34] = "the local file is shorter than expected",
  [-35] = "the missing ranges could not be fetched",
  [-36] = "the list of missing ranges is malformed",
  [-37] = "not enough free disk space",
}

local CREATE = { [0] = "keep what it holds", [1] = "empty or create it" }
local SIDES = { [1] = "client", [2] = "server" }

local f = {
  marker = ProtoField.string("kqft.marker", "Marker"),
  code = ProtoField.uint32("kqft.code", "Message", base.DEC, MESSAGES),
  version = ProtoField.uint32("kqft.version", "Version"),
  length = ProtoField.uint32("kqft.length", "Body length"),
  zero = ProtoField.uint32("kqft.zero", "Zero"),
  from = ProtoField.uint8("kqft.from", "From", base.DEC, SIDES),
  file = ProtoField.string("kqft.file", "File"),
  create = ProtoField.uint8("kqft.create", "Create flag", base.DEC, CREATE),
  path = ProtoField.string("kqft.path", "Path"),
  result = ProtoField.int32("kqft.result", "Result", base.DEC, RESULTS),
  held = ProtoField.int64("kqft.held", "Size before it was opened"),
  position = ProtoField.int64("kqft.position", "Position"),
  data = ProtoField.bytes("kqft.data", "Data"),
  bytes = ProtoField.uint32("kqft.bytes", "Bytes of data"),
  total = ProtoField.int64("kqft.total", "Total size"),
  name = ProtoField.string("kqft.name", "Name"),
  lost = ProtoField.string("kqft.lost", "Missing ranges"),
  index = ProtoField.int32("kqft.range", "Range number"),
  new_position = ProtoField.int64("kqft.range.position", "New position"),
  new_length = ProtoField.int64("kqft.range.length", "New length"),
  directory = ProtoField.string("kqft.directory", "Project directory"),
  project = ProtoField.string("kqft.project", "Project"),
  list = ProtoField.string("kqft.list", "List"),
  refused = ProtoField.bool("kqft.refused", "The server refused"),
  further = ProtoField.bytes("kqft.further", "Further bytes, ignored"),
  skipped = ProtoField.bytes("kqft.skipped", "No message"),
  request_in = ProtoField.framenum("kqft.request_in", "Request in", base.NONE, frametype.REQUEST),
  answer_in = ProtoField.framenum("kqft.answer_in", "Answer in", base.NONE, frametype.RESPONSE),
  time = ProtoField.relative_time("kqft.time", "Time since the request"),
}
kqft.fields = f

local malformed = ProtoExpert.new("kqft.malformed", "Malformed", expert.group.MALFORMED,
  expert.severity.ERROR)
local failed = ProtoExpert.new("kqft.failed", "Failure", expert.group.RESPONSE_CODE,
  expert.severity.WARN)
local not_begun = ProtoExpert.new("kqft.not_begun", "The capture begins within a message",
  expert.group.SEQUENCE, expert.severity.NOTE)
local unknown = ProtoExpert.new("kqft.unknown", "Unknown message, which both sides ignore",
  expert.group.UNDECODED, expert.severity.NOTE)
kqft.experts = { malformed, failed, not_begun, unknown }

kqft.prefs.port = Pref.uint("TCP port", 9999, "where servers listen")

-- What bodies hold, in the order in which it travels, from the client (c) and
-- from the server (s); "?" marks what may be missing.
local BODIES = {
  [2500] = { c = { "create", "path" }, s = { "result", "held" } },
  [2501] = { c = { "position", "data" } },
  [2502] = { c = {}, s = {} },
  [2503] = { c = {}, s = {} },
  [2504] = { c = { "names" }, s = { "total" } },
  [2505] = { c = { "position", "path" }, s = { "result" } },
  [2506] = { s = { "position", "data" } },
  [2507] = { s = { "result" } },
  [2508] = { s = { "result" } },
  [2509] = { c = { "path" }, s = { "result", "lost" } },
  [2510] = { c = { "index", "new_position", "new_length" }, s = { "result" } },
  [2511] = { c = {}, s = { "directory" } },
  [2512] = { c = {}, s = { "list" } },
  [2513] = { c = { "project" }, s = { "result", "refused?" } },
  [2514] = { c = { "project" }, s = { "list" } },
}

local BYTES = {
  create = 1, refused = 1, result = 4, index = 4,
  held = 8, position = 8, total = 8, new_position = 8, new_length = 8,
}

local stream_of = Field.new("tcp.stream")

local streams -- by tcp.stream: what its messages so far came to
local seen -- by packet and place in it: what was found about a message

function kqft.init()
  streams = {}
  seen = {}
end

-- The first message of a link comes from the client, unless its port tells.
local function is_from_client(pinfo, stream)
  local port = kqft.prefs.port
  if pinfo.dst_port == port and pinfo.src_port ~= port then return true end
  if pinfo.src_port == port and pinfo.dst_port ~= port then return false end
  local me = tostring(pinfo.src) .. " " .. pinfo.src_port
  stream.client = stream.client or me
  return me == stream.client
end

-- An answer belongs to the oldest request of its code that has none.
local function match(pinfo, stream, message)
  local waiting = stream.waiting[message.code] or { first = 1, last = 0 }
  stream.waiting[message.code] = waiting
  if message.from_client then
    waiting.last = waiting.last + 1
    waiting[waiting.last] = message
    return
  end
  local request = waiting[waiting.first]
  if request == nil then return end
  waiting[waiting.first] = nil
  waiting.first = waiting.first + 1
  request.answer_in = pinfo.number
  message.request_in = request.number
  message.seconds = pinfo.abs_ts - request.at
  message.file = request.file
end

-- Which file a message is about. Data and ends go by the last 2500 or 2505: on
-- one link a file follows the other.
local function note_file(stream, message, path)
  local code = message.code
  if message.from_client then
    if code == 2500 then stream.upload = path end
    if code == 2505 then stream.download = path end
    if code == 2509 then stream.lost = path end
    if code == 2500 or code == 2505 or code == 2509 then message.file = path end
    if code == 2501 or code == 2502 then message.file = stream.upload end
    if code == 2510 then message.file = stream.lost end
  elseif code == 2506 or code == 2507 then
    message.file = stream.download
  end
end

-- The path that a request names, for those that come after it.
local function path_of(body, code)
  local before = code == 2500 and 1 or code == 2505 and 8 or 0
  if body:len() <= before then return "" end
  return body:range(before):string(ENC_UTF_8)
end

-- Everything about a message that others tell, found out once: packets are
-- dissected again in any order.
local function look_up(tvb, at, pinfo, code, length, body)
  local key = pinfo.number .. ":" .. tvb:offset() + at .. ":" .. code .. ":" .. length
  if seen[key] then return seen[key] end
  local number = stream_of() and stream_of().value or 0
  local stream = streams[number] or { waiting = {} }
  streams[number] = stream
  local message = { code = code, number = pinfo.number, at = pinfo.abs_ts }
  message.from_client = is_from_client(pinfo, stream)
  if MESSAGES[code] then
    note_file(stream, message, path_of(body, code))
    local both = BODIES[code]
    if both.c and both.s then match(pinfo, stream, message) end
  end
  stream.begun = true
  seen[key] = message
  return message
end

-- A line for each name of a 2504.
local function add_names(tree, range)
  local text = range:string(ENC_UTF_8)
  local from, rows = 1, 0
  while from <= #text and rows < MOST_ROWS do
    local bar = text:find("|", from, true) or #text + 1
    tree:add(f.name, range, text:sub(from, bar - 1))
    from = bar + 1
    rows = rows + 1
  end
end

local function attribute(entry, name)
  local value = entry:match(name .. '="([^"]*)"') or ""
  return (value:gsub("&lt;", "<"):gsub("&gt;", ">"):gsub("&quot;", '"'):gsub("&apos;", "'")
    :gsub("&amp;", "&"))
end

-- A line for each entry of a list of projects or files.
local function add_list(tree, range)
  local text = range:string(ENC_UTF_8)
  local under = tree:add(f.list, range, #text .. " bytes")
  local from, rows = 1, 0
  while rows < MOST_ROWS do
    local begins, behind = text:find("<Channel_Key_Value ", from, true)
    local ends = begins and text:find("/>", behind, true)
    if not ends then break end
    local entry = text:sub(behind, ends)
    local name = attribute(entry, "m_strName")
    local path = attribute(entry, "m_strPath")
    local size = attribute(entry, "m_llSize")
    under:add(f.name, range, name ~= "" and name or path):append_text(
      (name ~= "" and ", " .. path or "") .. ", " .. size .. " bytes")
    from = ends + 2
    rows = rows + 1
  end
  under:append_text(", " .. rows .. (rows == MOST_ROWS and " or more" or "") .. " entries")
end

-- H|position,length,...|boundaries of segments
local function add_lost(tree, range)
  local text = range:string(ENC_UTF_8)
  local item = tree:add(f.lost, range, text)
  local head, ranges, sizes = text:match("^(%d+)|([%d,]*)|([%d,]*)$")
  if not head then
    item:add_proto_expert_info(malformed, "Not of the form head|ranges|sizes")
    return
  end
  item:append_text(" (behind a head of " .. head .. " bytes)")
  local rows = 0
  for position, length in ranges:gmatch("(%d+),(%d+)") do
    item:add(f.name, range, position .. " and " .. length .. " bytes from there")
      :set_text("Range " .. rows .. ": " .. length .. " bytes at " .. position)
    rows = rows + 1
    if rows == MOST_ROWS then break end
  end
end

-- Adds one field of a body. Returns how many bytes it took, or nil.
local function add_field(tree, body, at, kind, shown)
  local rest = body:len() - at
  local optional = kind:sub(-1) == "?"
  kind = kind:gsub("%?", "")
  local bytes = BYTES[kind]
  if bytes then
    if rest < bytes then return optional and 0 or nil end
    local range = body:range(at, bytes)
    tree:add_le(f[kind], range)
    shown[kind] = bytes == 8 and tostring(range:le_int64()) or range:le_int()
    return bytes
  end
  shown[kind] = rest
  if kind == "data" then tree:add(f.bytes, rest):set_generated() end
  if rest == 0 then return 0 end
  local range = body:range(at, rest)
  if kind == "data" then
    tree:add(f.data, range)
  elseif kind == "names" then
    add_names(tree, range)
  elseif kind == "list" then
    add_list(tree, range)
  elseif kind == "lost" then
    add_lost(tree, range)
  else
    tree:add_packet_field(f[kind], range, ENC_UTF_8)
    shown[kind] = range:string(ENC_UTF_8)
  end
  return rest
end

local function add_body(tree, head, body, message)
  local shown = {}
  local kinds = BODIES[message.code][message.from_client and "c" or "s"]
  if not kinds then
    head:add_proto_expert_info(malformed, "A message that this side does not send")
    return shown
  end
  local at = 0
  for _, kind in ipairs(kinds) do
    local bytes = add_field(tree, body, at, kind, shown)
    if not bytes then
      head:add_proto_expert_info(malformed, "The body is too short: " .. kind .. " is missing")
      return shown
    end
    at = at + bytes
  end
  if at < body:len() then tree:add(f.further, body:range(at)) end
  return shown
end

local function line_of(message, shown)
  local line = message.code .. " " .. MESSAGES[message.code]
  if not message.from_client and BODIES[message.code].c then line = line .. ", answer" end
  local about = message.file or shown.project or shown.directory
  if about and about ~= "" then line = line .. ": " .. about end
  if shown.position then line = line .. " from " .. shown.position end
  if type(shown.data) == "number" then line = line .. ", " .. shown.data .. " bytes" end
  if shown.held then line = line .. ", had " .. shown.held .. " bytes" end
  if shown.total then line = line .. ": " .. shown.total .. " bytes" end
  if shown.new_length then
    line = line .. ", range " .. shown.index .. " now " .. shown.new_length .. " bytes at " ..
      shown.new_position
  end
  if shown.result then
    line = line .. " = " .. shown.result
    if shown.result ~= 1 then line = line .. " (" .. (RESULTS[shown.result] or "unknown") .. ")" end
  end
  if shown.refused == 1 then line = line .. " (refused)" end
  return line
end

local function add_links(tree, message)
  tree:add(f.from, message.from_client and 1 or 2):set_generated()
  if message.file and message.file ~= "" then tree:add(f.file, message.file):set_generated() end
  if message.request_in then
    tree:add(f.request_in, message.request_in):set_generated()
    local whole = math.floor(message.seconds)
    local part = math.floor((message.seconds - whole) * 1e9)
    tree:add(f.time, NSTime.new(whole, part)):set_generated()
  end
  if message.answer_in then tree:add(f.answer_in, message.answer_in):set_generated() end
end

-- One whole message. Returns its line for the column of information.
local function add_message(tvb, at, length, pinfo, root)
  local all = tvb:range(at, HEAD_BYTES + length)
  local code = tvb:range(at + 4, 4):le_uint()
  local body = length > 0 and tvb:range(at + HEAD_BYTES, length):tvb() or ByteArray.new():tvb("none")
  local message = look_up(tvb, at, pinfo, code, length, body)
  local tree = root:add(kqft, all)
  tree:add(f.marker, tvb:range(at, 4))
  local head = tree:add_le(f.code, tvb:range(at + 4, 4))
  tree:add_le(f.version, tvb:range(at + 8, 4))
  tree:add_le(f.length, tvb:range(at + 12, 4))
  tree:add_le(f.zero, tvb:range(at + 16, 4))
  if not MESSAGES[code] then
    head:add_proto_expert_info(unknown)
    return code .. " unknown message"
  end
  local shown = add_body(tree, head, body, message)
  add_links(tree, message)
  local line = line_of(message, shown)
  tree:append_text(", " .. line)
  if shown.result and shown.result ~= 1 then
    head:add_proto_expert_info(failed, RESULTS[shown.result] or "unknown result")
  end
  return line
end

-- Why no message begins here; nil when one does.
local function why_none(tvb, at)
  if tvb:range(at, 4):string() ~= MARKER then return "No message: its marker is missing" end
  local version = tvb:range(at + 8, 4):le_uint()
  if version ~= VERSION then return "No message: version " .. version end
  if tvb:range(at + 12, 4):le_uint() > MOST_BODY_BYTES then return "No message: too long" end
  return nil
end

local function may_begin(tvb, at)
  local bytes = math.min(4, tvb:len() - at)
  return tvb:range(at, bytes):string() == MARKER:sub(1, bytes)
end

-- Where the next message may begin behind `at`.
local function next_marker(tvb, at)
  local found = tvb:raw(at + 1):find(MARKER, 1, true)
  return found and at + found or tvb:len()
end

local function skip(tvb, at, pinfo, root, why)
  local to = next_marker(tvb, at)
  local number = stream_of() and stream_of().value or 0
  local tree = root:add(kqft, tvb:range(at, to - at))
  local item = tree:add(f.skipped, tvb:range(at, to - at))
  local key = pinfo.number .. ":" .. tvb:offset() + at .. ":skipped"
  seen[key] = seen[key] or { begun = streams[number] ~= nil and streams[number].begun }
  if seen[key].begun or why ~= "No message: its marker is missing" then
    item:add_proto_expert_info(malformed, why)
    return to, why
  end
  item:add_proto_expert_info(not_begun)
  return to, "within a message"
end

-- Dissects what is whole at `at`: returns where it ends and its line, or nil
-- and how many bytes are wanted.
local function step(tvb, at, pinfo, root)
  local rest = tvb:len() - at
  if rest < HEAD_BYTES and may_begin(tvb, at) then return nil, DESEGMENT_ONE_MORE_SEGMENT end
  local why = rest < HEAD_BYTES and "No message: its marker is missing" or why_none(tvb, at)
  if why then return skip(tvb, at, pinfo, root, why) end
  local length = tvb:range(at + 12, 4):le_uint()
  if rest < HEAD_BYTES + length then return nil, HEAD_BYTES + length - rest end
  return at + HEAD_BYTES + length, add_message(tvb, at, length, pinfo, root)
end

function kqft.dissector(tvb, pinfo, root)
  pinfo.cols.protocol = "KQFT"
  local lines = {}
  local at = 0
  while at < tvb:len() do
    local behind, line = step(tvb, at, pinfo, root)
    if not behind then
      -- What the capture itself cut short never comes.
      if tvb:len() == tvb:reported_len() then
        pinfo.desegment_offset = at
        pinfo.desegment_len = line
      end
      break
    end
    at = behind
    if #lines < 8 then lines[#lines + 1] = line end
  end
  if #lines > 0 then pinfo.cols.info = table.concat(lines, " | ") end
  return tvb:len()
end

kqft:register_heuristic("tcp", function(tvb, pinfo, root)
  if tvb:len() < HEAD_BYTES or why_none(tvb, 0) then return false end
  if not MESSAGES[tvb:range(4, 4):le_uint()] then return false end
  pinfo.conversation = kqft
  kqft.dissector(tvb, pinfo, root)
  return true
end)

local ports = DissectorTable.get("tcp.port")
local listening = 9999
ports:add(listening, kqft)

function kqft.prefs_changed()
  if listening == kqft.prefs.port then return end
  ports:remove(listening, kqft)
  listening = kqft.prefs.port
  ports:add(listening, kqft)
end

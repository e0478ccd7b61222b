-- Wireshark dissector for the captures that "RouterLog export" writes from the port router's log.
--
-- Put this file into Wireshark's folder of personal Lua plugins (Help, About, Folders), or start it with
--     wireshark -X lua_script:morvane.lua capture.pcapng
--
-- Not as root: newer versions then run no plugins.
--
-- Fields: morvane.number, morvane.type, morvane.devicetype, morvane.port, morvane.length, morvane.payload,
-- morvane.checksum, morvane.checksum.bad, morvane.gap, morvane.request, morvane.reply, morvane.time, morvane.firmware,
-- morvane.cut, morvane.event. Filters that are useful: morvane.gap, morvane.checksum.bad, morvane.firmware,
-- morvane.devicetype == 3 && morvane.port == 1.

local HEADER = 12
local OVERHEAD = 14
local PORT_TRAFFIC = 1
local IDLE = 238

local types = { [PORT_TRAFFIC] = "data", [IDLE] = "idle packet" }
local directions = { [0] = "to the instrument", [1] = "from the instrument" }

local usb = Proto("morvane", "Morvane packet")
local port = Proto("morvane_port", "Morvane port payload")
local event = Proto("morvane_event", "Morvane router event")

local f = {
    direction = ProtoField.uint8("morvane.direction", "Direction", base.DEC, directions),
    number = ProtoField.uint8("morvane.number", "Packet number"),
    type = ProtoField.uint8("morvane.type", "Packet type", base.DEC, types),
    devicetype = ProtoField.uint8("morvane.devicetype", "Device type"),
    port = ProtoField.uint8("morvane.port", "Port"),
    broadcast = ProtoField.bool("morvane.broadcast", "To all ports of this number"),
    length = ProtoField.uint16("morvane.length", "Payload length"),
    payload = ProtoField.bytes("morvane.payload", "Payload"),
    checksum = ProtoField.uint8("morvane.checksum", "Checksum", base.HEX),
    bad = ProtoField.bool("morvane.checksum.bad", "Checksum is wrong"),
    gap = ProtoField.uint8("morvane.gap", "Packets left out (modulo 256)"),
    request = ProtoField.framenum("morvane.request", "Request", base.NONE, frametype.REQUEST),
    reply = ProtoField.framenum("morvane.reply", "Reply", base.NONE, frametype.RESPONSE),
    time = ProtoField.relative_time("morvane.time", "Time from the request"),
    firmware = ProtoField.string("morvane.firmware", "Firmware dialogue"),
    cut = ProtoField.bool("morvane.cut", "The log shows a part only"),
    rest = ProtoField.bytes("morvane.rest", "Rest of a packet that began before"),
    outside = ProtoField.bytes("morvane.outside", "Bytes outside packets"),
    event = ProtoField.string("morvane.event", "Router"),
    portdevicetype = ProtoField.int32("morvane.client.devicetype", "Device type"),
    portnumber = ProtoField.int32("morvane.client.port", "Port"),
    portlength = ProtoField.uint32("morvane.client.length", "Payload length"),
}
usb.fields = f
local e = {
    gap = ProtoExpert.new("morvane.expert.gap", "Packets were left out", expert.group.SEQUENCE, expert.severity.WARN),
    bad = ProtoExpert.new("morvane.expert.checksum", "Wrong checksum", expert.group.CHECKSUM, expert.severity.ERROR),
    outside = ProtoExpert.new("morvane.expert.outside", "Bytes outside packets", expert.group.UNDECODED,
                              expert.severity.WARN),
}
usb.experts = e

-- What the first pass over the capture finds. Wireshark shows packets in any order afterwards.
local state
local function reset()
    state = {
        expected = nil,   -- number of the next packet from the instrument; nil at a connection's beginning
        written = nil,    -- number of the last packet to the instrument
        rest = 0,         -- bytes of an unfinished packet that the next block begins with
        head = "",        -- the beginning of a header that the next block ends
        open = {},        -- requests without a reply, by address and interface
        gaps = {},        -- by frame number and offset
        skip = {},        -- by frame number: how much of the block belongs to the packet before
        requestOf = {},   -- by frame number of the reply
        replyOf = {},     -- by frame number of the request
        timeOf = {},      -- of a request's frame
    }
end
reset()
usb.init = reset

local function open_request(key, pinfo)
    state.open[key] = state.open[key] or { first = 1, last = 0 }
    local queue = state.open[key]
    queue.last = queue.last + 1
    queue[queue.last] = pinfo.number
    state.timeOf[pinfo.number] = pinfo.abs_ts
end

local function close_request(key, pinfo)
    local queue = state.open[key]
    if queue == nil or queue.first > queue.last then return end
    local request = queue[queue.first]
    queue[queue.first] = nil
    queue.first = queue.first + 1
    state.requestOf[pinfo.number] = request
    state.replyOf[request] = state.replyOf[request] or pinfo.number
end

local function link(tree, pinfo)
    local request = state.requestOf[pinfo.number]
    if request then
        tree:add(f.request, request):set_generated()
        local seconds = pinfo.abs_ts - state.timeOf[request]
        tree:add(f.time, NSTime.new(math.floor(seconds), math.floor((seconds % 1) * 1e9 + 0.5))):set_generated()
    end
    local reply = state.replyOf[pinfo.number]
    if reply then tree:add(f.reply, reply):set_generated() end
end

local function new_connection()
    state.expected = nil
    state.rest = 0
    state.head = ""
    state.open = {}
end

-- The checks that depend on the packets before: once, in the order of the capture.
local function remember(tvb, offset, pinfo, inbound, number, kind, key)
    if inbound then
        if state.expected ~= nil and number ~= state.expected then
            state.gaps[pinfo.number .. ":" .. offset] = (number - state.expected) % 256
        end
        state.expected = (number + 1) % 256
        if kind == PORT_TRAFFIC then close_request(key, pinfo) end
    else
        -- The router counts from 0 at each connection.
        if state.written ~= nil and number == 0 and state.written ~= 255 then new_connection() end
        state.written = number
        if kind == PORT_TRAFFIC then open_request(key, pinfo) end
    end
end

local function readable(range)
    return (range:raw():gsub("\r$", ""):gsub("[^\32-\126]", "."))
end

local function firmware(tree, tvb, offset, length)
    if length == 0 then return nil end
    local range = tvb(offset, length)
    local text = readable(range)
    if text:sub(1, 9) == "DOWNLOAD " then
        text = "DOWNLOAD, chunk"
    end
    tree:add(f.firmware, range, text)
    return text
end

-- One frame that begins at `offset`; returns how many bytes of the block it takes, or nil when too little is known.
local function dissect_frame(tvb, offset, pinfo, tree, inbound, whole)
    local known = tvb:len() - offset
    if known < HEADER then return nil end
    local payload = tvb(offset + 10, 2):uint()
    local length = payload + OVERHEAD
    local number, kind = tvb(offset + 2, 1):uint(), tvb(offset + 3, 1):uint()
    local x, y = tvb(offset + 6, 1):uint(), tvb(offset + 7, 1):uint()
    local key = x .. "," .. y
    if not pinfo.visited then remember(tvb, offset, pinfo, inbound, number, kind, key) end

    local shown = math.min(length, known)
    local sub = tree:add(usb, tvb(offset, shown))
    sub:append_text(string.format(", number %d, (%d,%d), %d bytes", number, x, y, payload))
    sub:add(f.direction, inbound and 1 or 0):set_generated()
    sub:add(f.number, tvb(offset + 2, 1))
    sub:add(f.type, tvb(offset + 3, 1))
    sub:add(f.devicetype, tvb(offset + 6, 1))
    sub:add(f.port, tvb(offset + 7, 1))
    if x == 255 then sub:add(f.broadcast, tvb(offset + 6, 1), true) end
    sub:add(f.length, tvb(offset + 10, 2))
    local there = math.min(payload, known - HEADER)
    if there > 0 then sub:add(f.payload, tvb(offset + HEADER, there)) end
    local text
    if x == 0 and y == 0 and kind == PORT_TRAFFIC then text = firmware(sub, tvb, offset + HEADER, there) end
    if known > HEADER + payload then
        local sum = 0
        local bytes = tvb(offset + HEADER, math.max(payload, 1)):bytes()
        for i = 0, payload - 1 do sum = bit32 and bit32.bxor(sum, bytes:get_index(i)) or bit.bxor(sum, bytes:get_index(i)) end
        local at = tvb(offset + HEADER + payload, 1)
        sub:add(f.checksum, at)
        if at:uint() ~= sum then
            sub:add(f.bad, at, true)
            sub:add_proto_expert_info(e.bad, string.format("Checksum 0x%02X, the payload's is 0x%02X", at:uint(), sum))
        end
    elseif offset + length > tvb:len() then
        sub:add(f.cut, true):set_generated()
    end
    local gap = state.gaps[pinfo.number .. ":" .. offset]
    if gap then
        sub:add(f.gap, tvb(offset + 2, 1), gap)
        sub:add_proto_expert_info(e.gap, gap .. " packets left out (modulo 256)")
    end
    link(sub, pinfo)
    return length, string.format("#%d %s (%d,%d) %d bytes%s", number, types[kind] or ("type " .. kind), x, y, payload,
                                 text and (": " .. text) or (gap and ", GAP" or ""))
end

-- A header that two blocks share: its packet belongs to the second one.
local function finish_header(tvb, pinfo)
    local joined = state.head .. tvb:raw()
    if #joined < HEADER then
        state.head = joined
        state.rest = tvb:len()
        return
    end
    local number, kind, x, y = joined:byte(3), joined:byte(4), joined:byte(7), joined:byte(8)
    state.rest = joined:byte(11) * 256 + joined:byte(12) + OVERHEAD - #state.head
    state.head = ""
    remember(tvb, 0, pinfo, true, number, kind, x .. "," .. y)
end

-- Where "##" stands at or after `offset`; the block's length when nowhere.
local function find_sync(tvb, offset)
    local at = tvb:raw():find("##", offset + 1, true)
    return at and at - 1 or tvb:len()
end

function usb.dissector(tvb, pinfo, root)
    local inbound = pinfo.p2p_dir == P2P_DIR_RECV
    local whole = tvb:reported_len()
    pinfo.cols.protocol = "MORVANE"
    pinfo.cols.src = inbound and "instrument" or "router"
    pinfo.cols.dst = inbound and "router" or "instrument"
    if not pinfo.visited then
        if inbound and state.head ~= "" then finish_header(tvb, pinfo) end
        state.skip[pinfo.number] = inbound and math.min(state.rest, whole) or 0
        if inbound then state.rest = state.rest - state.skip[pinfo.number] end
    end
    local offset = state.skip[pinfo.number] or 0
    local infos = {}
    if offset > 0 then
        local rest = root:add(usb, tvb(0, math.min(offset, tvb:len())))
        rest:add(f.rest, tvb(0, math.min(offset, tvb:len())))
        link(rest, pinfo)
        local gap = state.gaps[pinfo.number .. ":0"]
        if gap then
            rest:add(f.gap, gap):set_generated()
            rest:add_proto_expert_info(e.gap, gap .. " packets left out (modulo 256)")
        end
        infos[1] = "rest of a packet" .. (gap and ", GAP" or "")
    end
    while offset < tvb:len() do
        local at = find_sync(tvb, offset)
        if at > offset then
            local outside = root:add(f.outside, tvb(offset, at - offset))
            outside:add_proto_expert_info(e.outside)
            infos[#infos + 1] = "bytes outside packets"
            offset = at
        end
        if offset >= tvb:len() then break end
        local length, info = dissect_frame(tvb, offset, pinfo, root, inbound, whole)
        if length == nil then
            if tvb:len() < whole then
                root:add(f.cut, true):set_generated()
            else
                root:add(f.rest, tvb(offset)):set_text("Beginning of a packet that the next block ends")
                if not pinfo.visited and inbound then state.head = tvb(offset):raw() end
            end
            break
        end
        infos[#infos + 1] = info
        if not pinfo.visited and inbound and offset + length > whole then state.rest = offset + length - whole end
        offset = offset + length
    end
    pinfo.cols.info = table.concat(infos, "; ")
end

function port.dissector(tvb, pinfo, root)
    if tvb:len() < 8 then return end
    local inbound = pinfo.p2p_dir == P2P_DIR_RECV
    local x, y = tvb(0, 4):int(), tvb(4, 4):int()
    local length = tvb:reported_len() - 8
    local key = "client " .. x .. "," .. y
    if not pinfo.visited then
        if inbound then close_request(key, pinfo) else open_request(key, pinfo) end
    end
    pinfo.cols.protocol = "MORVANE-PORT"
    pinfo.cols.src = inbound and "router" or ("client of " .. x .. "," .. y)
    pinfo.cols.dst = inbound and ("client of " .. x .. "," .. y) or "router"
    pinfo.cols.info = string.format("%s (%d,%d) %d bytes", inbound and "reply to" or "request of", x, y, length)
    local sub = root:add(port, tvb())
    sub:add(f.portdevicetype, tvb(0, 4))
    sub:add(f.portnumber, tvb(4, 4))
    sub:add(f.portlength, length):set_generated()
    if tvb:len() > 8 then sub:add(f.payload, tvb(8)) end
    if tvb:len() < tvb:reported_len() then sub:add(f.cut, true):set_generated() end
    link(sub, pinfo)
end

function event.dissector(tvb, pinfo, root)
    local text = tvb:raw()
    if not pinfo.visited and (text:find("Connection to USB", 1, true) == 1) then new_connection() end
    pinfo.cols.protocol = "MORVANE-EVENT"
    pinfo.cols.info = text
    root:add(event, tvb()):add(f.event, tvb(), text)
end

local encapsulations = DissectorTable.get("wtap_encap")
encapsulations:add(wtap.USER0, usb)
encapsulations:add(wtap.USER1, port)
encapsulations:add(wtap.USER3, event)

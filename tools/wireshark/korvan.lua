-- Wireshark dissector for the line captures of korvan_ref_host and korvan_plc_sim (--pcap):
-- link type USER0, a pseudo-header of the tools' own (tools/common/line_capture.h), then the
-- frame as it went out or came in. It also decodes the frames on TCP as Wireshark captures them
-- on the network: on the PLC's port, the preference korvan.tcp_port (5020) or one given with
-- Decode As.
--
--   wireshark -X lua_script:tools/wireshark/korvan.lua capture.pcap
--   tshark -2 -X lua_script:tools/wireshark/korvan.lua -r capture.pcap
--   tshark -2 -X lua_script:tools/wireshark/korvan.lua -o korvan.tcp_port:5020 -r network.pcapng
--
-- Every field is under "korvan."; a damaged frame matches korvan.crc.status == "bad" (and
-- raises the expert info korvan.crc.bad). A reply names its request (korvan.request_in) and the
-- time since it (korvan.time); a request names its reply (korvan.reply_in) once the whole
-- capture has been read, which tshark does with -2.

local korvan = Proto("korvan", "Korvan PLC line")

-- The pseudo-header.
local HEADER_VERSION = 1
local MIN_HEADER_LENGTH = 10  -- version 1's fields
local SIDE_HOST = 0
local SIDE_NAMES = { [SIDE_HOST] = "host", [1] = "PLC", [2] = "tap" }
local DIRECTION_NAMES = { [0] = "sent", [1] = "received" }
local KIND_REQUEST, KIND_REPLY = 0, 1  -- and 2: bytes dropped
local KIND_NAMES = { [0] = "request", [1] = "reply", [2] = "dropped as line noise" }
local FAMILY_LOCAL, FAMILY_REMOTE = 0, 1
local FAMILY_NAMES = { [0] = "local", [1] = "remote", [2] = "not known" }

-- Local frames: station, function, area code, address (24 bits), count, then for writes a
-- payload length byte and the payload; CRC-16 at the end, low byte first.
local FN_READ_BITS, FN_WRITE_BITS, FN_READ_WORDS, FN_WRITE_WORDS = 0x1E, 0x1F, 0x20, 0x21
local FUNCTION_NAMES = {
    [FN_READ_BITS] = "read bits",
    [FN_WRITE_BITS] = "write bits",
    [FN_READ_WORDS] = "read words",
    [FN_WRITE_WORDS] = "write words",
}
local LOCAL_HEADER = 8
local LOCAL_READ_LENGTH = 10
local LOCAL_WRITE_HEADER = LOCAL_HEADER + 1  -- and the payload length byte
local CRC_LENGTH = 2
-- Remote frames: the length byte, owner, direction, port, station, area index, address (32
-- bits), count, mark, extra, the payload of a write, and an additive checksum byte.
local REMOTE_HEADER = 21
-- Replies: station, function, byte count, data, CRC.
local REPLY_HEADER = 3
local WRITE_REPLY_LENGTH = 10
-- Station 0 is every station's, and none answers it.
local BROADCAST_STATION = 0

-- The driver's area indexes and their wire codes: 0..13 are bit areas, 14..28 word areas, 29 a
-- bit of a word of area 14 (its writes go to code 0x80).
local AREA_CODES = { [0] = 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x0D, 0x08, 0x09, 0x0A, 0x0B,
    0x0C, 0x12, 0x80, 0x81, 0x82, 0x8D, 0x85, 0x83, 0x88, 0x8E, 0x86, 0x87, 0x8C, 0x91, 0x89,
    0x8A, 0x8B }
local LAST_BIT_AREA = 13
local BIT_OF_WORD_AREA = 29
local AREA_OF_CODE, CODE_NAMES, AREA_NAMES = {}, {}, {}
for area, code in pairs(AREA_CODES) do
    AREA_OF_CODE[code] = area
    CODE_NAMES[code] = "area " .. area
    AREA_NAMES[area] = area <= LAST_BIT_AREA and "bit area" or "word area"
end
AREA_NAMES[BIT_OF_WORD_AREA] = "bit of a word of area 14"

-- How much of the data the Info column shows.
local INFO_WORDS = 8
local INFO_BITS = 64
local INFO_HEX_BYTES = 16
-- How many words of a frame become items of their own; korvan.word.more counts the rest. The
-- longest local write carries about 1000, and the reply to a read of 65535 words would add as
-- many items as it has words on every pass.
local MAX_WORD_ITEMS = 1024

local f = {
    header_length = ProtoField.uint8("korvan.capture.header_length", "Header length"),
    version = ProtoField.uint8("korvan.capture.version", "Header version"),
    side = ProtoField.uint8("korvan.capture.side", "Captured by", base.DEC, SIDE_NAMES),
    direction = ProtoField.uint8("korvan.direction", "Direction", base.DEC, DIRECTION_NAMES),
    kind = ProtoField.uint8("korvan.kind", "Kind", base.DEC, KIND_NAMES),
    family = ProtoField.uint8("korvan.family", "Frame family", base.DEC, FAMILY_NAMES),
    exchange = ProtoField.uint32("korvan.exchange", "Exchange"),
    request_in = ProtoField.framenum("korvan.request_in", "Request in", base.NONE,
        frametype.REQUEST),
    reply_in = ProtoField.framenum("korvan.reply_in", "Reply in", base.NONE, frametype.RESPONSE),
    time = ProtoField.relative_time("korvan.time", "Time since request"),

    station = ProtoField.uint8("korvan.station", "Station"),
    func = ProtoField.uint8("korvan.function", "Function", base.HEX, FUNCTION_NAMES),
    area_code = ProtoField.uint8("korvan.area_code", "Area code", base.HEX, CODE_NAMES),
    area = ProtoField.uint16("korvan.area", "Area", base.DEC, AREA_NAMES),
    address = ProtoField.uint32("korvan.address", "Address"),
    count = ProtoField.uint16("korvan.count", "Count"),
    payload_length = ProtoField.uint8("korvan.payload_length", "Payload length"),
    payload = ProtoField.bytes("korvan.payload", "Payload"),
    byte_count = ProtoField.uint8("korvan.byte_count", "Byte count"),
    data = ProtoField.bytes("korvan.data", "Data"),
    word = ProtoField.uint16("korvan.word", "Word", base.HEX_DEC),
    word_more = ProtoField.uint32("korvan.word.more", "More words"),
    bits = ProtoField.string("korvan.bits", "Bits"),
    crc = ProtoField.uint16("korvan.crc", "CRC", base.HEX),
    crc_status = ProtoField.string("korvan.crc.status", "CRC status"),
    sum = ProtoField.uint8("korvan.sum", "Checksum", base.HEX),
    sum_status = ProtoField.string("korvan.sum.status", "Checksum status"),
    dropped = ProtoField.bytes("korvan.dropped", "Dropped bytes"),

    remote_length = ProtoField.uint8("korvan.remote.length", "Length"),
    remote_owner = ProtoField.uint8("korvan.remote.owner", "Owner"),
    remote_direction = ProtoField.uint8("korvan.remote.direction", "Direction", base.DEC,
        { [0] = "read" }),
    remote_port = ProtoField.uint8("korvan.remote.port", "Port"),
    remote_mark = ProtoField.int32("korvan.remote.mark", "Mark"),
    remote_extra = ProtoField.int32("korvan.remote.extra", "Extra"),
}
korvan.fields = f

local e = {
    bad_crc = ProtoExpert.new("korvan.crc.bad", "Bad CRC", expert.group.CHECKSUM,
        expert.severity.ERROR),
    bad_sum = ProtoExpert.new("korvan.sum.bad", "Bad checksum", expert.group.CHECKSUM,
        expert.severity.ERROR),
    no_reply = ProtoExpert.new("korvan.no_reply", "No reply in the capture",
        expert.group.SEQUENCE, expert.severity.WARN),
    reply_length = ProtoExpert.new("korvan.reply_length", "Reply length differs from the request's",
        expert.group.MALFORMED, expert.severity.WARN),
    dropped = ProtoExpert.new("korvan.dropped.note", "Bytes dropped as line noise",
        expert.group.SEQUENCE, expert.severity.WARN),
    short = ProtoExpert.new("korvan.short", "Frame too short", expert.group.MALFORMED,
        expert.severity.ERROR),
    header = ProtoExpert.new("korvan.capture.unknown", "Unknown capture header",
        expert.group.MALFORMED, expert.severity.ERROR),
}
korvan.experts = e

-- What a reply needs from its request, by capturing side and exchange number.
local requests = {}
-- On TCP: each stream's requests waiting for a reply, oldest first, and each frame's request
-- or reply record (see the TCP part below).
local waiting, stream_frames = {}, {}

function korvan.init()
    requests = {}
    waiting, stream_frames = {}, {}
end

local function exchange_key(side, exchange)
    return side .. ":" .. exchange
end

-- Bytes are read out of Lua strings: a TvbRange a byte would cost a call into Wireshark each.
local byte = string.byte
local band, bxor, rshift = bit32.band, bit32.bxor, bit32.rshift

-- CRC-16 (polynomial 0xA001, reflected) a byte at a time, through each byte's remainder split
-- into its low and high bytes: two bit32 calls a byte.
local CRC_LOW, CRC_HIGH = {}, {}
for value = 0, 255 do
    local crc = value
    for _ = 1, 8 do
        crc = band(crc, 1) == 1 and bxor(rshift(crc, 1), 0xA001) or rshift(crc, 1)
    end
    CRC_LOW[value], CRC_HIGH[value] = band(crc, 0xFF), rshift(crc, 8)
end

-- The CRC the string `bytes` (or its first `n` bytes) ends in, low byte first, and the one
-- computed over the bytes before it.
local function crc_of(bytes, n)
    n = n or #bytes
    local low, high = 0xFF, 0xFF
    for i = 1, n - CRC_LENGTH do
        local index = bxor(low, byte(bytes, i))
        low, high = bxor(high, CRC_LOW[index]), CRC_HIGH[index]
    end
    local stated_low, stated_high = byte(bytes, n - 1, n)
    return stated_high * 256 + stated_low, high * 256 + low
end

-- The CRC in the last two bytes of `frame`.
local function add_crc(tree, frame)
    local stated, computed = crc_of(frame:raw())
    local item = tree:add_le(f.crc, frame(frame:len() - CRC_LENGTH, CRC_LENGTH))
    local good = stated == computed
    local status = tree:add(f.crc_status, good and "good" or "bad"):set_generated()
    if not good then
        item:append_text(string.format(" [should be 0x%04x]", computed))
        status:add_proto_expert_info(e.bad_crc)
    end
    return good
end

-- The additive checksum the string `bytes` (or its first `n` bytes) ends in, and the one
-- computed over the bytes before it.
local function sum_of(bytes, n)
    n = n or #bytes
    local sum = 0
    for i = 1, n - 1 do
        sum = sum + byte(bytes, i)
    end
    return byte(bytes, n), sum % 256
end

-- The additive checksum in the last byte of a remote frame.
local function add_sum(tree, frame)
    local stated, sum = sum_of(frame:raw())
    local item = tree:add(f.sum, frame(frame:len() - 1, 1))
    local good = stated == sum
    local status = tree:add(f.sum_status, good and "good" or "bad"):set_generated()
    if not good then
        item:append_text(string.format(" [should be 0x%02x]", sum))
        status:add_proto_expert_info(e.bad_sum)
    end
    return good
end

-- Words, each as a field up to MAX_WORD_ITEMS; `little` for payloads held low byte first.
-- Returns the Info text.
local function add_words(tree, range, little)
    local words = math.floor(range:len() / 2)
    local add = little and tree.add_le or tree.add
    for i = 0, math.min(words, MAX_WORD_ITEMS) - 1 do
        add(tree, f.word, range(2 * i, 2))
    end
    if words > MAX_WORD_ITEMS then
        local more = words - MAX_WORD_ITEMS
        tree:add(f.word_more, range(2 * MAX_WORD_ITEMS), more,
            string.format("… %d more words", more))
    end
    local shown = {}
    local first = range(0, 2 * math.min(words, INFO_WORDS)):raw()
    for i = 1, #first, 2 do
        local high, low = byte(first, i, i + 1)
        if little then
            high, low = low, high
        end
        shown[#shown + 1] = string.format("0x%02x%02x", high, low)
    end
    if words > INFO_WORDS then
        shown[#shown + 1] = "..."
    end
    return table.concat(shown, " ")
end

-- Each byte's bits as a run of 0 and 1, least significant first.
local BIT_RUNS = {}
for value = 0, 255 do
    local run = {}
    for i = 0, 7 do
        run[i + 1] = bit32.extract(value, i)
    end
    BIT_RUNS[string.char(value)] = table.concat(run)
end

-- `count` bits packed least significant bit first, the first bit first. Returns the Info text.
local function add_bits(tree, range, count)
    local bytes = range(0, math.min(math.ceil(count / 8), range:len())):raw()
    local text = bytes:gsub(".", BIT_RUNS):sub(1, count)
    tree:add(f.bits, range, text)
    if #text > INFO_BITS then
        return text:sub(1, INFO_BITS) .. "..."
    end
    return text
end

-- A local word write's payload goes high byte first: swapped back into the driver's order, it
-- is a bit area's packed bits or the words.
local function swapped_pairs(range)
    local swapped = range:raw():gsub("(.)(.)", "%2%1")
    return ByteArray.new(swapped, true):tvb("Payload in the driver's byte order"):range()
end

-- The Info text of a frame shorter than `shortest`, which shows nothing else of it.
local function too_short(tree, what, n, shortest)
    tree:add_proto_expert_info(e.short, string.format("Frame too short: a %s of %d bytes; " ..
        "the shortest is %d", what, n, shortest))
    return string.format("short %s: %d bytes", what, n)
end

-- A request's fields. Returns the Info text, what its reply needs (nil for a frame too short to
-- tell) and whether its check value holds.
local function add_local_request(tree, frame)
    local n = frame:len()
    if n < LOCAL_READ_LENGTH then
        return too_short(tree, "local frame", n, LOCAL_READ_LENGTH), nil
    end
    local station, fn = frame(0, 1):uint(), frame(1, 1):uint()
    local write = fn == FN_WRITE_BITS or fn == FN_WRITE_WORDS
    if write and n < LOCAL_WRITE_HEADER + CRC_LENGTH then
        return too_short(tree, "local write", n, LOCAL_WRITE_HEADER + CRC_LENGTH), nil
    end
    local code, address, count = frame(2, 1):uint(), frame(3, 3):uint(), frame(6, 2):uint()
    tree:add(f.station, frame(0, 1))
    tree:add(f.func, frame(1, 1))
    tree:add(f.area_code, frame(2, 1))
    if AREA_OF_CODE[code] then
        tree:add(f.area, AREA_OF_CODE[code]):set_generated()
    end
    tree:add(f.address, frame(3, 3))
    tree:add(f.count, frame(6, 2))
    local info = string.format("%s st=%d area 0x%02x @%d x%d", FUNCTION_NAMES[fn] or
        string.format("function 0x%02x", fn), station, code, address, count)
    local bit_area = code > 0 and code < 0x80
    local expect = { station = station }
    if fn == FN_READ_BITS then
        expect.reply_length = 2 * math.ceil(count / 16) + 5
        expect.bits = count
    elseif fn == FN_READ_WORDS then
        expect.reply_length = 2 * count + 5
    elseif write then
        expect.reply_length = WRITE_REPLY_LENGTH
        expect.write = true
        -- The length byte keeps 8 bits; the payload runs up to the CRC.
        tree:add(f.payload_length, frame(LOCAL_HEADER, 1))
        local payload = frame(LOCAL_WRITE_HEADER, n - LOCAL_WRITE_HEADER - CRC_LENGTH)
        if payload:len() > 0 then
            local item = tree:add(f.payload, payload)
            local values = fn == FN_WRITE_WORDS and swapped_pairs(payload) or payload
            if bit_area then
                info = info .. ": " .. add_bits(item, values, count)
            else
                info = info .. ": " .. add_words(item, payload, false)
            end
        end
    end
    local good = add_crc(tree, frame)
    if not good then
        info = info .. " [bad CRC]"
    end
    return info, expect, good
end

local function add_remote_request(tree, frame)
    local n = frame:len()
    if n <= REMOTE_HEADER then
        return too_short(tree, "remote frame", n, REMOTE_HEADER + 1), nil
    end
    local write = frame(2, 1):uint() ~= 0
    local station, area = frame(4, 1):uint(), frame(5, 2):uint()
    local address, count = frame(7, 4):uint(), frame(11, 2):uint()
    tree:add(f.remote_length, frame(0, 1))
    tree:add(f.remote_owner, frame(1, 1))
    tree:add(f.remote_direction, frame(2, 1))
    tree:add(f.remote_port, frame(3, 1))
    tree:add(f.station, frame(4, 1))
    tree:add(f.area, frame(5, 2))
    if AREA_CODES[area] then
        tree:add(f.area_code, AREA_CODES[area]):set_generated()
    end
    tree:add(f.address, frame(7, 4))
    tree:add(f.count, frame(11, 2))
    tree:add(f.remote_mark, frame(13, 4))
    tree:add(f.remote_extra, frame(17, 4))
    local where = area == BIT_OF_WORD_AREA and
        string.format("%d.%d", math.floor(address / 16), address % 16) or tostring(address)
    local info = string.format("remote %s st=%d area %d @%s x%d", write and "write" or "read",
        station, area, where, count)
    local expect = { station = station, write = write }
    if write then
        expect.reply_length = WRITE_REPLY_LENGTH
        local payload = frame(REMOTE_HEADER, n - REMOTE_HEADER - 1)
        if payload:len() > 0 then
            -- The driver's own order: words low byte first, bits packed.
            local item = tree:add(f.payload, payload)
            if area == BIT_OF_WORD_AREA then
                info = info .. ": " .. add_bits(item, payload(0, 1), 1)
            elseif area <= LAST_BIT_AREA then
                info = info .. ": " .. add_bits(item, payload, count)
            else
                info = info .. ": " .. add_words(item, payload, true)
            end
        end
    else
        -- Reads count 16-bit groups in bit areas.
        expect.reply_length = 2 * count + 5
        if area <= LAST_BIT_AREA then
            expect.bits = 16 * count
        end
    end
    local good = add_sum(tree, frame)
    if not good then
        info = info .. " [bad checksum]"
    end
    return info, expect, good
end

-- A reply, read with what its request said (nil when the capture lacks the request).
local function add_reply(tree, frame, expect)
    local n = frame:len()
    if n < REPLY_HEADER + CRC_LENGTH then
        return too_short(tree, "reply", n, REPLY_HEADER + CRC_LENGTH)
    end
    local station = frame(0, 1):uint()
    tree:add(f.station, frame(0, 1))
    tree:add(f.func, frame(1, 1))
    local info
    if expect and expect.write then
        info = string.format("reply st=%d write acknowledged", station)
    else
        tree:add(f.byte_count, frame(2, 1))
        local data = frame(REPLY_HEADER, n - REPLY_HEADER - CRC_LENGTH)
        info = string.format("reply st=%d %d bytes", station, data:len())
        if data:len() > 0 then
            local item = tree:add(f.data, data)
            if expect and expect.bits then
                info = info .. ": " .. add_bits(item, data, expect.bits)
            else
                info = info .. ": " .. add_words(item, data, false)
            end
        end
    end
    if expect and expect.reply_length and expect.reply_length ~= n then
        tree:add_proto_expert_info(e.reply_length,
            string.format("Reply of %d bytes; the request expects %d", n, expect.reply_length))
        info = info .. string.format(" [%d bytes, expected %d]", n, expect.reply_length)
    end
    if not add_crc(tree, frame) then
        info = info .. " [bad CRC]"
    end
    return info
end

-- Pairs a reply with its request: links both ways and the time between them.
local function pair_reply(tree, pinfo, request)
    if not request then
        return
    end
    tree:add(f.request_in, request.frame):set_generated()
    local microseconds = math.floor((pinfo.abs_ts - request.time) * 1e6 + 0.5)
    tree:add(f.time, NSTime.new(math.floor(microseconds / 1e6), (microseconds % 1e6) * 1000))
        :set_generated()
    if not pinfo.visited and not request.reply then
        request.reply = pinfo.number
    end
end

-- Links a request to its reply, or says that none is in the capture (known once the whole
-- capture has been read). Returns what the Info column adds.
local function pair_request(tree, pinfo, request, expect)
    if request and request.reply then
        tree:add(f.reply_in, request.reply):set_generated()
    elseif pinfo.visited and expect and expect.station ~= BROADCAST_STATION then
        tree:add_proto_expert_info(e.no_reply)
        return " [no reply]"
    end
    return ""
end

-- The first bytes in hexadecimal, for the Info column.
local function hex_text(range)
    local shown = { byte(range:raw(0, math.min(range:len(), INFO_HEX_BYTES)), 1, -1) }
    for i, value in ipairs(shown) do
        shown[i] = string.format("%02x", value)
    end
    if range:len() > INFO_HEX_BYTES then
        shown[#shown + 1] = "..."
    end
    return table.concat(shown, " ")
end

local function is_good_crc(frame)
    if frame:len() < REPLY_HEADER + CRC_LENGTH then
        return false
    end
    local stated, computed = crc_of(frame:raw())
    return stated == computed
end

-- The header's one-byte codes, each with its known values.
local HEADER_CODES = {
    { at = 3, name = "side", names = SIDE_NAMES },
    { at = 4, name = "direction", names = DIRECTION_NAMES },
    { at = 5, name = "kind", names = KIND_NAMES },
    { at = 6, name = "family", names = FAMILY_NAMES },
}

-- Why a packet of `n` bytes, `head` its first ones, does not start with a header this dissector
-- reads; nil when it does.
local function header_fault(n, head)
    if n < MIN_HEADER_LENGTH then
        return string.format("%d bytes, shorter than a header", n)
    end
    local length, version = byte(head, 1, 2)
    if version ~= HEADER_VERSION then
        return string.format("version %d", version)
    end
    if length < MIN_HEADER_LENGTH then
        return string.format("length %d, below %d", length, MIN_HEADER_LENGTH)
    end
    if length >= n then
        return string.format("length %d leaves no frame", length)
    end
    for _, code in ipairs(HEADER_CODES) do
        local value = byte(head, code.at)
        if not code.names[value] then
            return string.format("%s %d", code.name, value)
        end
    end
    return nil
end

-- Frames on TCP, as Wireshark captures them on the network between a panel (or the reference
-- host) and a PLC (or the simulator). No header of ours comes with them: the frames' own bytes
-- say where each ends and its family, and the PLC's port says which are requests (sent to it)
-- and which replies (sent from it). Nor does a stream number its exchanges: a reply is paired
-- with a request of its stream still waiting by their order and by what the reply fits.

local LENGTH_WRAP = 256       -- length bytes keep 8 bits
local LONGEST_REQUEST = 2048  -- a local write with the longest payload the driver sends
local REMOTE_MIN_LENGTH = REMOTE_HEADER + 1
-- Bytes enough to tell a frame's length: the shortest request has them all, a reply's header.
local REQUEST_LENGTH_BYTES = LOCAL_READ_LENGTH
local REPLY_LENGTH_BYTES = REPLY_HEADER
-- Wireshark's port_type of TCP ports (PT_TCP).
local PORT_TYPE_TCP = 2
-- A frame's key in `stream_frames`: its packet's number times this, plus its offset.
local FRAME_KEY_STRIDE = 2 ^ 24

-- Whether the bytes being dissected go to the PLC, and (on the first pass) their stream's
-- waiting requests: set for dissect_tcp_pdus, which calls back before it returns.
local stream_to_plc, stream_waiting

local function is_local_read(fn)
    return fn == FN_READ_BITS or fn == FN_READ_WORDS
end

local function is_local_write(fn)
    return fn == FN_WRITE_BITS or fn == FN_WRITE_WORDS
end

-- Whether the first `n` bytes of the string `bytes` are a local frame, ending in their CRC,
-- or a remote frame, their length first and their sum last.
local function crc_holds(bytes, n)
    if n < LOCAL_READ_LENGTH or n > #bytes then
        return false
    end
    local stated, computed = crc_of(bytes, n)
    return stated == computed
end

local function sum_holds(bytes, n)
    if n < REMOTE_MIN_LENGTH or n > #bytes or byte(bytes, 1) ~= n % LENGTH_WRAP then
        return false
    end
    local stated, computed = sum_of(bytes, n)
    return stated == computed
end

-- The lengths a request's first bytes state: as a local frame (nil when it names no local
-- function) and as a remote one.
local function stated_request_lengths(bytes)
    local first, fn = byte(bytes, 1, 2)
    local remote = first >= REMOTE_MIN_LENGTH and first or first + LENGTH_WRAP
    if is_local_read(fn) then
        return LOCAL_READ_LENGTH, remote
    elseif is_local_write(fn) then
        return LOCAL_WRITE_HEADER + byte(bytes, LOCAL_WRITE_HEADER) + CRC_LENGTH, remote
    end
    return nil, remote
end

-- Whether a request whose check holds starts `at` bytes into the string `bytes`.
local function good_request_at(bytes, at)
    if #bytes - at < REQUEST_LENGTH_BYTES then
        return false
    end
    local rest = bytes:sub(at + 1)
    local as_local, as_remote = stated_request_lengths(rest)
    local n = math.min(as_local or as_remote, as_remote)
    return crc_holds(rest, n) or sum_holds(rest, n)
end

-- The length of the request that starts the string `bytes`, of which more may follow, as the
-- simulator finds it: of the lengths its first bytes allow (each stated length, and 256, 512,
-- ... bytes more up to the longest request), the shortest whose check holds, a longer one
-- waited for while the bytes end before it. A damaged request (or bytes that are no request)
-- holds at no length: it ends where the bytes end or a good request starts, at one of its
-- lengths, so that it does not swallow the requests behind it.
local function request_length(bytes)
    local as_local, as_remote = stated_request_lengths(bytes)
    local shortest = math.min(as_local or as_remote, as_remote)
    if crc_holds(bytes, shortest) or sum_holds(bytes, shortest) then
        return shortest
    end
    local lengths = {}
    for _, stated in pairs({ as_local, as_remote }) do  -- pairs: as_local may be nil
        for n = stated, LONGEST_REQUEST, LENGTH_WRAP do
            lengths[#lengths + 1] = n
        end
    end
    table.sort(lengths)
    local beyond = #lengths + 1  -- the first length beyond the bytes
    for i, n in ipairs(lengths) do
        if n > #bytes then
            beyond = i
            break
        elseif crc_holds(bytes, n) or sum_holds(bytes, n) then
            return n
        end
    end
    for i = 1, beyond - 1 do
        if lengths[i] == #bytes or good_request_at(bytes, lengths[i]) then
            return lengths[i]
        end
    end
    return lengths[beyond] or shortest
end

-- The family of the request `frame`, of a length request_length found: the one whose length
-- it has; when it has both, the one whose check holds. A frame too short to tell (cut short by
-- the capture) is taken for a local one, which says it is too short.
local function request_family(frame)
    local n = frame:len()
    if n < REQUEST_LENGTH_BYTES then
        return FAMILY_LOCAL
    end
    local as_local, as_remote = stated_request_lengths(frame:raw(0, LOCAL_WRITE_HEADER))
    local is_local = as_local and (n - as_local) % LENGTH_WRAP == 0
    local is_remote = n >= REMOTE_MIN_LENGTH and (n - as_remote) % LENGTH_WRAP == 0
    if is_local and is_remote then
        local bytes = frame:raw()
        return (crc_holds(bytes, n) or not sum_holds(bytes, n)) and FAMILY_LOCAL or FAMILY_REMOTE
    end
    return is_remote and FAMILY_REMOTE or FAMILY_LOCAL
end

-- The length a reply's first bytes state: a write's acknowledgement, or the byte count's data.
local function stated_reply_length(bytes)
    local fn, count = byte(bytes, 2, 3)
    return is_local_write(fn) and WRITE_REPLY_LENGTH or REPLY_HEADER + count + CRC_LENGTH
end

-- The request of the stream's `queue` that the reply starting the string `bytes` answers, and
-- its place; nil when none waits. A PLC answers in turn, and a host sends its next request once
-- the last one was answered or given up, so the reply answers one of the requests that came in
-- the last packet with any still waiting (the requests of a single write): the oldest the reply
-- fits (its station, and a length its first bytes allow), else the oldest, whose reply is then
-- taken to be damaged.
local function answered_request(queue, bytes)
    local last = queue[queue.last]
    if not last then
        return nil
    end
    local first = queue.last
    while first > queue.first and queue[first - 1].frame == last.frame do
        first = first - 1
    end
    local station, stated = byte(bytes, 1), stated_reply_length(bytes)
    for i = first, queue.last do
        local expect = queue[i].expect
        if expect.station == station and (expect.reply_length - stated) % LENGTH_WRAP == 0 then
            return queue[i], i
        end
    end
    return queue[first], first
end

-- dissect_tcp_pdus's length function. A reply is as long as its request expects, the request
-- the first pass found for it; one whose request is not in the capture as long as it says.
local function stream_frame_length(tvb, pinfo, offset)
    if stream_to_plc then
        return request_length(tvb:raw(offset, math.min(tvb:len() - offset, LONGEST_REQUEST)))
    end
    local key = pinfo.number * FRAME_KEY_STRIDE + tvb:offset() + offset
    local reply = stream_frames[key]
    if reply then
        return reply.length
    end
    local bytes = tvb:raw(offset, REPLY_LENGTH_BYTES)
    if pinfo.visited then
        return stated_reply_length(bytes)
    end
    local request, place = answered_request(stream_waiting, bytes)
    reply = { request = request, place = place,
        length = request and request.expect.reply_length or stated_reply_length(bytes) }
    stream_frames[key] = reply
    return reply.length
end

-- A frame's Info text; the frames of one packet share the column.
local function show_info(pinfo, info)
    if pinfo.private.korvan_info then
        pinfo.cols.info:append(" | " .. info)
    else
        pinfo.cols.info = info
        pinfo.private.korvan_info = "shown"
    end
end

-- dissect_tcp_pdus's frame dissector: the frame decoded as in a capture of ours, with the
-- kind and family a header would have given.
local function dissect_stream_frame(tvb, pinfo, root)
    pinfo.cols.protocol = "KORVAN"
    local tree = root:add(korvan, tvb())
    local key = pinfo.number * FRAME_KEY_STRIDE + tvb:offset()
    local record = stream_frames[key]
    local frame = tvb()
    local info
    if stream_to_plc then
        local family = request_family(frame)
        tree:add(f.kind, KIND_REQUEST):set_generated()
        tree:add(f.family, family):set_generated()
        local expect, good
        if family == FAMILY_REMOTE then
            info, expect, good = add_remote_request(tree, frame)
        else
            info, expect, good = add_local_request(tree, frame)
        end
        if not pinfo.visited then
            record = { frame = pinfo.number, time = pinfo.abs_ts, expect = expect,
                family = family }
            stream_frames[key] = record
            -- A PLC answers neither a damaged frame nor station 0.
            if good and expect.station ~= BROADCAST_STATION then
                stream_waiting.last = stream_waiting.last + 1
                stream_waiting[stream_waiting.last] = record
            end
        end
        info = info .. pair_request(tree, pinfo, record, expect)
    else
        local request = record and record.request
        if request and not pinfo.visited then
            -- It and the requests before it, which got no reply, wait no more.
            for i = stream_waiting.first, record.place do
                stream_waiting[i] = nil
            end
            stream_waiting.first = record.place + 1
        end
        tree:add(f.kind, KIND_REPLY):set_generated()
        if request then
            tree:add(f.family, request.family):set_generated()
        end
        info = add_reply(tree, frame, request and request.expect)
        pair_reply(tree, pinfo, request)
    end
    show_info(pinfo, info)
    return tvb:len()
end

-- A TCP segment's bytes (or segments reassembled) to or from the PLC's port, the one the
-- dissector was called for.
local function dissect_stream(tvb, pinfo, root)
    stream_to_plc = pinfo.dst_port == pinfo.match_uint
    if not pinfo.visited then
        local panel, plc = "[" .. tostring(pinfo.src) .. "]:" .. pinfo.src_port,
            "[" .. tostring(pinfo.dst) .. "]:" .. pinfo.dst_port
        if not stream_to_plc then
            panel, plc = plc, panel
        end
        local stream = panel .. " " .. plc
        stream_waiting = waiting[stream]
        if not stream_waiting then
            stream_waiting = { first = 1, last = 0 }
            waiting[stream] = stream_waiting
        end
    end
    dissect_tcp_pdus(tvb, root, stream_to_plc and REQUEST_LENGTH_BYTES or REPLY_LENGTH_BYTES,
        stream_frame_length, dissect_stream_frame)
    return tvb:len()
end

function korvan.dissector(tvb, pinfo, root)
    if pinfo.port_type == PORT_TYPE_TCP then
        return dissect_stream(tvb, pinfo, root)
    end
    pinfo.cols.protocol = "KORVAN"
    local tree = root:add(korvan, tvb())
    local n = tvb:len()
    local head = tvb:raw(0, math.min(n, MIN_HEADER_LENGTH))
    local fault = header_fault(n, head)
    if fault then
        tree:add_proto_expert_info(e.header, "Unknown capture header: " .. fault)
        pinfo.cols.info = "unknown capture header: " .. fault
        return
    end
    local header_length, _, side, _, kind, family, e3, e2, e1, e0 = byte(head, 1, -1)
    local exchange = ((e3 * 256 + e2) * 256 + e1) * 256 + e0
    local header = tree:add(korvan, tvb(0, header_length), "Capture header")
    header:add(f.header_length, tvb(0, 1))
    header:add(f.version, tvb(1, 1))
    header:add(f.side, tvb(2, 1))
    header:add(f.direction, tvb(3, 1))
    header:add(f.kind, tvb(4, 1))
    header:add(f.family, tvb(5, 1))
    header:add(f.exchange, tvb(6, 4))
    local frame = tvb(header_length)
    local key = exchange_key(side, exchange)
    local request = requests[key]

    if kind == KIND_REQUEST then
        pinfo.cols.src, pinfo.cols.dst = "host", "PLC"
        local info, expect
        if family == FAMILY_REMOTE then
            info, expect = add_remote_request(tree, frame)
        else
            info, expect = add_local_request(tree, frame)
        end
        if not pinfo.visited then
            request = { frame = pinfo.number, time = pinfo.abs_ts, expect = expect }
            requests[key] = request
        end
        pinfo.cols.info = info .. pair_request(tree, pinfo, request, expect)
    elseif kind == KIND_REPLY then
        pinfo.cols.src, pinfo.cols.dst = "PLC", "host"
        pinfo.cols.info = add_reply(tree, frame, request and request.expect)
        pair_reply(tree, pinfo, request)
    else
        pinfo.cols.src, pinfo.cols.dst = "line", SIDE_NAMES[side]
        tree:add(f.dropped, frame):add_proto_expert_info(e.dropped)
        local info = string.format("dropped %d bytes: %s", frame:len(), hex_text(frame))
        -- On the host's side, a late reply to the last request is read as one; the PLC's side
        -- receives no replies.
        if side == SIDE_HOST and is_good_crc(frame) and request and request.expect and
            frame(0, 1):uint() == request.expect.station then
            info = info .. " (late " .. add_reply(tree:add(korvan, frame, "Late reply?"), frame,
                request.expect) .. ")"
        end
        pinfo.cols.info = info
    end
end

DissectorTable.get("wtap_encap"):add(wtap.USER0, korvan)

-- On TCP: the preference's port, and any port Decode As is given.
local DEFAULT_TCP_PORT = 5020
korvan.prefs.tcp_port = Pref.uint("PLC's TCP port", DEFAULT_TCP_PORT,
    "Frames to and from this TCP port are decoded (0: none; Decode As adds others)")
local tcp_ports = DissectorTable.get("tcp.port")
local registered_port = 0

local function register_port()
    if registered_port ~= 0 then
        tcp_ports:remove(registered_port, korvan)
    end
    registered_port = korvan.prefs.tcp_port
    if registered_port ~= 0 then
        tcp_ports:add(registered_port, korvan)
    end
end

korvan.prefs_changed = register_port
register_port()
tcp_ports:add_for_decode_as(korvan)

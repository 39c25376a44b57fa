// What a datagram is made of, byte for byte in both byte orders; what is read of one that is cut, too long or of no
// order; groups and lists of numbers; and how each command waits for the loop.
#include "support/test.hpp"

#include "udcp/packet.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

Tq4_bytes view(const Bytes &bytes) { return {bytes.data(), bytes.size()}; }

Bytes operator+(Bytes a, const Bytes &b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// A header in which every byte of every field differs from its neighbours.
Tq4_upp_Packet telling(unsigned code, unsigned order) {
    Tq4_upp_Packet packet;
    packet.ver = 1;
    packet.cmd = static_cast<uint8_t>(order << 6 | code);
    packet.receiver = {0x01020304, 0x05060708};
    packet.seq = 0x11121314;
    packet.ack = 0x21222324;
    packet.delta = 0x31323334;
    packet.auth_h = 0x41424344;
    packet.auth_l = 0x51525354;
    packet.time = 0x6162636465666768;
    packet.schema = 2;
    packet.repeat = 7;
    packet.sender = {0x81828384, 0x85868788};
    return packet;
}

Bytes encoded(const Tq4_upp_Packet &packet) {
    Bytes bytes(Tq4_upp_header_size(packet.code()), 0xee);
    Tq4_upp_Encode(packet, bytes.data());
    return bytes;
}

Bytes base(uint8_t cmd) {
    return {1,    cmd,  0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x11, 0x12, 0x13, 0x14, 0x21,
            0x22, 0x23, 0x24, 0x31, 0x32, 0x33, 0x34, 0x41, 0x42, 0x43, 0x44, 0x51, 0x52, 0x53, 0x54};
}
Bytes little_base(uint8_t cmd) {
    return {1,    cmd,  0x04, 0x03, 0x02, 0x01, 0x08, 0x07, 0x06, 0x05, 0x14, 0x13, 0x12, 0x11, 0x24,
            0x23, 0x22, 0x21, 0x34, 0x33, 0x32, 0x31, 0x44, 0x43, 0x42, 0x41, 0x54, 0x53, 0x52, 0x51};
}

struct Extension {
    Bytes big, little;
};
Extension extension_of(unsigned command) {
    const Bytes time{0x61, 0x62, 0x63, 0x64, 0x65, 0x66, 0x67, 0x68};
    const Bytes little_time{0x64, 0x63, 0x62, 0x61, 0x68, 0x67, 0x66, 0x65};
    if (command == 1) return {time + Bytes{2, 7}, little_time + Bytes{2, 7}};
    if (command == 2)
        return {time + Bytes{2, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88},
                little_time + Bytes{2, 0x84, 0x83, 0x82, 0x81, 0x88, 0x87, 0x86, 0x85}};
    if (command == 16) return {time, little_time};
    return {};
}

void expect_same(const Tq4_upp_Packet &read, const Tq4_upp_Packet &written) {
    EXPECT_EQ(read.ver, written.ver);
    EXPECT_EQ(read.cmd, written.cmd);
    EXPECT_TRUE(Tq4_id_Equal(&read.receiver, &written.receiver));
    EXPECT_EQ(read.seq, written.seq);
    EXPECT_EQ(read.ack, written.ack);
    EXPECT_EQ(read.delta, written.delta);
    EXPECT_EQ(read.auth_h, written.auth_h);
    EXPECT_EQ(read.auth_l, written.auth_l);
    const unsigned command = written.command();
    EXPECT_EQ(read.time, command == 1 || command == 2 || command == 16 ? written.time : 0);
    EXPECT_EQ(read.schema, command == 1 || command == 2 ? written.schema : 0);
    EXPECT_EQ(read.repeat, command == 1 ? written.repeat : 0);
    EXPECT_EQ(read.sender.l, command == 2 ? written.sender.l : 0);
}

TEST(UdcpPacket, IsByteForByteWhatPeersSpeakInBothOrders) {
    for (unsigned code = 0; code < 32; ++code) {
        const unsigned command = code < 17 ? code : code & 15;
        const Extension extension = extension_of(command);
        const Tq4_upp_Packet big = telling(code, 1), little = telling(code, 2);
        EXPECT_EQ(encoded(big), extension.big + base(static_cast<uint8_t>(0x40 | code))) << code;
        EXPECT_EQ(encoded(little), extension.little + little_base(static_cast<uint8_t>(0x80 | code))) << code;
        for (const Tq4_upp_Packet &written : {big, little}) {
            const Bytes bytes = Bytes{'p', 'a', 'y'} + encoded(written);
            Tq4_upp_Packet read;
            ASSERT_EQ(Tq4_upp_Decode(view(bytes), 1, read), static_cast<int>(code));
            EXPECT_EQ(read.command(), command);
            EXPECT_EQ(read.payload.size, 3u);
            EXPECT_EQ(read.payload.data, bytes.data());
            EXPECT_EQ(read.order, written.cmd >> 6);
            expect_same(read, written);
        }
    }
}

TEST(UdcpPacket, WithoutAnOrderHasTheReceivers) {
    Bytes bytes = encoded(telling(12, 1));
    bytes[1] = 12;
    Tq4_upp_Packet read;
    ASSERT_EQ(Tq4_upp_Decode(view(bytes), 1, read), 12);
    EXPECT_EQ(read.seq, 0x11121314u);
    ASSERT_EQ(Tq4_upp_Decode(view(bytes), 2, read), 12);
    EXPECT_EQ(read.seq, 0x14131211u);
}

// Every length with every command and order, in a buffer of exactly that length: reading past it is found.
TEST(UdcpPacket, CutAnywhereOrOfNoOrderIsRefused) {
    for (unsigned cmd = 0; cmd < 256; ++cmd) {
        const std::size_t header = Tq4_upp_header_size(cmd & 31);
        for (std::size_t size = 0; size <= 48; ++size) {
            Bytes bytes(size, 0x55);
            if (size >= 30) bytes[size - 29] = static_cast<uint8_t>(cmd);
            Tq4_upp_Packet read;
            const bool whole = size >= header && cmd >> 6 != 3;
            EXPECT_EQ(Tq4_upp_Decode(view(bytes), 2, read), whole ? static_cast<int>(cmd & 31) : -1)
                << cmd << " of " << size;
        }
    }
}

TEST(UdcpPacket, HasRoomForTheLargestPayloadAndNoMore) {
    Tq4_upp_Packet read;
    Bytes bytes = Bytes(1442, 'x') + encoded(telling(12, 2));
    EXPECT_EQ(Tq4_upp_Decode(view(bytes), 2, read), 12);
    EXPECT_EQ(read.payload.size, 1442u);
    bytes.insert(bytes.begin(), 'x');
    EXPECT_EQ(Tq4_upp_Decode(view(bytes), 2, read), -1);
}

Tq4_upp_Packet with_payload(const Bytes &payload, unsigned order) {
    Tq4_upp_Packet packet = telling(15, order);
    packet.order = static_cast<uint8_t>(order);
    packet.payload = view(payload);
    return packet;
}

TEST(UdcpPacket, GroupGivesItsMessagesInOrder) {
    const Bytes big{0, 2, 'a', 'b', 0x80, 1, 'c', 0x80, 0}, little{2, 0, 'a', 'b', 1, 0x80, 'c', 0, 0x80};
    for (const auto &[payload, order] : {std::pair{big, 1u}, {little, 2u}}) {
        const Tq4_upp_Packet packet = with_payload(payload, order);
        ASSERT_TRUE(Tq4_upp_group::Whole(packet));
        Tq4_upp_group group(packet);
        Tq4_upp_message message;
        std::string seen;
        while (group.Next(message))
            seen += std::string(reinterpret_cast<const char *>(message.bytes.data), message.bytes.size) +
                    (message.safe ? "!" : ".");
        EXPECT_EQ(seen, "ab.c!!");
    }
}

TEST(UdcpPacket, GroupThatIsCutIsNotWhole) {
    const Bytes whole{0, 2, 'a', 'b', 0, 3, 'c', 'd', 'e'};
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const Bytes part(whole.begin(), whole.begin() + static_cast<long>(size));
        EXPECT_EQ(Tq4_upp_group::Whole(with_payload(part, 1)), size == 0 || size == 4 || size == 9) << size;
    }
    EXPECT_FALSE(Tq4_upp_group::Whole(with_payload({0x7f, 0xff, 'x'}, 1)));
    EXPECT_FALSE(Tq4_upp_group::Whole(with_payload({0xff, 0xff, 'x'}, 2)));
}

TEST(UdcpPacket, ListOfNumbersIgnoresWhatIsLessThanOne) {
    for (unsigned order : {1u, 2u}) {
        Bytes list(10, 0xff);
        Tq4_upp_Put(static_cast<uint8_t>(order), uint32_t{0x01020304}, list.data());
        Tq4_upp_Put(static_cast<uint8_t>(order), uint32_t{7}, list.data() + 4);
        EXPECT_EQ(list[0], order == 1 ? 1 : 4);
        const Tq4_upp_Packet packet = with_payload(list, order);
        Tq4_upp_numbers numbers(packet);
        uint32_t number = 0;
        EXPECT_TRUE(numbers.Read(number));
        EXPECT_EQ(number, 0x01020304u);
        EXPECT_TRUE(numbers.Read(number));
        EXPECT_EQ(number, 7u);
        EXPECT_FALSE(numbers.Read(number));
    }
}

TEST(UdcpPacket, WaitsForTheLoopByItsCommand) {
    for (unsigned code = 0; code < 32; ++code) {
        const bool ahead = code == 7 || code == 16;
        const bool forced = code <= 6 || (code >= 8 && code <= 10) || code >= 28;
        EXPECT_EQ(Tq4_upp_queue_of(code), ahead    ? Tq4_upp_queue::PushFirst
                                          : forced ? Tq4_upp_queue::Push
                                                   : Tq4_upp_queue::Post)
            << code;
    }
}

} // namespace

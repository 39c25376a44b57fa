// transfer.hpp: what two relays say to each other when one sends the other a file, over one connection of Tq4_udcp.
//
//   sender     offer SIZE CHECKSUM NAME    first, also after every new connection
//   receiver   have OFFSET                 what it holds of this file already: the sender begins there
//   sender     D and bytes                 the file, piece by piece
//   receiver   have OFFSET                 now and then, so that the sender knows how far it is
//   receiver   done                        the file is whole, has the checksum, and has its name
//   receiver   error TEXT                  it cannot be received
//
// Messages come whole and in order, so nothing more is needed. A file that is not whole is kept beside its place, under
// a name with its size and checksum, and goes on when the same file is offered again.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include <tq4/tq4.h>

constexpr std::size_t piece_size = 32 * 1024;
constexpr uint64_t told_each = 256 * 1024;           // bytes between two "have"
constexpr uint64_t most_under_way = 4 * 1024 * 1024; // bytes that were sent and that no "have" has told of

// CRC-64 of what was added, in any pieces.
class Checksum {
    static constexpr std::array<uint64_t, 256> table = [] {
        std::array<uint64_t, 256> made{};
        for (uint64_t i = 0; i < made.size(); ++i) {
            uint64_t value = i;
            for (int bit = 0; bit < 8; ++bit) value = value >> 1 ^ (value & 1 ? 0xc96c5795d7870f42u : 0);
            made[i] = value;
        }
        return made;
    }();
    uint64_t m_value = ~uint64_t{0};

public:
    void Add(const char *bytes, std::size_t n) {
        for (std::size_t i = 0; i < n; ++i)
            m_value = table[(m_value ^ static_cast<unsigned char>(bytes[i])) & 0xff] ^ m_value >> 8;
    }
    std::string Text() const {
        char text[17];
        std::snprintf(text, sizeof text, "%016lx", static_cast<unsigned long>(~m_value));
        return text;
    }
};

// What connections and threads tell of themselves is for services.
inline void be_quiet() {
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
}

inline void send_line(Tq4_udcp udcp, const Tq4_id *id, const std::string &line) {
    (*udcp)->Send(udcp, id, line.data(), line.size(), 1);
}
inline std::string text_of(const Tq4_udcp_data *message) {
    return {(*message->data)->c_str(message->data), static_cast<std::size_t>((*message->data)->length(message->data))};
}

// relay send FILE HOST:PORT and relay receive DIRECTORY PORT: whole programs; they give the exit status.
int send_file(const char *path, const char *host_and_port);
int receive_files(const char *directory, const char *port);

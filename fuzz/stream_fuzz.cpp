// A stream over any bytes, that come in pieces of any size: lines, bytes, blocks and numbers in any order, beside a
// model that has all the bytes at once.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdlib>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

#include "own.hpp"
#include "tq4/stream.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

// The bytes not read yet, and what each operation makes of them.
struct Model {
    std::string_view rest;

    // The next line; *state tells whether there is one.
    std::string_view line(unsigned long maximum, Tq4_stream_state *state) {
        const std::size_t line_feed = rest.find('\n');
        const std::size_t text = line_feed == rest.npos ? rest.size() : line_feed;
        const std::string_view whole = take(line_feed == rest.npos ? text : text + 1);
        *state = whole.empty() ? Tq4_stream_end : maximum && text > maximum ? Tq4_stream_too_long : Tq4_stream_ok;
        return whole;
    }
    std::string_view take(std::size_t n) {
        const std::string_view taken = rest.substr(0, n);
        rest.remove_prefix(taken.size());
        return taken;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string operations = input.ConsumeBytesAsString(input.ConsumeIntegralInRange<size_t>(0, 64));
    const std::string bytes = input.ConsumeRemainingBytesAsString().substr(0, 60000); // what a socket holds
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    require(send(ends[0], bytes.data(), bytes.size(), 0) == static_cast<long>(bytes.size()));
    close(ends[0]);

    auto owned = Tq4_make<Tq4_stream>(Tq4_stream_oitf);
    const Tq4_stream s = owned.get();
    (*s)->Attach(s, ends[1]);
    Model model{bytes};
    for (const char operation : operations) {
        const auto argument = static_cast<unsigned char>(operation) / 4u;
        if (operation % 4 == 0) {
            Tq4_stream_state state;
            const std::string_view expected = model.line(argument, &state);
            const char *line = (*s)->ReadLine(s, 0, argument);
            require((*s)->State(s) == state && (line != nullptr) == (state == Tq4_stream_ok));
            if (line) require(std::string_view(line, (*s)->LineLength(s)) == expected);
        } else if (operation % 4 == 1) {
            char block[64];
            const std::string_view expected = model.take(argument);
            require(std::string_view(block, (*s)->Read(s, block, argument)) == expected);
        } else if (operation % 4 == 2) {
            const std::string_view expected = model.take(1);
            require((*s)->ReadChar(s) == (expected.empty() ? -1 : static_cast<unsigned char>(expected[0])));
        } else {
            int value = 0, number = 0;
            if (model.rest.size() < 4) {
                require((*s)->Read_int(s, &value) == -1);
                continue;
            }
            for (const char byte : model.take(4)) number = static_cast<int>(number * 256u + static_cast<uint8_t>(byte));
            require((*s)->Read_int(s, &value) == 4 && value == number);
        }
    }
    (*s)->Detach(s);
    close(ends[1]);
    return 0;
}

// HTTP replies of any bytes: that where they are cut makes no difference, and that what is kept stays in bounds.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "own.hpp"
#include "socket/http_reply.hpp"

namespace {

#define REQUIRE(condition)                                                                                             \
    if (!(condition)) __builtin_trap()

// A reply, taken in pieces; the next request is sent when it ends.
struct Reader {
    Tq4_hooked<Tq4_value_table> header = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
    Tq4_hooked<Tq4_string> body = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
    Tq4_http_reply parser;
    std::string told;

    explicit Reader(bool to_head) { Expect(to_head); }
    void Expect(bool to_head) {
        (*header)->RemoveAll(header.get());
        (*body)->Strcpy(body.get(), "");
        parser.Expect(to_head, header.get(), body.get());
    }
    void Take(std::string_view bytes) {
        while (!bytes.empty() && !parser.has_ended()) {
            const std::size_t used = parser.Take(bytes.data(), bytes.size());
            REQUIRE(used > 0 && used <= bytes.size());
            bytes.remove_prefix(used);
        }
    }
    // The body aside: bytes beyond its length belong to it only in one block.
    std::string Told() {
        auto text = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);
        (*header)->Dump(header.get(), text.get());
        return std::to_string(static_cast<int>(parser.state())) + " " + std::to_string(parser.status()) + " " +
               std::string((*text)->c_str(text.get()), static_cast<std::size_t>((*text)->length(text.get())));
    }
    std::string Body() { return {(*body)->c_str(body.get()), static_cast<std::size_t>((*body)->length(body.get()))}; }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2) return 0;
    const bool to_head = data[0] & 1;
    const std::size_t piece = 1 + data[1];
    std::string_view bytes(reinterpret_cast<const char *>(data + 2), size - 2);
    Reader whole(to_head), cut(to_head);
    whole.Take(bytes);
    while (!bytes.empty()) {
        const std::string_view first = bytes.substr(0, piece);
        cut.Take(first);
        bytes.remove_prefix(first.size());
    }
    REQUIRE(whole.Told() == cut.Told());
    REQUIRE(whole.Body().starts_with(cut.Body()));
    REQUIRE(whole.Body().size() <= size);
    return 0;
}

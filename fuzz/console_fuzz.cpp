// What is typed and what a daemon writes, as bytes from outside. The input is read as lines: each is obeyed by the
// command loop in a service and in a shell, and then goes through the display in two pieces, which must show what one
// piece shows.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "app/command_loop.hpp"
#include "app/display.hpp"
#include "tq4/debug.h"

namespace {

void require(bool fact) {
    if (!fact) std::abort();
}

Tq4_app_cmd command(bool local, bool exits) {
    const auto text = [] { return Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string); };
    const auto handler = [](const char *rest) { require(*rest != ' ' && *rest != '\t'); };
    return {text(), text(), text(), handler, local, exits};
}

void converse(std::string_view input, bool in_shell) {
    static const Tq4_app_cmd local = command(true, false), quit = command(true, true), stop = command(false, true);
    Tq4_app_dialog dialog;
    dialog.read = [&](std::string *line) {
        if (input.empty()) return Tq4_app_line::End;
        const std::size_t end = std::min(input.find('\n'), input.size() - 1);
        *line = input.substr(0, end);
        input.remove_prefix(end + 1);
        return line->size() < 1000 ? Tq4_app_line::Text : Tq4_app_line::Too_long;
    };
    dialog.find = [](const char *word) -> const Tq4_app_cmd * {
        require(*word && std::string_view(word).find_first_of(" \t") == std::string_view::npos);
        return *word == 'q' ? &quit : *word == 's' ? &stop : *word == 'l' ? &local : nullptr;
    };
    dialog.remember = [](const char *) {};
    if (in_shell)
        dialog.forward = [](const std::string &line) {
            require(line.find('s') != std::string::npos && line.find('\0') == std::string::npos);
            return line.size() % 2 == 0;
        };
    Tq4_app_converse(dialog);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    Tq4_debug_api->SetPrint([](int, const char *, va_list) {});
    const std::string_view input(reinterpret_cast<const char *>(data), size);
    converse(input, false);
    converse(input, true);
    if (input.empty()) return 0;
    const std::size_t cut = data[0] % size;
    for (const Tq4_app_charset console : {Tq4_app_charset::Gb18030, Tq4_app_charset::Utf8}) {
        Tq4_app_display whole, pieces;
        const std::string expected = whole.Next(input, console);
        const std::string first = pieces.Next(input.substr(0, cut), console);
        require(first + pieces.Next(input.substr(cut), console) == expected);
        require(whole.Next("", Tq4_app_charset::As_it_comes).size() < 6); // what waits is less than a character
    }
    return 0;
}

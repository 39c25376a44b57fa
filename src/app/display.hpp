// display.hpp: a daemon's output on its way to the console of a shell.
#pragma once

#include <string>
#include <string_view>

enum class Tq4_app_charset { Utf8, Gb18030, As_it_comes };

// What comes from a daemon is UTF-8 or GB18030, as the daemon was started, in pieces that may end inside of a
// character.
class Tq4_app_display {
public:
    // What the console is to show of the next piece, in its charset.
    std::string Next(std::string_view piece, Tq4_app_charset console);
    // Whether the daemon speaks GB18030, known from its first byte on.
    bool FromGb18030() const { return m_from == Tq4_app_charset::Gb18030; }

private:
    Tq4_app_charset m_from = Tq4_app_charset::As_it_comes; // as long as nothing has come
    std::string m_cut;                                     // the beginning of a character whose rest is to come
};

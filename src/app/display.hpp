// display.hpp: a daemon's output on its way to the console of a shell.
#pragma once

#include <string>
#include <string_view>

// What comes from a daemon is UTF-8 in pieces that may end inside of a character.
class Tq4_app_display {
public:
    // What the console is to show of the next piece: the piece itself, or its characters in GB18030.
    std::string Next(std::string_view piece, bool gb18030);

private:
    std::string m_cut; // the beginning of a character whose rest is to come
};

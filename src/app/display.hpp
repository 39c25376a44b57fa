// display.hpp: a daemon's output on the console of a shell.
#pragma once

#include <cstddef>
#include <string>

// Passes text on to descriptor 1. What comes from a daemon is UTF-8 in pieces that may end inside of a character; on a
// console of another character set the pieces are put together first.
class Tq4_app_display {
public:
    // gb18030: the console's character set is asked at each piece, since a command may change it meanwhile.
    explicit Tq4_app_display(bool (*gb18030)()) : m_gb18030(gb18030) {}
    void Show(const char *bytes, std::size_t size);

private:
    bool (*m_gb18030)();
    std::string m_cut; // the beginning of a character whose rest is to come
};

// reader.hpp: from the bytes of a file to a tree. An engine without I/O: bytes in, sections out.
#pragma once

#include <string_view>

#include "file/ini/tree.hpp"

// In front of a file it does not count.
constexpr std::string_view Tq4_config_byte_order_mark = "\xEF\xBB\xBF";

// Blanks, tabs and line ends at the front, at the end, and both.
std::string_view Tq4_config_trim_left(std::string_view text);
std::string_view Tq4_config_trim_right(std::string_view text);
std::string_view Tq4_config_trim(std::string_view text);
// A line that is a comment whatever stands around it: it begins with "//", ';' or '#'.
bool Tq4_config_is_comment(std::string_view line);
// The key of a line that assigns a value; empty when it does not.
std::string_view Tq4_config_key_of(std::string_view line);

class Tq4_config_reader {
public:
    explicit Tq4_config_reader(Tq4_config_tree &tree) : m_tree(tree) {}
    // Where the next bytes of the file go, at most *n, which is never 0; and that n of them have been put there.
    char *Room(std::size_t *n);
    void Filled(std::size_t n);
    // Bytes that lie elsewhere.
    void Feed(std::string_view bytes);
    // After the last of them.
    void Finish();
    // How many lines were too long, and the number of the first of them, counted from 1; 0 when there was none.
    unsigned long Skipped() const { return m_skipped; }
    unsigned long FirstSkipped() const { return m_first_skipped; }

private:
    static constexpr std::size_t Block_size = 65536;

    void EndLine(std::size_t end);
    void TakeLine(std::string_view line);
    std::string_view Statement(std::string_view line);
    std::string_view CommentBlock(std::string_view line, std::size_t end_from);
    std::string_view TopHeader(std::string_view line);
    std::string_view NestedHeader(std::string_view line);
    std::string_view Item(std::string_view line);
    std::string_view Comment(std::string_view line);
    Tq4_config_section *Section(Tq4_config_section &parent, std::string_view name, std::string_view suffix);
    Tq4_config_comments Comments();

    Tq4_config_tree &m_tree;
    Tq4_config_section *m_psection = &m_tree.root(); // borrowed; the section that is open
    uint32_t m_attached = 0;                         // comments of the tree that belong to somebody

    char *m_block = nullptr; // borrowed, the tree's; with room for a NUL behind it
    bool m_kept = false;     // something of the tree lies in it
    std::size_t m_line = 0;  // where the line begins whose end has not come
    std::size_t m_filled = 0;
    bool m_too_long = false;         // that line is beyond the limit, and what has come of it is dropped
    unsigned long m_line_number = 0; // of the last one taken
    unsigned long m_skipped = 0, m_first_skipped = 0;
    bool m_mlc = false; // inside a comment of several lines
};

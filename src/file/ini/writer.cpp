// writer: a tree as lines.
//
// Sections are written depth first, with a stack of its own instead of recursion. Reading the text must give the same
// tree. So the writer knows at each line which section a reader has open there, and looks after four things:
// - A repeated line of a key is kept as a comment. Where a reader would take it for a setting, it is written behind
//   slashes.
// - A section of the root whose name holds ']' is written with tags.
// - A line that would pass the limit with the usual blanks is written without them, except for one that keeps a value's
//   last slash from those of a comment.
// - A name at the limit or one with '>' is cut in its closing tag, where it does not matter.
#include "file/ini/writer.hpp"

#include <algorithm>

#include "file/ini/reader.hpp"

namespace {

constexpr auto npos = std::string_view::npos;

class Writer {
public:
    explicit Writer(const Tq4_config_tree &tree) : m_tree(tree) {}
    std::string Run();

private:
    struct Place { // the next section to write inside one that is open
        const Tq4_config_section *section;
        std::size_t chain = 0, index = 0;
    };

    const Tq4_config_section *Next(Place &place) const;
    void Open(const Tq4_config_section &section);
    void Close(const Tq4_config_section &section);
    void ClosingTag(const Tq4_config_section &section);
    void Items(const Tq4_config_section &section);
    void Item(const Tq4_config_item &item);
    void Comments(Tq4_config_comments comments, uint32_t before);
    bool IsRepeated(std::string_view key, uint32_t before) const;
    bool IsTopLevel(const Tq4_config_section &section) const { return section.m_parent == &m_tree.root(); }
    void Line(std::initializer_list<std::string_view> parts) {
        for (std::string_view part : parts) m_text += part;
        m_text += '\n';
    }

    static constexpr uint32_t All = ~0u; // every item of the section that is open

    const Tq4_config_tree &m_tree;
    const Tq4_config_section *m_reader_at = &m_tree.root(); // the section that a reader has open here
    std::string m_text;
};

bool has_bracket(const Tq4_config_section &section) { return section.m_name.view().find(']') != npos; }

std::string Writer::Run() {
    Items(m_tree.root());
    std::vector<Place> open{{&m_tree.root()}};
    while (!open.empty()) {
        if (const Tq4_config_section *section = Next(open.back())) {
            Open(*section);
            Items(*section);
            open.push_back({section});
        } else {
            Close(*open.back().section);
            open.pop_back();
        }
    }
    Comments(m_tree.m_last_comments, All);
    if (m_text.starts_with(Tq4_config_byte_order_mark)) m_text.insert(0, 1, '\n'); // of a key: a reader would skip it
    return std::move(m_text);
}

const Tq4_config_section *Writer::Next(Place &place) const {
    const Tq4_config_chain *chain = place.section->m_childs.At(place.chain);
    if (!chain) return nullptr;
    const Tq4_config_section *section = chain->m_sections[place.index];
    if (++place.index == chain->m_sections.size()) place = {place.section, place.chain + 1};
    return section;
}

void Writer::Open(const Tq4_config_section &section) {
    const bool top_level = IsTopLevel(section), tagged = !top_level || has_bracket(section);
    if (top_level && tagged && m_reader_at != &m_tree.root()) ClosingTag(*m_reader_at);
    if (top_level && !m_text.empty()) m_text += '\n';
    Comments(section.m_comment, All);
    Line({tagged ? "<" : "[", section.m_name.view(), tagged ? ">" : "]", section.m_comment_suffix.view()});
    m_reader_at = &section;
}

void Writer::Close(const Tq4_config_section &section) {
    if (section.m_parent && (!IsTopLevel(section) || has_bracket(section))) ClosingTag(section);
}

void Writer::ClosingTag(const Tq4_config_section &section) {
    const std::string_view name = section.m_name.view();
    Line({"</", name.substr(0, std::min(name.find('>'), Tq4_config_line_limit - 3)), ">"});
    m_reader_at = section.m_parent;
}

void Writer::Items(const Tq4_config_section &section) {
    for (std::size_t i = 0; i < section.m_values.size(); ++i) Item(*section.m_values.At(i));
}

void Writer::Item(const Tq4_config_item &item) {
    Comments(item.m_comment, item.m_number);
    std::string_view suffix = item.m_comment_suffix.view();
    if (item.m_quoted && suffix.find('"') != npos) { // the last quote of a line ends the value
        Line({suffix});
        suffix = {};
    }
    const std::string_view quote = item.m_quoted ? "\"" : "", key = item.m_key.view(), value = item.m_value.view();
    const std::size_t bare = key.size() + 1 + value.size() + 2 * quote.size() + suffix.size();
    const bool roomy = bare + 2 + (suffix.empty() ? 0 : 2) <= Tq4_config_line_limit;
    const bool joined = !item.m_quoted && value.ends_with('/'); // the value's last slash with those of the suffix
    std::string_view gap;
    if (!suffix.empty()) gap = roomy ? " \t" : joined ? " " : "";
    Line({key, roomy ? " = " : "=", quote, value, quote, gap, suffix});
}

// Comment lines in front of what was made as the item of that number.
void Writer::Comments(Tq4_config_comments comments, uint32_t before) {
    bool inside = false; // a comment of several lines
    for (uint32_t i = comments.first; i < comments.first + comments.count; ++i) {
        const std::string_view line = m_tree.Comment(i);
        const bool begins = !inside && line.starts_with("/*");
        const std::string_view key = inside || begins ? std::string_view() : Tq4_config_key_of(line);
        if (inside || begins) inside = line.find("*/", begins ? 2 : 0) == npos;
        if (key.empty() || IsRepeated(key, before))
            Line({line});
        else
            Line({"// ", Tq4_config_trim_right(line.substr(0, Tq4_config_line_limit - 3))});
    }
}

// Whether a reader has met the key in the section that is open.
bool Writer::IsRepeated(std::string_view key, uint32_t before) const {
    const Tq4_config_item *item = m_reader_at->Item(key);
    return item && item->m_number < before;
}

bool is_one_trimmed_line(std::string_view text) {
    return text.find('\n') == npos && Tq4_config_trim(text).size() == text.size();
}

} // namespace

std::string Tq4_config_written(const Tq4_config_tree &tree) { return Writer(tree).Run(); }

bool Tq4_config_can_hold_name(std::string_view name, bool under_root) {
    if (!is_one_trimmed_line(name) || name.size() + 2 > Tq4_config_line_limit) return false;
    if (under_root && name.find(']') == npos) return true;
    return name.find('>') == npos && !name.starts_with('/');
}

bool Tq4_config_can_hold_key(std::string_view key) {
    return is_one_trimmed_line(key) && key.find('=') == npos && !key.starts_with("/*") && !key.starts_with('[') &&
           !key.starts_with('<') && !Tq4_config_is_comment(key) && !key.empty();
}

bool Tq4_config_can_hold_value(std::string_view key, std::string_view value, const Tq4_config_item *item) {
    const std::size_t suffix = item ? item->m_comment_suffix.view().size() : 0;
    return value.find('\n') == npos && key.size() + 1 + value.size() + 2 + suffix <= Tq4_config_line_limit;
}

bool Tq4_config_needs_quotes(std::string_view value) {
    return value.find("//") != npos || value.starts_with('"') || Tq4_config_trim(value).size() != value.size();
}

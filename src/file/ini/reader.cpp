// reader: a configuration file line by line.
//
// The bytes are put into blocks of the tree and stay there: keys, values, names and comments are pieces of lines,
// NUL-terminated in place. The begun line at the end of a full block moves to the next one, except when it is too long
// already. A block of which nothing was kept is filled again, so that an endless line takes no memory. What follows the
// end of a comment or a closing tag on the same line is read like a line of its own.
#include "file/ini/reader.hpp"

namespace {

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

// Ends a piece of the tree's own text with a NUL, over the byte behind it.
Tq4_config_text terminated(std::string_view piece) {
    const_cast<char *>(piece.data())[piece.size()] = 0;
    return Tq4_config_text::Borrowed(piece);
}

} // namespace

std::string_view Tq4_config_trim_left(std::string_view text) {
    while (!text.empty() && is_blank(text.front())) text.remove_prefix(1);
    return text;
}

std::string_view Tq4_config_trim_right(std::string_view text) {
    while (!text.empty() && is_blank(text.back())) text.remove_suffix(1);
    return text;
}

std::string_view Tq4_config_trim(std::string_view text) { return Tq4_config_trim_right(Tq4_config_trim_left(text)); }

bool Tq4_config_is_comment(std::string_view line) {
    return line.starts_with("//") || line.starts_with(';') || line.starts_with('#');
}

std::string_view Tq4_config_key_of(std::string_view line) {
    if (Tq4_config_is_comment(line) || line.starts_with('[') || line.starts_with('<')) return {};
    const std::size_t equals = line.find('=');
    return equals == line.npos ? std::string_view() : Tq4_config_trim_right(line.substr(0, equals));
}

char *Tq4_config_reader::Room(std::size_t *n) {
    if (!m_block || m_filled == Block_size) {
        const std::size_t begun = m_filled - m_line;
        char *block = m_block && !m_kept ? m_block : m_tree.AddBlock(Block_size + 1);
        if (begun) std::memmove(block, m_block + m_line, begun);
        m_block = block;
        m_kept = false;
        m_line = 0;
        m_filled = begun;
    }
    *n = Block_size - m_filled;
    return m_block + m_filled;
}

void Tq4_config_reader::Filled(std::size_t n) {
    char *at = m_block + m_filled;
    m_filled += n;
    char *const end = m_block + m_filled;
    while (auto *line_feed = static_cast<char *>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)))) {
        EndLine(static_cast<std::size_t>(line_feed - m_block));
        at = line_feed + 1;
        m_line = static_cast<std::size_t>(at - m_block);
    }
    m_too_long = m_too_long || m_filled - m_line > Tq4_config_line_limit + Tq4_config_byte_order_mark.size();
    if (m_too_long) m_line = m_filled;
}

void Tq4_config_reader::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        std::size_t n;
        char *room = Room(&n);
        n = bytes.copy(room, n);
        Filled(n);
        bytes.remove_prefix(n);
    }
}

void Tq4_config_reader::Finish() {
    if (m_line < m_filled || m_too_long) EndLine(m_filled);
    m_tree.m_last_comments = Comments();
}

// The line that begins at m_line ends here.
void Tq4_config_reader::EndLine(std::size_t end) {
    ++m_line_number;
    std::string_view line{m_block + m_line, end - m_line};
    if (m_line_number == 1 && line.starts_with(Tq4_config_byte_order_mark))
        line.remove_prefix(Tq4_config_byte_order_mark.size());
    if (!m_too_long && line.size() <= Tq4_config_line_limit) return TakeLine(line);
    m_too_long = false;
    if (m_skipped++ == 0) m_first_skipped = m_line_number;
}

void Tq4_config_reader::TakeLine(std::string_view line) {
    line = Tq4_config_trim(line);
    if (line.empty() && m_mlc) m_tree.AddComment({});
    m_kept = m_kept || !line.empty();
    while (!line.empty()) line = Statement(line);
}

// What the line begins with; returns the rest of it, without blanks in front.
std::string_view Tq4_config_reader::Statement(std::string_view line) {
    if (m_mlc) return CommentBlock(line, 0);
    switch (line.front()) {
    case '#':
    case ';':
        return Comment(line);
    case '/':
        if (line.starts_with("//")) return Comment(line);
        return line.starts_with("/*") ? CommentBlock(line, 2) : Item(line);
    case '[':
        return TopHeader(line);
    case '<':
        return NestedHeader(line);
    default:
        return Item(line);
    }
}

// The whole line, kept as it is.
std::string_view Tq4_config_reader::Comment(std::string_view line) {
    m_tree.AddComment(line);
    return {};
}

std::string_view Tq4_config_reader::CommentBlock(std::string_view line, std::size_t end_from) {
    const std::size_t end = line.find("*/", end_from);
    m_mlc = end == line.npos;
    const std::string_view comment = m_mlc ? line : line.substr(0, end + 2);
    m_tree.AddComment(comment);
    return Tq4_config_trim_left(line.substr(comment.size()));
}

std::string_view Tq4_config_reader::TopHeader(std::string_view line) {
    const std::size_t end = line.find(']');
    if (end == line.npos) return Comment(line);
    m_psection = Section(m_tree.root(), Tq4_config_trim(line.substr(1, end - 1)), line.substr(end + 1));
    return {};
}

std::string_view Tq4_config_reader::NestedHeader(std::string_view line) {
    const std::size_t end = line.find('>');
    if (end == line.npos) return Comment(line);
    const std::string_view name = Tq4_config_trim(line.substr(1, end - 1)), rest = line.substr(end + 1);
    if (name.starts_with('/')) {
        if (m_psection->m_parent) m_psection = m_psection->m_parent;
        return Tq4_config_trim_left(rest);
    }
    m_psection = Section(*m_psection, name, rest);
    return {};
}

Tq4_config_section *Tq4_config_reader::Section(Tq4_config_section &parent, std::string_view name,
                                               std::string_view suffix) {
    Tq4_config_section *section = m_tree.AddSection(parent, terminated(name));
    section->m_comment_suffix = Tq4_config_text::Borrowed(suffix);
    section->m_comment = Comments();
    return section;
}

std::string_view Tq4_config_reader::Item(std::string_view line) {
    const std::size_t equals = line.find('=');
    if (equals == line.npos || equals == 0) return Comment(line);
    const std::string_view key = Tq4_config_trim_right(line.substr(0, equals));
    const uint32_t hash = Tq4_config_hash(key);
    if (m_psection->m_values.Find(key, hash)) return Comment(line); // the first value stays

    Tq4_config_item *item = m_tree.AddItem(*m_psection, terminated(key), hash);
    item->m_comment = Comments();
    std::string_view value = Tq4_config_trim_left(line.substr(equals + 1));
    const std::size_t last_quote = value.starts_with('"') ? value.rfind('"') : 0;
    if (last_quote > 0) {
        item->m_quoted = true;
        item->m_comment_suffix = Tq4_config_text::Borrowed(Tq4_config_trim_left(value.substr(last_quote + 1)));
        item->m_value = terminated(value.substr(1, last_quote - 1));
    } else if (const std::size_t comment = value.find("//"); comment != value.npos) {
        item->m_comment_suffix = Tq4_config_text::Borrowed(value.substr(comment));
        value = Tq4_config_trim_right(value.substr(0, comment));
        const bool adjacent = value.size() == comment; // no place for a NUL
        item->m_value = adjacent ? Tq4_config_text::Owned(value) : terminated(value);
    } else {
        item->m_value = terminated(value);
    }
    return {};
}

// The comments since the last header or item.
Tq4_config_comments Tq4_config_reader::Comments() {
    const uint32_t first = m_attached;
    m_attached = m_tree.CommentCount();
    return {first, m_attached - first};
}

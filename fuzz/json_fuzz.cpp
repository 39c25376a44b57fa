// JSON text of any bytes: that exactly the texts of the grammar are taken, by a recursive reader beside; that pieces of
// any size give the same events; that what was decoded prints alike through both outputs; and that what FromJson reads
// is written as JSON that reads back the same.
#include "base/kv/json_parser/json_parser.hpp"
#include "kv_model.hpp"

namespace {

// Takes a whole text of the grammar, nested up to the limit.
class Grammar {
    std::string_view m_rest;

public:
    explicit Grammar(std::string_view text) : m_rest(text) {}
    bool whole() { return value(0) && (blank(), m_rest.empty()); }

private:
    void blank() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(" \t\r\n"), m_rest.size())); }
    bool take(std::string_view literal) {
        return m_rest.starts_with(literal) && (m_rest.remove_prefix(literal.size()), true);
    }
    bool token(std::string_view literal) { return blank(), take(literal); }
    bool digits() {
        const std::size_t n = std::min(m_rest.find_first_not_of("0123456789"), m_rest.size());
        m_rest.remove_prefix(n);
        return n > 0;
    }
    bool number() {
        take("-");
        if (!take("0") && !digits()) return false;
        if (take(".") && !digits()) return false;
        if (take("e") || take("E")) {
            if (!take("+")) take("-");
            return digits();
        }
        return true;
    }
    // Four hexadecimal digits; -1 when they are not there.
    int unit() {
        const std::size_t n = std::min<std::size_t>(m_rest.find_first_not_of("0123456789abcdefABCDEF"), m_rest.size());
        if (n < 4) return -1;
        const int code = static_cast<int>(std::stol(std::string(m_rest.substr(0, 4)), nullptr, 16));
        m_rest.remove_prefix(4);
        return code;
    }
    bool escape() {
        if (!take("u")) {
            const bool known = !m_rest.empty() && std::string_view("\"\\/bfnrt").find(m_rest[0]) != m_rest.npos;
            if (known) m_rest.remove_prefix(1);
            return known;
        }
        const int code = unit();
        if (code >> 10 == 0xd800 >> 10) return take("\\u") && unit() >> 10 == 0xdc00 >> 10;
        return code >= 0 && code >> 10 != 0xdc00 >> 10;
    }
    bool string() {
        if (!token("\"")) return false;
        while (!take("\"")) {
            if (m_rest.empty() || static_cast<unsigned char>(m_rest[0]) < 0x20) return false;
            const bool escaped = take("\\");
            if (escaped ? !escape() : (m_rest.remove_prefix(1), false)) return false;
        }
        return true;
    }
    bool members(int depth, bool object) {
        if (depth > 512) return false;
        const char *close = object ? "}" : "]";
        if (token(close)) return true;
        do {
            if (object && (!string() || !token(":"))) return false;
            if (!value(depth)) return false;
        } while (token(","));
        return token(close);
    }
    bool value(int depth) {
        if (token("{")) return members(depth + 1, true);
        if (token("[")) return members(depth + 1, false);
        if (m_rest.starts_with('"')) return string();
        return take("true") || take("false") || take("null") || number();
    }
};

std::string events_of(std::string_view text, std::size_t piece) {
    std::string events;
    json_parser parser;
    const auto keep = [](void *out, int type, const char *token, size_t length) {
        auto &to = *static_cast<std::string *>(out);
        to += static_cast<char>('a' + type);
        if (token) (to.append(token, length)) += '\0';
        return 0;
    };
    int error = json_parser_init(&parser, nullptr, keep, &events);
    for (std::size_t at = 0; at < text.size() && !error; at += piece) {
        const std::string_view part = text.substr(at, piece);
        const std::unique_ptr<char[]> exact(new char[part.size()]);
        part.copy(exact.get(), part.size());
        size_t processed = 0;
        error = json_parser_string(&parser, exact.get(), part.size(), &processed);
        require(error ? processed < part.size() : processed == part.size());
        if (error) events += std::to_string(at + processed);
    }
    if (!error) error = json_parser_done(&parser);
    json_parser_free(&parser);
    return events + "!" + std::to_string(error);
}

std::string written(const Tq4_own<Tq4_value> &value) {
    const auto json = Tq4_make<Tq4_string>(Tq4_string_oitf);
    require((*value)->ToJson(value.get(), json.get(), 0) == 1);
    return text_of(json.get());
}

long read(const Tq4_own<Tq4_value> &value, std::string_view text) {
    const std::unique_ptr<char[]> exact(new char[text.size()]);
    text.copy(exact.get(), text.size());
    long at = -1;
    const int done = (*value)->FromJson(value.get(), exact.get(), static_cast<long>(text.size()), &at);
    require(at >= 0 && at <= static_cast<long>(text.size()) && (!done || at == 0));
    return done ? -1 : at;
}

// Refused texts of the grammar have a byte that is no UTF-8, or a number that is too large, where they are refused.
void read_and_write(std::string_view text, bool is_json) {
    const auto value = Tq4_make<Tq4_value>(Tq4_value_oitf);
    (*value)->SetString(value.get(), "kept", -1);
    const long at = read(value, text);
    if (at >= 0) {
        const auto byte = at < static_cast<long>(text.size()) ? static_cast<unsigned char>(text[at]) : 0;
        require(!is_json || byte >= 0x80 || byte == '-' || (byte >= '0' && byte <= '9'));
        require(written(value) == "\"kept\"");
        return;
    }
    require(is_json);
    const std::string json = written(value);
    require(Grammar(json).whole() && read(value, json) == -1 && written(value) == json);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size == 0) return 0;
    const std::string_view text(reinterpret_cast<const char *>(data) + 1, size - 1);
    const std::string events = events_of(text, text.size() + 1);
    require(events_of(text, 1 + data[0] % 7u) == events);
    const bool accepted = Grammar(text).whole();
    require(events.ends_with("!0") == accepted);

    read_and_write(text, accepted);

    const auto value = Tq4_make<Tq4_value>(Tq4_value_oitf);
    const std::unique_ptr<char[]> exact(new char[text.size()]);
    text.copy(exact.get(), text.size());
    require((*value)->Json_decode(value.get(), exact.get(), static_cast<int>(text.size())) == accepted);
    const auto json = Tq4_make<Tq4_string>(Tq4_string_oitf);
    (*value)->Json_encode(value.get(), json.get());
    require(text_of(json.get()) == echoed(value, true));
    (*value)->Json_decode(value.get(), exact.get(), static_cast<int>(text.size())); // into what is there already
    return 0;
}

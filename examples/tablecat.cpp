// tablecat: reads a value as JSON text, as a binary dump or as lines of pairs, and writes it as any of the others.
//
//   tablecat [OPTION]... [FILE]
//
// Text is written through the library's own printer: each piece of it passes through a function here, which escapes
// text and puts right what the printer deliberately leaves unlike JSON. Pairs are lines "key = value", in which a key
// like a.b.c leads through tables, and a value that is no JSON is plain text.
//
// What is read and built uses the exported tables alone. Only to name the byte at which malformed input goes wrong,
// which those do not tell, it asks the parser and the checker inside the library; so it links the internals.
#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <tq4/tq4.h>

#include "base/kv/json_parser/json_parser.hpp"
#include "base/kv/limits.hpp"
#include "base/kv/value_check.hpp"
#include "object.hpp"

namespace {

const char help[] =
    "Usage: tablecat [OPTION]... [FILE]\n"
    "Read a value from FILE, or from standard input, and write it to standard output in another form.\n"
    "\n"
    "  -f, --from=FORM    read json (unless given), dump or pairs\n"
    "  -t, --to=FORM      write json (unless given), dump or pairs\n"
    "  -o, --output=FILE  write to FILE instead\n"
    "  -p, --pretty       write JSON over several lines\n"
    "  -h, --help         print this\n"
    "\n"
    "pairs are lines \"key = value\": the parts of the key, separated by dots and quoted like JSON where they need "
    "it,\n"
    "lead through tables; the value is JSON, or else plain text. Empty lines and those that begin with # are skipped.\n"
    "\n"
    "Exit codes: 0 done, with a summary on standard error; 1 the input is malformed, and the byte position is named;\n"
    "2 wrong usage; 3 a file cannot be read or written.\n";

enum Exit { DONE = 0, MALFORMED = 1, USAGE = 2, NO_FILE = 3 };

// Where input is malformed, and how.
struct Fault {
    std::size_t byte;
    std::string what;
};
using Outcome = std::optional<Fault>;

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// ---- writing text

// Appends text to out as JSON has it between quotation marks.
void escape(std::string &out, std::string_view text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        char code[8];
        if (c == '"' || c == '\\')
            out += {'\\', c};
        else if (byte < 0x20)
            out += (std::snprintf(code, sizeof code, "\\u%04x", byte), code);
        else
            out += c;
    }
}

// Receives the pieces that the library's printer writes.
class Json_text {
    std::string m_text;
    std::size_t m_hole = 0; // where a value would be missing, if a comma or a closing bracket came now
    char m_before_hole = '\0';

    // What the printer writes unlike JSON, and what stands here for it: a key with a second colon, addresses, a letter
    // behind a number, and floating numbers with too few digits to read back the same.
    static const char *as_json(std::string_view format) {
        static const struct {
            std::string_view printed;
            const char *json;
        } formats[] = {{"\"%s_%u\":", "\"%s_%u\""},
                       {"%lx", "\"%lx\""},
                       {"%ul", "%lu"},
                       {"%f", "%.9g"},
                       {"%lf", "%.17g"},
                       {"%c", "\"%s\""}};
        for (const auto &known : formats)
            if (known.printed == format) return known.json;
        return format.data();
    }

    // An empty value prints as nothing; [] reads back as one.
    void fill_hole(char next) {
        if (!m_before_hole || std::strchr("\n\t", next)) return;
        if (next == ',' || (std::strchr("}]", next) && m_before_hole != '[')) m_text.insert(m_hole, "[]");
        m_before_hole = '\0';
    }

    void add(const char *format, va_list args) {
        const std::size_t start = m_text.size();
        const std::string_view printed = format;
        const bool literal = printed.find('%') == printed.npos;
        if (literal)
            m_text += printed;
        else
            add_formatted(printed, args);
        fill_hole(m_text[start]);
        if (literal && std::strchr(":,[", m_text.back())) {
            m_hole = m_text.size();
            m_before_hole = m_text.back();
        }
    }

    void add_formatted(std::string_view printed, va_list args) {
        const std::size_t start = m_text.size();
        const char *format = as_json(printed);
        if (std::string_view(format).starts_with("\"%s")) {
            const char character[] = {printed == "%c" ? static_cast<char>(va_arg(args, int)) : '\0', '\0'};
            m_text += '"';
            escape(m_text, printed == "%c" ? character : va_arg(args, const char *));
            format += 3;
        }
        const Object<Tq4_string> rest(Tq4_string_oitf);
        rest->vSprintf(rest, format, args);
        m_text += rest->c_str(rest);
        if (printed.ends_with('f')) finish_float(start);
    }

    // Keeps a floating number one when it is read again; JSON has no word for what is none.
    void finish_float(std::size_t start) {
        const std::size_t infinite = m_text.find("inf", start);
        if (m_text.find("nan", start) != m_text.npos)
            m_text.replace(start, m_text.npos, "null");
        else if (infinite != m_text.npos)
            m_text.replace(infinite, 3, "1e999");
        else if (m_text.find_first_of(".e", start) == m_text.npos)
            m_text += ".0";
    }

public:
    static void piece(void *self, const char *format, ...) {
        va_list args;
        va_start(args, format);
        static_cast<Json_text *>(self)->add(format, args);
        va_end(args);
    }

    static std::string of(Tq4_value v, bool pretty) {
        Json_text to;
        if (Tq4_value_table table = (*v)->GetValueTable(v))
            (*table)->Echo(table, piece, &to, !pretty);
        else
            (*v)->Echo(v, piece, &to, !pretty);
        return to.m_text.empty() ? "[]" : to.m_text.substr(to.m_text.find_first_not_of("\n\t"));
    }
};

// The text of a key as the printer would write it.
std::string name_of(Tq4_key key) {
    if ((*key)->GetType(key) == Tq4_key_type_Unvalid) return "\"\"";
    const Object<Tq4_value> holder(Tq4_value_oitf);
    holder->InsertK(holder, key);
    std::string line = Json_text::of(holder, false); // {"NAME":[]}
    return line.substr(1, line.size() - 5);
}

bool is_json(std::string_view text) {
    const Object<Tq4_value> value(Tq4_value_oitf);
    return value->Json_decode(value, text.data(), static_cast<int>(text.size())) == 1;
}

// Plain when it reads back as itself, else as JSON.
std::string pair_value(Tq4_value v) {
    const std::string json = Json_text::of(v, false);
    unsigned long length = 0;
    const char *bytes = (*v)->GetBytes(v, &length);
    const std::string_view text(bytes ? bytes : "", length);
    if (text.empty() || json.find('\\') != json.npos || trimmed(text) != text || is_json(text)) return json;
    return std::string(text);
}

void write_pairs(std::string &out, const std::string &path, Tq4_value v) {
    Tq4_value_table table = (*v)->GetValueTable(v);
    Tq4_key key = nullptr;
    Tq4_value member = table ? (*table)->First(table, &key) : nullptr;
    if (!member || (*key)->GetType(key) == Tq4_key_type_Unvalid) {
        out += path + (path.empty() ? "= " : " = ") + pair_value(v) + "\n";
        return;
    }
    for (; member; member = (*table)->Next(table, &key)) {
        std::string name = name_of(key);
        const bool plain = name.size() > 2 && name.find_first_of(".=\\# \t", 0) == name.npos;
        if (plain) name = name.substr(1, name.size() - 2);
        write_pairs(out, path.empty() ? name : path + "." + name, member);
    }
}

// ---- measuring

struct Extent {
    unsigned long entries = 0, depth = 0;
};

// Entries of all tables, and how many tables lie in each other.
void measure(Tq4_value v, unsigned long depth, Extent &extent) {
    Tq4_value_table table = (*v)->GetValueTable(v);
    if (!table) return;
    extent.depth = std::max(extent.depth, depth);
    extent.entries += (*table)->Count(table);
    for (Tq4_value member = (*table)->First(table, nullptr); member; member = (*table)->Next(table, nullptr))
        measure(member, depth + 1, extent);
}

// ---- reading

Outcome read_json(Tq4_value v, std::string_view text) {
    if ((*v)->Json_decode(v, text.data(), static_cast<int>(text.size()))) return std::nullopt;
    static const char *const faults[] = {"",
                                         "no memory",
                                         "a character that JSON text cannot have here",
                                         "a closing bracket without an opening one",
                                         "a closing bracket of the other kind",
                                         "nested too deep",
                                         "a text that is too long",
                                         "a comment",
                                         "an unexpected character",
                                         "a high surrogate without a low one",
                                         "a low surrogate without a high one",
                                         "a comma outside of arrays and objects"};
    json_parser parser;
    std::size_t taken = 0;
    int error = json_parser_init(&parser, nullptr, nullptr, nullptr);
    if (!error) error = json_parser_string(&parser, text.data(), text.size(), &taken);
    json_parser_free(&parser);
    return Fault{taken, error ? faults[error] : "the text ends early"};
}

Outcome read_dump(Tq4_value v, std::string_view bytes) {
    const int size = static_cast<int>(bytes.size());
    const Tq4_checked checked = Tq4_value_check(bytes.data(), size);
    if (!checked.complete) return Fault{checked.at, "a key or value that is damaged or cut off"};
    if (checked.at < bytes.size()) return Fault{checked.at, "more bytes behind the value"};
    (*v)->Import(v, bytes.data(), size);
    return std::nullopt;
}

// Takes the first part off a key. False when it is quoted wrongly.
bool take_part(std::string_view &path, std::string &part) {
    std::size_t end = path.find('.');
    part = trimmed(path.substr(0, end));
    if (path.starts_with('"')) {
        for (end = 1; end < path.size() && path[end] != '"'; ++end) end += path[end] == '\\';
        const Object<Tq4_value> text(Tq4_value_oitf);
        const std::string_view quoted = path.substr(0, ++end);
        if (!text->Json_decode(text, quoted.data(), static_cast<int>(quoted.size()))) return false;
        part = text->GetBytes(text, nullptr);
        const std::string_view rest = path.substr(end, path.find('.', end) - end);
        if (!trimmed(rest).empty()) return false;
        end += rest.size();
    }
    path = end < path.size() ? trimmed(path.substr(end + 1)) : "";
    return true;
}

// The end of a line's key: the first = outside of quotation marks.
std::size_t end_of_key(std::string_view line) {
    bool quoted = false;
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == '\\' && quoted)
            ++at;
        else if (line[at] == '"')
            quoted = !quoted;
        else if (line[at] == '=' && !quoted)
            return at;
    }
    return line.npos;
}

Outcome read_pair(Tq4_value root, std::string_view line, std::size_t at) {
    const std::size_t equals = end_of_key(line);
    if (equals == line.npos) return Fault{at, "a line without ="};
    std::string_view path = trimmed(line.substr(0, equals));
    const std::string_view value = trimmed(line.substr(equals + 1));
    Tq4_value v = root;
    unsigned long depth = 1;
    for (; !path.empty(); ++depth) {
        std::string part;
        if (depth > Tq4_value_nesting_limit) return Fault{at, "nested too deep"};
        if (!take_part(path, part)) return Fault{at, "a key that is quoted wrongly"};
        v = (*v)->InsertS(v, part.c_str());
    }
    Tq4_value_oitf->Reset(v);
    const int size = static_cast<int>(value.size());
    if ((*v)->Json_decode(v, value.data(), size)) {
        Extent extent;
        measure(v, depth, extent);
        if (extent.depth > Tq4_value_nesting_limit) return Fault{at, "nested too deep"};
        return std::nullopt;
    }
    Tq4_value_oitf->Reset(v);
    (*v)->SetString(v, value.data(), size);
    return std::nullopt;
}

Outcome read_pairs(Tq4_value v, std::string_view text) {
    (*v)->Init(v, Tq4_value_Table);
    for (std::size_t at = 0; at < text.size();) {
        const std::string_view line = text.substr(at, text.find('\n', at) - at);
        const std::string_view content = trimmed(line);
        if (!content.empty() && content[0] != '#')
            if (Outcome fault = read_pair(v, line, at)) return fault;
        at += line.size() + 1;
    }
    return std::nullopt;
}

// ---- the forms

std::string dump_of(Tq4_value v) {
    const Object<Tq4_string> out(Tq4_string_oitf);
    (*v)->Dump(v, out);
    return {out->c_str(out), static_cast<std::size_t>(out->length(out))};
}

const struct Form {
    const char *name;
    Outcome (*read)(Tq4_value v, std::string_view text);
    std::string (*write)(Tq4_value v, bool pretty);
} forms[] = {
    {"json", read_json, [](Tq4_value v, bool pretty) { return Json_text::of(v, pretty) + "\n"; }},
    {"dump", read_dump, [](Tq4_value v, bool) { return dump_of(v); }},
    {"pairs", read_pairs,
     [](Tq4_value v, bool) {
         std::string out;
         write_pairs(out, "", v);
         return out;
     }},
};

const Form *form_named(std::string_view name) {
    for (const Form &form : forms)
        if (name == form.name) return &form;
    return nullptr;
}

struct Options {
    const Form *from = forms, *to = forms;
    bool pretty = false;
    const char *file = nullptr;   // standard input
    const char *output = nullptr; // standard output
};

// The whole file; nothing, with errno set, when it cannot be read or is larger than the library takes.
std::optional<std::string> content(const char *path) {
    FILE *file = path ? std::fopen(path, "rb") : stdin;
    if (!file) return std::nullopt;
    std::string text;
    char piece[65536];
    while (const std::size_t n = std::fread(piece, 1, sizeof piece, file)) {
        text.append(piece, n);
        if (text.size() > INT_MAX) return errno = EFBIG, std::nullopt;
    }
    if (std::ferror(file)) return std::nullopt;
    return text;
}

int convert(const Options &options) {
    const std::optional<std::string> text = content(options.file);
    if (!text) {
        std::fprintf(stderr, "tablecat: %s: %s\n", options.file ? options.file : "-", std::strerror(errno));
        return NO_FILE;
    }
    const Object<Tq4_value> value(Tq4_value_oitf);
    if (const Outcome fault = options.from->read(value, *text)) {
        std::fprintf(stderr, "tablecat: byte %zu: malformed %s: %s\n", fault->byte, options.from->name,
                     fault->what.c_str());
        return MALFORMED;
    }
    const std::string written = options.to->write(value, options.pretty);
    FILE *out = options.output ? std::fopen(options.output, "wb") : stdout;
    if (!out || std::fwrite(written.data(), 1, written.size(), out) != written.size() || std::fflush(out) != 0) {
        std::fprintf(stderr, "tablecat: %s: %s\n", options.output ? options.output : "-", std::strerror(errno));
        return NO_FILE;
    }
    Extent extent;
    measure(value, 1, extent);
    std::fprintf(stderr, "tablecat: %lu entries, depth %lu, %zu bytes of %s from %zu bytes of %s\n", extent.entries,
                 extent.depth, written.size(), options.to->name, text->size(), options.from->name);
    return DONE;
}

} // namespace

int main(int argc, char **argv) {
    static const option long_options[] = {
        {"from", required_argument, nullptr, 'f'}, {"to", required_argument, nullptr, 't'},
        {"pretty", no_argument, nullptr, 'p'},     {"output", required_argument, nullptr, 'o'},
        {"help", no_argument, nullptr, 'h'},       {}};
    Options options;
    for (int letter; (letter = getopt_long(argc, argv, "f:t:o:ph", long_options, nullptr)) != -1;) {
        const Form *form = optarg ? form_named(optarg) : nullptr;
        if (letter == 'h') return std::fputs(help, stdout), DONE;
        if (letter == 'p')
            options.pretty = true;
        else if (letter == 'o')
            options.output = optarg;
        else if ((letter == 'f' || letter == 't') && form)
            (letter == 'f' ? options.from : options.to) = form;
        else
            return std::fputs("tablecat: no such option or form; see tablecat --help\n", stderr), USAGE;
    }
    if (optind < argc) options.file = argv[optind++];
    if (optind < argc) return std::fputs("tablecat: one file at most; see tablecat --help\n", stderr), USAGE;
    return convert(options);
}

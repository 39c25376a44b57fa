// tablecat: reads a value as JSON text, as a binary dump or as lines of pairs, and writes it as any of the others.
//
//   tablecat [OPTION]... [FILE]
//
// Pairs are lines "key = value", in which a key like a.b.c leads through tables, and a value that is no JSON is plain
// text. Dumps are checked before they are imported: they may come from anywhere.
#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <string_view>

#include <tq4/tq4.h>

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
    "Exit codes: 0 done, with a summary on standard error; 1 the input is malformed, or holds a pointer, which has no\n"
    "text; 2 wrong usage; 3 a file cannot be read or written.\n";

enum Exit { DONE = 0, MALFORMED = 1, USAGE = 2, NO_FILE = 3 };

// What is wrong with the input; nothing when all is well.
using Outcome = std::optional<std::string>;

std::string at_byte(std::size_t byte, const char *what) { return "byte " + std::to_string(byte) + ": " + what; }

constexpr unsigned long deepest = 512; // containers in each other, as FromJson and Import have it

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t\r");
    return first == text.npos ? "" : text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// ---- writing text

std::string text_of(Tq4_string s) { return {(*s)->c_str(s), static_cast<std::size_t>((*s)->length(s))}; }

// Nothing when there is a pointer in the value.
std::optional<std::string> json_of(Tq4_value v, bool pretty) {
    const Object<Tq4_string> out(Tq4_string_oitf);
    if (!(*v)->ToJson(v, out, pretty)) return std::nullopt;
    return text_of(out);
}

// A key as JSON names it.
std::string name_of(Tq4_key key) {
    if ((*key)->GetType(key) == Tq4_key_type_Unvalid) return "\"\"";
    const Object<Tq4_value> holder(Tq4_value_oitf);
    holder->InsertK(holder, key);
    const std::string line = *json_of(holder, false); // {"NAME":null}
    return line.substr(1, line.size() - std::strlen("{:null}"));
}

bool is_json(std::string_view text) {
    const Object<Tq4_value> value(Tq4_value_oitf);
    return value->FromJson(value, text.data(), static_cast<long>(text.size()), nullptr) == 1;
}

// Plain when it reads back as itself, else as JSON.
std::string pair_value(Tq4_value v) {
    const std::string json = *json_of(v, false);
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
    long at = 0;
    const auto size = static_cast<long>(text.size());
    if ((*v)->FromJson(v, text.data(), size, &at)) return std::nullopt;
    return at_byte(static_cast<std::size_t>(at), at == size ? "the text ends early" : "no JSON from here on");
}

Outcome read_dump(Tq4_value v, std::string_view bytes) {
    const long size = static_cast<long>(bytes.size()), whole = (*v)->Check(v, bytes.data(), size);
    if (!whole) return "damaged or cut off";
    if (whole < size) return at_byte(static_cast<std::size_t>(whole), "more bytes behind the value");
    (*v)->Import(v, bytes.data(), static_cast<int>(size));
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
        if (!text->FromJson(text, quoted.data(), static_cast<long>(quoted.size()), nullptr)) return false;
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
    if (equals == line.npos) return at_byte(at, "a line without =");
    std::string_view path = trimmed(line.substr(0, equals));
    const std::string_view value = trimmed(line.substr(equals + 1));
    Tq4_value v = root;
    unsigned long depth = 1;
    for (; !path.empty(); ++depth) {
        std::string part;
        if (depth > deepest) return at_byte(at, "nested too deep");
        if (!take_part(path, part)) return at_byte(at, "a key that is quoted wrongly");
        v = (*v)->InsertS(v, part.c_str());
    }
    if (!(*v)->FromJson(v, value.data(), static_cast<long>(value.size()), nullptr)) {
        (*v)->SetString(v, value.data(), static_cast<int>(value.size()));
        return std::nullopt;
    }
    Extent extent;
    measure(v, depth, extent);
    if (extent.depth > deepest) return at_byte(at, "nested too deep");
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
    return text_of(out);
}

// Writing gives nothing when there is a pointer in the value, which has no text.
using Text = std::optional<std::string>;
const struct Form {
    const char *name;
    Outcome (*read)(Tq4_value v, std::string_view text);
    Text (*write)(Tq4_value v, bool pretty);
} forms[] = {
    {"json", read_json,
     [](Tq4_value v, bool pretty) {
         Text json = json_of(v, pretty);
         if (json) *json += '\n';
         return json;
     }},
    {"dump", read_dump, [](Tq4_value v, bool) { return Text(dump_of(v)); }},
    {"pairs", read_pairs,
     [](Tq4_value v, bool) {
         if (!json_of(v, false)) return Text();
         std::string out;
         write_pairs(out, "", v);
         return Text(out);
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
    Outcome fault = options.from->read(value, *text);
    std::optional<std::string> written;
    if (!fault) written = options.to->write(value, options.pretty);
    if (!fault && !written) fault = "a pointer, which has no text";
    if (fault) {
        std::fprintf(stderr, "tablecat: malformed %s: %s\n", options.from->name, fault->c_str());
        return MALFORMED;
    }
    FILE *out = options.output ? std::fopen(options.output, "wb") : stdout;
    if (!out || std::fwrite(written->data(), 1, written->size(), out) != written->size() || std::fflush(out) != 0) {
        std::fprintf(stderr, "tablecat: %s: %s\n", options.output ? options.output : "-", std::strerror(errno));
        return NO_FILE;
    }
    Extent extent;
    measure(value, 1, extent);
    std::fprintf(stderr, "tablecat: %lu entries, depth %lu, %zu bytes of %s from %zu bytes of %s\n", extent.entries,
                 extent.depth, written->size(), options.to->name, text->size(), options.from->name);
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

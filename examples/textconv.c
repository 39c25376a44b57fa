/* textconv: converts text between character sets, to and from Base64, scrambles it, and counts it.
 *
 * The whole text is read before it is converted: no character is ever cut, and scrambling chains each block to the one
 * before. A conversion stops at the first malformed character and keeps what it has; how far it got is found by
 * converting its result back, which gives the part of the input that was understood. So every result is also checked.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <getopt.h>
#include <stdio.h>
#include <string.h>

#include <tq4/tq4.h>

enum { DONE = 0, MALFORMED = 1, USAGE = 2, NO_FILE = 3 };

static const char help[] =
    "Usage: textconv [OPTION]... [FILE]\n"
    "Convert the text of FILE, or of standard input, to standard output.\n"
    "\n"
    "  -f, --from=SET        the text is in the character set SET (utf8 unless given)\n"
    "  -t, --to=SET          convert it to SET (utf8 unless given)\n"
    "                        utf8, gb18030, or units: 16 bits each, in this machine's byte order\n"
    "  -e, --encode          write it as Base64\n"
    "  -d, --decode          read it as Base64\n"
    "  -s, --scramble=KEY    scramble it with KEY\n"
    "  -u, --unscramble=KEY  undo --scramble with the same KEY\n"
    "  -c, --count           print its lines, characters and display columns instead\n"
    "  -h, --help            print this\n"
    "\n"
    "Exit codes: 0 all of the text was converted; 1 it is malformed, or a character has no counterpart: what comes\n"
    "before it is written, and its byte position is named; 2 wrong usage; 3 a file cannot be read or written.\n";

/* A step appends to out what it makes of in. The key is for scrambling alone. */
typedef void (*step)(Tq4_string out, Tq4_string in, const char *key);

#define TEXT(in) (*(in))->c_str(in)
#define LENGTH(in) ((unsigned long)(*(in))->length(in))
#define CHARSET_STEP(slot, type)                                                                                       \
    static void slot(Tq4_string out, Tq4_string in, const char *key) {                                                 \
        (void)key;                                                                                                     \
        (*out)->slot(out, (const type *)TEXT(in), LENGTH(in));                                                         \
    }
CHARSET_STEP(utf8_2_gb18030, char)
CHARSET_STEP(gb18030_2_utf8, char)
CHARSET_STEP(utf8_2_unicode, char)
CHARSET_STEP(unicode_2_utf8, uint16_t)
CHARSET_STEP(gb18030_2_unicode, char)
CHARSET_STEP(unicode_2_gb18030, uint16_t)
CHARSET_STEP(Base64Encode, void)
CHARSET_STEP(Base64Decode, char)

static void scramble(Tq4_string out, Tq4_string in, const char *key) { (*out)->enc(out, TEXT(in), LENGTH(in), key); }
static void unscramble(Tq4_string out, Tq4_string in, const char *key) { (*out)->dec(out, TEXT(in), LENGTH(in), key); }

struct conversion {
    const char *from, *to; /* to is null when every byte has a counterpart */
    step forth;
    step back; /* what undoes it; null when nothing can be malformed */
};

static const struct conversion conversions[] = {
    {"utf8", "gb18030", utf8_2_gb18030, gb18030_2_utf8},
    {"gb18030", "utf8", gb18030_2_utf8, utf8_2_gb18030},
    {"utf8", "units", utf8_2_unicode, unicode_2_utf8},
    {"units", "utf8", unicode_2_utf8, utf8_2_unicode},
    {"gb18030", "units", gb18030_2_unicode, unicode_2_gb18030},
    {"units", "gb18030", unicode_2_gb18030, gb18030_2_unicode},
};
static const struct conversion encode = {"bytes", NULL, Base64Encode, NULL};
static const struct conversion decode = {"Base64", NULL, Base64Decode, Base64Encode};
static const struct conversion scrambling = {"bytes", NULL, scramble, NULL};
static const struct conversion unscrambling = {"bytes", NULL, unscramble, NULL};

static const struct conversion *between(const char *from, const char *to) {
    for (size_t i = 0; i < sizeof conversions / sizeof *conversions; ++i)
        if (!strcmp(conversions[i].from, from) && !strcmp(conversions[i].to, to)) return &conversions[i];
    return NULL;
}

static int is_line_end(char c) { return c == '\n' || c == '\r'; }

/* The position in Base64 text of the given character, not counting line ends. */
static unsigned long position_in_base64(Tq4_string text, unsigned long character) {
    unsigned long at = 0;
    for (const char *c = TEXT(text); at < LENGTH(text); ++at)
        if (!is_line_end(c[at]) && character-- == 0) break;
    return at;
}

/* How many bytes of the input the result stands for. */
static unsigned long reached(const struct conversion *conversion, Tq4_string in, Tq4_string result) {
    Tq4_string again = Tq4_string_oitf->Create(NULL);
    conversion->back(again, result, NULL);
    unsigned long length = LENGTH(again);
    if (conversion == &decode) {
        unsigned long characters = 0;
        for (unsigned long i = 0; i < length; ++i) characters += !is_line_end(TEXT(again)[i]);
        length = position_in_base64(in, characters);
    }
    Tq4_string_oitf->Delete(again);
    return length;
}

static int malformed_at(unsigned long byte, const char *from, const char *to) {
    fprintf(stderr, "textconv: byte %lu: malformed %s", byte, from);
    fprintf(stderr, to ? ", or a character without counterpart in %s\n" : "\n", to);
    return MALFORMED;
}

static int convert(const struct conversion *conversion, Tq4_string out, Tq4_string in, const char *key) {
    conversion->forth(out, in, key);
    if (!conversion->back) return DONE;
    unsigned long understood = reached(conversion, in, out);
    return understood == LENGTH(in) ? DONE : malformed_at(understood, conversion->from, conversion->to);
}

/* Counts UTF-8 text. A character of one byte is one column wide, every longer one two; a line feed has no width. */
static int count(Tq4_string text) {
    unsigned long lines = 0, characters = 0, columns = 0, length = LENGTH(text), at = 0;
    const char *bytes = TEXT(text);
    while (at < length) {
        int size = (*text)->utf8_2_unicode_onece(NULL, bytes + at, length - at);
        if (size <= 0) return malformed_at(at, "utf8", NULL);
        ++characters;
        if (bytes[at] == '\n')
            ++lines;
        else
            columns += size == 1 ? 1 : 2;
        at += (unsigned long)size;
    }
    printf("%lu lines, %lu characters, %lu columns, %lu bytes\n", lines, characters, columns, length);
    return DONE;
}

static int no_file(const char *name) {
    fprintf(stderr, "textconv: %s: %s\n", name, strerror(errno));
    return NO_FILE;
}

static int read_all(const char *name, Tq4_string text) {
    FILE *file = name ? fopen(name, "rb") : stdin;
    char piece[1 << 16];
    if (!file) return no_file(name);
    for (size_t n; (n = fread(piece, 1, sizeof piece, file)) > 0;) (*text)->Memcat(text, piece, n);
    int result = ferror(file) ? no_file(name ? name : "standard input") : DONE;
    if (name) fclose(file);
    return result;
}

static int write_all(Tq4_string text) {
    size_t written = fwrite(TEXT(text), 1, LENGTH(text), stdout);
    return written == LENGTH(text) && fflush(stdout) == 0 ? DONE : no_file("standard output");
}

static int wrong_usage(const char *what) {
    fprintf(stderr, "textconv: %s; see textconv --help\n", what);
    return USAGE;
}

/* What the command line asks for. */
struct request {
    const char *from, *to, *key, *file;
    const struct conversion *other; /* Base64 or scrambling, instead of a character set */
    int count;
};

static int run(const struct request *request) {
    const struct conversion *conversion = request->other ? request->other : between(request->from, request->to);
    int as_it_is = request->count && !strcmp(request->from, "utf8");
    if (!conversion && !as_it_is) return wrong_usage("no such conversion");

    Tq4_string in = Tq4_string_oitf->Create(NULL), out = Tq4_string_oitf->Create(NULL);
    int result = read_all(request->file, in);
    if (result == DONE && !as_it_is) {
        result = convert(conversion, out, in, request->key);
        int written = request->count ? DONE : write_all(out);
        if (result == DONE) result = written;
    }
    if (result == DONE && request->count) result = count(as_it_is ? in : out);
    Tq4_string_oitf->Delete(in);
    Tq4_string_oitf->Delete(out);
    return result;
}

int main(int argc, char **argv) {
    static const struct option options[] = {
        {"from", required_argument, NULL, 'f'},
        {"to", required_argument, NULL, 't'},
        {"encode", no_argument, NULL, 'e'},
        {"decode", no_argument, NULL, 'd'},
        {"scramble", required_argument, NULL, 's'},
        {"unscramble", required_argument, NULL, 'u'},
        {"count", no_argument, NULL, 'c'},
        {"help", no_argument, NULL, 'h'},
        {NULL, 0, NULL, 0},
    };
    struct request request = {.from = "utf8", .to = "utf8"};
    for (int option; (option = getopt_long(argc, argv, "f:t:eds:u:ch", options, NULL)) != -1;) {
        switch (option) {
        case 'f':
            request.from = optarg;
            break;
        case 't':
            request.to = optarg;
            break;
        case 'e':
            request.other = &encode;
            break;
        case 'd':
            request.other = &decode;
            break;
        case 's':
            request.other = &scrambling, request.key = optarg;
            break;
        case 'u':
            request.other = &unscrambling, request.key = optarg;
            break;
        case 'c':
            request.count = 1;
            break;
        case 'h':
            return fputs(help, stdout) == EOF ? NO_FILE : DONE;
        default:
            return USAGE; /* getopt has said why */
        }
    }
    if (optind + 1 < argc) return wrong_usage("more than one file");
    if (optind < argc) request.file = argv[optind];
    return run(&request);
}

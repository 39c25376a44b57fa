/* textconv: converts text between character sets, to and from Base64, scrambles it, and counts it.
 *
 * The text passes through in pieces of 60 KiB. A conversion stops at the first character that is malformed or cut off
 * at the end of its piece, and keeps what it has; how far it got is found by converting its result back, which also
 * checks it. What was not reached begins the next piece, and a piece of which nothing is reached begins with malformed
 * text. Scrambling alone takes the text whole, since it chains each block to the one before.
 */
#define _GNU_SOURCE
#include <errno.h>
#include <getopt.h>
#include <limits.h>
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

/* A multiple of 60, so that the lines of Base64, 80 characters for 60 bytes, go on from piece to piece. */
enum { PIECE = 60 * 1024 };

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
    unsigned long piece;
};

static const struct conversion conversions[] = {
    {"utf8", "gb18030", utf8_2_gb18030, gb18030_2_utf8, PIECE},
    {"gb18030", "utf8", gb18030_2_utf8, utf8_2_gb18030, PIECE},
    {"utf8", "units", utf8_2_unicode, unicode_2_utf8, PIECE},
    {"units", "utf8", unicode_2_utf8, utf8_2_unicode, PIECE},
    {"gb18030", "units", gb18030_2_unicode, unicode_2_gb18030, PIECE},
    {"units", "gb18030", unicode_2_gb18030, gb18030_2_unicode, PIECE},
};
static const struct conversion encode = {"bytes", NULL, Base64Encode, NULL, PIECE};
static const struct conversion decode = {"Base64", NULL, Base64Decode, Base64Encode, PIECE};
static const struct conversion scrambling = {"bytes", NULL, scramble, NULL, ULONG_MAX};
static const struct conversion unscrambling = {"bytes", NULL, unscramble, NULL, ULONG_MAX};
static const struct conversion as_it_is = {"utf8", NULL, NULL, NULL, PIECE};

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

/* Converts what it can of in, and returns how many bytes of it that was. */
static unsigned long convert(const struct conversion *conversion, Tq4_string out, Tq4_string in, const char *key) {
    conversion->forth(out, in, key);
    if (!conversion->back) return LENGTH(in);

    Tq4_string again = Tq4_string_oitf->Create(NULL);
    conversion->back(again, out, NULL);
    unsigned long reached = LENGTH(again);
    if (conversion == &decode) {
        unsigned long characters = 0;
        for (unsigned long i = 0; i < reached; ++i) characters += !is_line_end(TEXT(again)[i]);
        reached = position_in_base64(in, characters);
    }
    Tq4_string_oitf->Delete(again);
    return reached;
}

struct counts {
    unsigned long lines, characters, columns, bytes;
};

/* Counts UTF-8 text and returns how many bytes of it are whole characters. A character of one byte is one column wide,
 * every longer one two; a line feed has no width. */
static unsigned long count(struct counts *counts, Tq4_string text) {
    unsigned long length = LENGTH(text), at = 0;
    const char *bytes = TEXT(text);
    for (int size; at < length; at += (unsigned long)size) {
        size = (*text)->utf8_2_unicode_onece(NULL, bytes + at, length - at);
        if (size <= 0) break;
        ++counts->characters;
        if (bytes[at] == '\n')
            ++counts->lines;
        else
            counts->columns += size == 1 ? 1 : 2;
    }
    counts->bytes += at;
    return at;
}

static int no_file(const char *name) {
    fprintf(stderr, "textconv: %s: %s\n", name, strerror(errno));
    return NO_FILE;
}

/* Fills text up to the size of a piece, or to the end of the file. */
static int fill(Tq4_string text, unsigned long piece, FILE *file) {
    char block[1 << 14];
    size_t got = 1;
    while (got && LENGTH(text) < piece) {
        unsigned long room = piece - LENGTH(text);
        got = fread(block, 1, room < sizeof block ? room : sizeof block, file);
        (*text)->Memcat(text, block, got);
    }
    return !ferror(file);
}

static int write_all(Tq4_string text) { return fwrite(TEXT(text), 1, LENGTH(text), stdout) == LENGTH(text); }

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

static int malformed_at(unsigned long byte, const struct conversion *conversion) {
    fflush(stdout);
    fprintf(stderr, "textconv: byte %lu: malformed %s", byte, conversion->from);
    fprintf(stderr, conversion->to ? ", or a character without counterpart in %s\n" : "\n", conversion->to);
    return MALFORMED;
}

/* Passes the file through the conversion, piece by piece. */
static int pass(const struct request *request, const struct conversion *conversion, FILE *file, Tq4_string in,
                Tq4_string out) {
    struct counts counts = {0, 0, 0, 0};
    unsigned long reached;
    for (unsigned long position = 0;; position += reached) {
        if (!fill(in, conversion->piece, file)) return no_file(request->file ? request->file : "standard input");
        if (!LENGTH(in)) break;
        if (conversion == &as_it_is) {
            reached = count(&counts, in);
        } else {
            (*out)->truncate(out, 0);
            reached = convert(conversion, out, in, request->key);
            if (request->count)
                count(&counts, out);
            else if (!write_all(out))
                return no_file("standard output");
        }
        if (!reached) return malformed_at(position, conversion);
        (*in)->del(in, 0, reached);
    }
    if (request->count)
        printf("%lu lines, %lu characters, %lu columns, %lu bytes\n", counts.lines, counts.characters, counts.columns,
               counts.bytes);
    return fflush(stdout) == 0 ? DONE : no_file("standard output");
}

static int run(const struct request *request) {
    const struct conversion *conversion = request->other ? request->other : between(request->from, request->to);
    if (!conversion && request->count && !strcmp(request->from, request->to)) conversion = &as_it_is;
    if (!conversion) return wrong_usage("no such conversion");
    FILE *file = request->file ? fopen(request->file, "rb") : stdin;
    if (!file) return no_file(request->file);

    Tq4_string in = Tq4_string_oitf->Create(NULL), out = Tq4_string_oitf->Create(NULL);
    int result = pass(request, conversion, file, in, out);
    Tq4_string_oitf->Delete(in);
    Tq4_string_oitf->Delete(out);
    fclose(file);
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

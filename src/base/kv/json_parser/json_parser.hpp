// json_parser.hpp: an event-driven parser of JSON text.
//
// Text is fed in pieces of any size; every value, key and bracket is told to a callback as soon as it is complete. The
// grammar is RFC 8259, with comments where the configuration allows them. The parser keeps the text of one token and
// a byte for each open container, and nothing else. After an error it must not be fed any more.
#pragma once

#include <cstddef>
#include <cstdint>

enum json_type : uint8_t {
    JSON_NONE = 0,
    JSON_ARRAY_BEGIN = 1,
    JSON_OBJECT_BEGIN = 2,
    JSON_ARRAY_END = 3,
    JSON_OBJECT_END = 4,
    JSON_INT = 5,
    JSON_FLOAT = 6,
    JSON_STRING = 7,
    JSON_KEY = 8,
    JSON_TRUE = 9,
    JSON_FALSE = 10,
    JSON_NULL = 11
};

enum json_error {
    JSON_ERROR_NO_MEMORY = 1,
    JSON_ERROR_BAD_CHAR = 2,            // a byte that cannot stand in JSON text at all
    JSON_ERROR_POP_EMPTY = 3,           // a closing bracket without an open container
    JSON_ERROR_POP_UNEXPECTED_MODE = 4, // ... that closes a container of the other kind
    JSON_ERROR_NESTING_LIMIT = 5,
    JSON_ERROR_DATA_LIMIT = 6, // a token longer than max_data
    JSON_ERROR_COMMENT_NOT_ALLOWED = 7,
    JSON_ERROR_UNEXPECTED_CHAR = 8, // a byte that cannot stand here; also text that ends early
    JSON_ERROR_UNICODE_MISSING_LOW_SURROGATE = 9,
    JSON_ERROR_UNICODE_UNEXPECTED_LOW_SURROGATE = 10,
    JSON_ERROR_COMMA_OUT_OF_STRUCTURE = 11,
    JSON_ERROR_CALLBACK = 12 // the callback did not return 0
};

// Zero in a field, or no configuration at all, means the default.
struct json_config {
    uint32_t buffer_initial_size; // bytes for a token to start with; default 64
    uint32_t max_nesting;         // open containers; default 512
    uint32_t max_data;            // bytes of a token; default 0: no limit
    int allow_c_comments;         // /* ... */
    int allow_yaml_comments;      // # to the end of the line
    // Default calloc and realloc; what they give is given to free.
    void *(*user_calloc)(size_t count, size_t size);
    void *(*user_realloc)(void *memory, size_t size);
};

// Called on the thread that feeds, with the text of keys, strings (unescaped) and numbers, which is valid during the
// call; a NUL follows numbers only. Null for the other events. Returns 0 to go on.
using json_parser_callback = int (*)(void *userdata, int type, const char *text, size_t length);

struct json_parser {
    json_config config;
    json_parser_callback callback;
    void *userdata; // borrowed

    uint8_t state, save_state; // save_state: where a comment goes back to
    uint8_t expecting_key;     // the next string is a key
    uint16_t unicode_multi;    // a high surrogate that waits for its low one; 0 for none
    uint16_t unicode_digits;   // the hexadecimal digits of an escape so far
    json_type type;            // of the token under way

    char *stack; // owned: '[' or '{' for each open container
    uint32_t stack_offset, stack_size;
    char *buffer; // owned: the text of the token under way
    uint32_t buffer_offset, buffer_size;
};

// Prepares a parser; config may be null. Returns 0, or JSON_ERROR_NO_MEMORY.
int json_parser_init(json_parser *parser, const json_config *config, json_parser_callback callback, void *userdata);
// Frees what the parser owns; a parser whose init failed is fine too.
int json_parser_free(json_parser *parser);

// Feeds bytes. Returns 0 or the error; *processed (may be null) is set to how many bytes were taken before it.
int json_parser_string(json_parser *parser, const char *text, size_t length, size_t *processed);
// The same for one byte: for callers that have no more at a time. The library feeds whole texts.
int json_parser_char(json_parser *parser, unsigned char byte);

// Ends the text: completes a number that stands alone. Returns 0 when the text was complete, else the error.
int json_parser_done(json_parser *parser);

// json_parser: runs the table of transitions over bytes.
//
// Blanks between tokens, runs of plain bytes in strings and of digits in numbers are taken as a whole; every other byte
// takes one step: a look into the table and, for an action, its function. A string without escapes that lies in one
// piece of the text is not copied. Time is linear in the text.
#include "base/kv/json_parser/json_parser.hpp"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "base/charset/utf8.hpp"
#include "base/kv/json_parser/byte_runs.hpp"
#include "base/kv/json_parser/transitions.hpp"
#include "base/kv/limits.hpp"

using namespace json;

namespace {

constexpr uint32_t first_buffer_size = 64;
constexpr uint32_t first_stack_size = 16;

// A function that grows a block to hold `needed` bytes; false when it cannot.
bool reserve(const json_config &config, char *&block, uint32_t &size, uint64_t needed, uint32_t first_size) {
    if (needed <= size) return true;
    const uint64_t grown = std::max<uint64_t>({needed, uint64_t{size} * 2, first_size});
    if (grown > UINT32_MAX) return false;
    void *moved = config.user_realloc(block, grown);
    if (!moved) return false;
    block = static_cast<char *>(moved);
    size = static_cast<uint32_t>(grown);
    return true;
}

int keep(json_parser *p, const char *bytes, size_t n) {
    const uint64_t needed = uint64_t{p->buffer_offset} + n + 1; // a NUL comes behind
    if (p->config.max_data && needed - 1 > p->config.max_data) return JSON_ERROR_DATA_LIMIT;
    if (!reserve(p->config, p->buffer, p->buffer_size, needed, p->config.buffer_initial_size))
        return JSON_ERROR_NO_MEMORY;
    std::memcpy(p->buffer + p->buffer_offset, bytes, n);
    p->buffer_offset += static_cast<uint32_t>(n);
    return 0;
}

int keep_code_point(json_parser *p, uint32_t code_point) {
    uint8_t utf8[6];
    return keep(p, reinterpret_cast<char *>(utf8), utf8_encode(code_point, utf8));
}

int tell(json_parser *p, json_type type, const char *text, size_t length) {
    if (!p->callback) return 0;
    return p->callback(p->userdata, type, text, length) ? JSON_ERROR_CALLBACK : 0;
}

// Tells an event; one with text ends the token.
int call(json_parser *p, json_type type) {
    const bool has_text = type >= JSON_INT && type <= JSON_KEY;
    if (!has_text) return tell(p, type, nullptr, 0);
    if (int error = keep(p, "", 0)) return error; // makes room for the NUL
    p->buffer[p->buffer_offset] = '\0';
    const size_t length = std::exchange(p->buffer_offset, 0u);
    return tell(p, type, p->buffer, length);
}

char innermost(const json_parser *p) { return p->stack_offset ? p->stack[p->stack_offset - 1] : '\0'; }

int push(json_parser *p, char container) {
    if (p->stack_offset >= p->config.max_nesting) return JSON_ERROR_NESTING_LIMIT;
    if (!reserve(p->config, p->stack, p->stack_size, uint64_t{p->stack_offset} + 1, first_stack_size))
        return JSON_ERROR_NO_MEMORY;
    p->stack[p->stack_offset++] = container;
    p->expecting_key = container == '{';
    return 0;
}

int pop(json_parser *p, char container) {
    if (!p->stack_offset) return JSON_ERROR_POP_EMPTY;
    if (innermost(p) != container) return JSON_ERROR_POP_UNEXPECTED_MODE;
    --p->stack_offset;
    p->expecting_key = 0;
    return 0;
}

// ---- what actions do beyond their description; each returns 0 or an error

int comma(json_parser *p) {
    if (!p->stack_offset) return JSON_ERROR_COMMA_OUT_OF_STRUCTURE;
    p->expecting_key = innermost(p) == '{';
    p->state = p->expecting_key ? STATE_KE : STATE_VA;
    return 0;
}

// The type of the string that ends here.
json_type string_end(json_parser *p) {
    if (!p->expecting_key) return JSON_STRING;
    p->expecting_key = 0;
    p->state = STATE_CO;
    return JSON_KEY;
}

int escaped(json_parser *p, char byte) {
    constexpr char codes[] = "b\bf\fn\nr\rt\t";
    for (const char *code = codes; *code; code += 2)
        if (*code == byte) return keep(p, code + 1, 1);
    return keep(p, &byte, 1); // a quote, a backslash or a slash, itself
}

unsigned hexadecimal(char digit) {
    return static_cast<unsigned>(digit <= '9' ? digit - '0' : (digit | 0x20) - 'a' + 10);
}

int code_unit(json_parser *p, char digit) {
    const uint32_t unit = static_cast<uint16_t>(p->unicode_digits << 4 | hexadecimal(digit));
    p->unicode_digits = 0;
    const bool high = (unit & 0xfc00) == 0xd800, low = (unit & 0xfc00) == 0xdc00;
    if (p->unicode_multi) {
        if (!low) return JSON_ERROR_UNICODE_MISSING_LOW_SURROGATE;
        const uint32_t upper = p->unicode_multi & 0x3ffu;
        p->unicode_multi = 0;
        return keep_code_point(p, 0x10000 + (upper << 10 | (unit & 0x3ff)));
    }
    if (low) return JSON_ERROR_UNICODE_UNEXPECTED_LOW_SURROGATE;
    if (!high) return keep_code_point(p, unit);
    p->unicode_multi = static_cast<uint16_t>(unit);
    p->state = STATE_D1;
    return 0;
}

int comment(json_parser *p, uint8_t from, bool allowed) {
    p->save_state = from;
    return allowed ? 0 : JSON_ERROR_COMMENT_NOT_ALLOWED;
}

int act(json_parser *p, uint8_t action, uint8_t from, char byte) {
    const action_descr &description = actions[action - state_count];
    p->state = description.state;
    if (description.dobuffer)
        if (int error = keep(p, &byte, 1)) return error;
    if (!description.call && description.type != JSON_NONE) p->type = description.type;
    switch (action) {
    case STATE_SP:
        return comma(p);
    case STATE_AB:
        if (int error = push(p, '[')) return error;
        break;
    case STATE_BO:
        if (int error = push(p, '{')) return error;
        break;
    case STATE_AE:
        if (int error = pop(p, '[')) return error;
        break;
    case STATE_EO:
        if (int error = pop(p, '{')) return error;
        break;
    case STATE_SE:
        return call(p, string_end(p));
    case STATE_NE:
        return call(p, p->type);
    case STATE_EX:
        return escaped(p, byte);
    case STATE_UH:
        p->state = static_cast<uint8_t>(from + 1);
        p->unicode_digits = static_cast<uint16_t>(p->unicode_digits << 4 | hexadecimal(byte));
        return 0;
    case STATE_UC:
        return code_unit(p, byte);
    case STATE_CB:
        return comment(p, from, p->config.allow_c_comments);
    case STATE_YB:
        return comment(p, from, p->config.allow_yaml_comments);
    case STATE_CE:
        p->state = p->save_state;
        return 0;
    default:
        break;
    }
    return description.call ? call(p, description.type) : 0;
}

int refused(const json_parser *p, uint8_t from, uint8_t c) {
    if (from == STATE_D1 || from == STATE_D2) return JSON_ERROR_UNICODE_MISSING_LOW_SURROGATE;
    if (c == C_ERROR) return JSON_ERROR_BAD_CHAR;
    if (c == C_COMMA && !p->stack_offset) return JSON_ERROR_COMMA_OUT_OF_STRUCTURE;
    return JSON_ERROR_UNEXPECTED_CHAR;
}

bool in_number(uint8_t state) { return state >= STATE_MI && state <= STATE_E3; }

static_assert(STATE_AR + 1 == STATE_ST, "the states between tokens come first");
bool between_tokens(uint8_t state) { return state <= STATE_AR; }

// Takes plain bytes of a string. A string that lies here whole is told as it lies here, and so is every one that
// follows with nothing but a colon or a comma and blanks between: most of a text is members that are strings.
int take_strings(json_parser *p, const char *bytes, size_t n, size_t &taken) {
    const char *const end = bytes + n;
    for (const char *at = bytes + taken;;) {
        const auto run = Tq4_json_plain(at, static_cast<size_t>(end - at));
        const char *next = at + run;
        if (p->buffer_offset || next == end || *next != '"') {
            const int error = run ? keep(p, at, run) : 0;
            if (!error) taken += run;
            return error;
        }
        if (p->config.max_data && run > p->config.max_data) return JSON_ERROR_DATA_LIMIT;
        taken += run;
        p->state = STATE_OK;
        const json_type type = string_end(p);
        if (int error = tell(p, type, at, run)) return error;
        const bool goes_on = ++next != end && (type == JSON_KEY ? *next == ':' : *next == ',' && p->stack_offset);
        if (goes_on) {
            if (type == JSON_KEY)
                p->state = STATE_VA;
            else
                comma(p);
            ++next;
            next += Tq4_json_blanks(next, static_cast<size_t>(end - next));
        }
        taken = static_cast<size_t>(next - bytes);
        if (!goes_on || next == end || *next != '"') return 0;
        p->state = STATE_ST;
        ++taken;
        at = next + 1;
    }
}

int take_digits(json_parser *p, const char *bytes, size_t n, size_t &taken) {
    const size_t run = Tq4_json_digits(bytes, n);
    const int error = run ? keep(p, bytes, run) : 0;
    taken = error ? 0 : run;
    return error;
}

int step(json_parser *p, char byte) {
    const uint8_t from = p->state;
    const uint8_t c = class_of[static_cast<unsigned char>(byte)];
    const uint8_t next = transitions[from][c];
    if (next == STATE_XX) return refused(p, from, c);
    if (next >= state_count) {
        if (int error = act(p, next, from, byte)) return error;
        return next == STATE_NE ? step(p, byte) : 0; // the byte after a number counts for itself
    }
    p->state = next;
    return in_number(next) ? keep(p, &byte, 1) : 0;
}

} // namespace

int json_parser_init(json_parser *parser, const json_config *config, json_parser_callback callback, void *userdata) {
    *parser = {};
    if (config) parser->config = *config;
    json_config &c = parser->config;
    if (!c.buffer_initial_size) c.buffer_initial_size = first_buffer_size;
    if (!c.max_nesting) c.max_nesting = Tq4_value_nesting_limit;
    if (!c.user_calloc) c.user_calloc = std::calloc;
    if (!c.user_realloc) c.user_realloc = std::realloc;
    parser->callback = callback;
    parser->userdata = userdata;
    parser->state = STATE_GO;
    parser->buffer = static_cast<char *>(c.user_calloc(c.buffer_initial_size, 1));
    if (!parser->buffer) return JSON_ERROR_NO_MEMORY;
    parser->buffer_size = c.buffer_initial_size;
    return 0;
}

int json_parser_free(json_parser *parser) {
    std::free(parser->stack);
    std::free(parser->buffer);
    *parser = {};
    return 0;
}

int json_parser_string(json_parser *parser, const char *text, size_t length, size_t *processed) {
    size_t at = 0;
    int error = 0;
    while (at < length && !error) {
        size_t taken = 0;
        if (between_tokens(parser->state)) {
            at += Tq4_json_blanks(text + at, length - at);
            if (at == length) break;
        } else if (parser->state == STATE_ST) {
            error = take_strings(parser, text + at, length - at, taken);
        } else if (parser->state == STATE_IN || parser->state == STATE_FS) {
            error = take_digits(parser, text + at, length - at, taken);
        }
        at += taken;
        if (taken || error) continue;
        // The most frequent of what is left, and everything else.
        const uint8_t next = transitions[parser->state][class_of[static_cast<unsigned char>(text[at])]];
        if (next == STATE_SB) {
            parser->state = STATE_ST;
            ++at;
            error = take_strings(parser, text + at, length - at, taken);
            at += taken;
            continue;
        }
        if (next == STATE_KS)
            parser->state = STATE_VA;
        else if (next == STATE_SP)
            error = comma(parser);
        else
            error = step(parser, text[at]);
        at += !error;
    }
    if (processed) *processed = at;
    return error;
}

int json_parser_char(json_parser *parser, unsigned char byte) {
    const char text = static_cast<char>(byte);
    return json_parser_string(parser, &text, 1, nullptr);
}

int json_parser_done(json_parser *parser) {
    if (in_number(parser->state))
        if (int error = step(parser, ' ')) return error;
    const bool complete = parser->state == STATE_OK || (parser->state == STATE_Y1 && parser->save_state == STATE_OK);
    return complete && !parser->stack_offset ? 0 : JSON_ERROR_UNEXPECTED_CHAR;
}

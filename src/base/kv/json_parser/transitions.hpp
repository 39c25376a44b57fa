// transitions.hpp: the grammar of JSON text as a table.
//
// A byte belongs to a class; a state and a class give either the next state or an action, which does something and
// goes on to the state of its description. What the table does not allow stays an error.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>

#include "base/kv/json_parser/json_parser.hpp"

namespace json {

enum char_class : uint8_t {
    C_SPACE, // blank, tab, carriage return
    C_LFEED,
    C_LCURB,
    C_RCURB,
    C_LSQRB,
    C_RSQRB,
    C_COLON,
    C_COMMA,
    C_QUOTE,
    C_BACKS,
    C_SLASH,
    C_PLUS,
    C_MINUS,
    C_POINT,
    C_ZERO,
    C_DIGIT, // 1 to 9
    C_LOW_A,
    C_LOW_B,
    C_LOW_E,
    C_LOW_F,
    C_LOW_L,
    C_LOW_N,
    C_LOW_R,
    C_LOW_S,
    C_LOW_T,
    C_LOW_U,
    C_HEX, // c d A B C D F
    C_CAP_E,
    C_ETC, // every other byte that a string may hold
    C_STAR,
    C_HASH,
    C_ERROR, // control characters
    class_count
};

enum state : uint8_t {
    STATE_GO, // nothing read yet
    STATE_OK, // after a value
    STATE_OB, // after {
    STATE_KE, // before a key, after a comma
    STATE_CO, // before a colon
    STATE_VA, // before a value
    STATE_AR, // after [
    STATE_ST, // in a string
    STATE_ES, // after a backslash
    STATE_U1,
    STATE_U2,
    STATE_U3,
    STATE_U4, // before so many-th hexadecimal digit
    STATE_MI, // after a minus sign
    STATE_ZE, // after a leading zero
    STATE_IN, // in an integer
    STATE_FR, // after the point
    STATE_FS, // in the fraction
    STATE_E1,
    STATE_E2,
    STATE_E3, // after e, after its sign, in the exponent
    STATE_T1,
    STATE_T2,
    STATE_T3, // in true
    STATE_F1,
    STATE_F2,
    STATE_F3,
    STATE_F4, // in false
    STATE_N1,
    STATE_N2,
    STATE_N3, // in null
    STATE_C1,
    STATE_C2,
    STATE_C3, // after /, in /* */, after its star
    STATE_Y1, // in a comment to the end of the line
    STATE_D1,
    STATE_D2, // before the backslash and the u of a low surrogate
    state_count,

    // Actions.
    STATE_KS = state_count, // colon: a value follows
    STATE_SP,               // comma: a key or a value follows
    STATE_AB,
    STATE_AE, // array begins, ends
    STATE_BO,
    STATE_EO, // object begins, ends
    STATE_SB,
    STATE_SE, // string begins, ends
    STATE_CB,
    STATE_YB, // comment begins
    STATE_CE, // comment ends
    STATE_TR,
    STATE_FA,
    STATE_NU, // the last letter of true, false, null
    STATE_MX,
    STATE_ZX,
    STATE_IX, // a number begins: minus, zero, digit
    STATE_DE, // point: the number is a float
    STATE_DF, // e: likewise
    STATE_NE, // a number ended before this byte
    STATE_EX, // escaped character
    STATE_UH, // hexadecimal digit
    STATE_UC, // the last one: a code unit is complete
    action_end,

    STATE_XX = 0xff // error
};

// What an action does besides: calls back with a type, sets the type of the token, goes to a state, and keeps the byte.
struct action_descr {
    bool call;
    json_type type;
    uint8_t state;
    bool dobuffer;
};

constexpr std::array<uint8_t, 256> make_classes() {
    std::array<uint8_t, 256> of{};
    for (int byte = 0; byte < 256; ++byte) of[static_cast<unsigned>(byte)] = byte < 0x20 ? C_ERROR : C_ETC;
    const auto set = [&](const char *bytes, char_class c) {
        for (; *bytes; ++bytes) of[static_cast<unsigned char>(*bytes)] = c;
    };
    set(" \t\r", C_SPACE);
    set("\n", C_LFEED);
    set("123456789", C_DIGIT);
    set("cdABCDF", C_HEX);
    const struct {
        char byte;
        char_class c;
    } singles[] = {{'{', C_LCURB}, {'}', C_RCURB},  {'[', C_LSQRB}, {']', C_RSQRB}, {':', C_COLON}, {',', C_COMMA},
                   {'"', C_QUOTE}, {'\\', C_BACKS}, {'/', C_SLASH}, {'+', C_PLUS},  {'-', C_MINUS}, {'.', C_POINT},
                   {'0', C_ZERO},  {'a', C_LOW_A},  {'b', C_LOW_B}, {'e', C_LOW_E}, {'f', C_LOW_F}, {'l', C_LOW_L},
                   {'n', C_LOW_N}, {'r', C_LOW_R},  {'s', C_LOW_S}, {'t', C_LOW_T}, {'u', C_LOW_U}, {'E', C_CAP_E},
                   {'*', C_STAR},  {'#', C_HASH}};
    for (auto [byte, c] : singles) of[static_cast<unsigned char>(byte)] = c;
    return of;
}
inline constexpr std::array<uint8_t, 256> class_of = make_classes();

using Row = std::array<uint8_t, class_count>;
using Table = std::array<Row, state_count>;

using Classes = std::initializer_list<uint8_t>;

constexpr void on(Table &table, Classes states, Classes classes, uint8_t next) {
    for (uint8_t from : states)
        for (uint8_t c : classes) table[from][c] = next;
}
constexpr void anything(Table &table, uint8_t from, uint8_t next) { table[from].fill(next); }

constexpr void add_structure(Table &table) {
    // Between tokens.
    for (uint8_t from : {STATE_GO, STATE_OK, STATE_OB, STATE_KE, STATE_CO, STATE_VA, STATE_AR}) {
        on(table, {from}, {C_SPACE, C_LFEED}, from);
        on(table, {from}, {C_SLASH}, STATE_CB);
        on(table, {from}, {C_HASH}, STATE_YB);
    }
    for (uint8_t from : {STATE_GO, STATE_VA, STATE_AR}) {
        on(table, {from}, {C_LCURB}, STATE_BO);
        on(table, {from}, {C_LSQRB}, STATE_AB);
        on(table, {from}, {C_QUOTE}, STATE_SB);
        on(table, {from}, {C_MINUS}, STATE_MX);
        on(table, {from}, {C_ZERO}, STATE_ZX);
        on(table, {from}, {C_DIGIT}, STATE_IX);
        on(table, {from}, {C_LOW_T}, STATE_T1);
        on(table, {from}, {C_LOW_F}, STATE_F1);
        on(table, {from}, {C_LOW_N}, STATE_N1);
    }
    on(table, {STATE_OB, STATE_KE}, {C_QUOTE}, STATE_SB);
    on(table, {STATE_CO}, {C_COLON}, STATE_KS);
    on(table, {STATE_OK}, {C_COMMA}, STATE_SP);
    on(table, {STATE_OK, STATE_OB}, {C_RCURB}, STATE_EO);
    on(table, {STATE_OK, STATE_AR}, {C_RSQRB}, STATE_AE);
    on(table, {STATE_GO}, {C_RCURB}, STATE_EO); // nothing to close: the action says so
    on(table, {STATE_GO}, {C_RSQRB}, STATE_AE);
    on(table, {STATE_GO}, {C_COMMA}, STATE_SP);

    // Literals.
    on(table, {STATE_T1}, {C_LOW_R}, STATE_T2);
    on(table, {STATE_T2}, {C_LOW_U}, STATE_T3);
    on(table, {STATE_T3}, {C_LOW_E}, STATE_TR);
    on(table, {STATE_F1}, {C_LOW_A}, STATE_F2);
    on(table, {STATE_F2}, {C_LOW_L}, STATE_F3);
    on(table, {STATE_F3}, {C_LOW_S}, STATE_F4);
    on(table, {STATE_F4}, {C_LOW_E}, STATE_FA);
    on(table, {STATE_N1}, {C_LOW_U}, STATE_N2);
    on(table, {STATE_N2}, {C_LOW_L}, STATE_N3);
    on(table, {STATE_N3}, {C_LOW_L}, STATE_NU);
}

constexpr void add_numbers(Table &table) {
    on(table, {STATE_MI}, {C_ZERO}, STATE_ZE);
    on(table, {STATE_MI}, {C_DIGIT}, STATE_IN);
    on(table, {STATE_IN}, {C_ZERO, C_DIGIT}, STATE_IN);
    on(table, {STATE_ZE, STATE_IN}, {C_POINT}, STATE_DE);
    on(table, {STATE_FR, STATE_FS}, {C_ZERO, C_DIGIT}, STATE_FS);
    on(table, {STATE_ZE, STATE_IN, STATE_FS}, {C_LOW_E, C_CAP_E}, STATE_DF);
    on(table, {STATE_E1}, {C_PLUS, C_MINUS}, STATE_E2);
    on(table, {STATE_E1, STATE_E2, STATE_E3}, {C_ZERO, C_DIGIT}, STATE_E3);
    on(table, {STATE_ZE, STATE_IN, STATE_FS, STATE_E3}, {C_SPACE, C_LFEED, C_COMMA, C_RCURB, C_RSQRB, C_SLASH, C_HASH},
       STATE_NE);
}

constexpr void add_strings_and_comments(Table &table) {
    // Strings; their plain bytes are taken in runs and do not come here, what does is no byte of a string.
    on(table, {STATE_ST}, {C_QUOTE}, STATE_SE);
    on(table, {STATE_ST}, {C_BACKS}, STATE_ES);
    on(table, {STATE_ES}, {C_QUOTE, C_BACKS, C_SLASH, C_LOW_B, C_LOW_F, C_LOW_N, C_LOW_R, C_LOW_T}, STATE_EX);
    on(table, {STATE_ES, STATE_D2}, {C_LOW_U}, STATE_U1);
    on(table, {STATE_D1}, {C_BACKS}, STATE_D2);
    for (uint8_t from : {STATE_U1, STATE_U2, STATE_U3, STATE_U4})
        on(table, {from}, {C_ZERO, C_DIGIT, C_LOW_A, C_LOW_B, C_LOW_E, C_LOW_F, C_HEX, C_CAP_E},
           from == STATE_U4 ? STATE_UC : STATE_UH);

    // Comments.
    on(table, {STATE_C1}, {C_STAR}, STATE_C2);
    anything(table, STATE_C2, STATE_C2);
    on(table, {STATE_C2}, {C_STAR}, STATE_C3);
    anything(table, STATE_C3, STATE_C2);
    on(table, {STATE_C3}, {C_STAR}, STATE_C3);
    on(table, {STATE_C3}, {C_SLASH}, STATE_CE);
    anything(table, STATE_Y1, STATE_Y1);
    on(table, {STATE_Y1}, {C_LFEED}, STATE_CE);
}

constexpr Table make_transitions() {
    Table table{};
    for (Row &row : table) row.fill(STATE_XX);
    add_structure(table);
    add_numbers(table);
    add_strings_and_comments(table);
    return table;
}
inline constexpr Table transitions = make_transitions();

// By action, from STATE_KS on.
inline constexpr action_descr actions[action_end - state_count] = {
    {false, JSON_NONE, STATE_VA, false},        // KS
    {false, JSON_NONE, STATE_VA, false},        // SP
    {true, JSON_ARRAY_BEGIN, STATE_AR, false},  // AB
    {true, JSON_ARRAY_END, STATE_OK, false},    // AE
    {true, JSON_OBJECT_BEGIN, STATE_OB, false}, // BO
    {true, JSON_OBJECT_END, STATE_OK, false},   // EO
    {false, JSON_STRING, STATE_ST, false},      // SB
    {true, JSON_STRING, STATE_OK, false},       // SE
    {false, JSON_NONE, STATE_C1, false},        // CB
    {false, JSON_NONE, STATE_Y1, false},        // YB
    {false, JSON_NONE, STATE_OK, false},        // CE: to where the comment began
    {true, JSON_TRUE, STATE_OK, false},         // TR
    {true, JSON_FALSE, STATE_OK, false},        // FA
    {true, JSON_NULL, STATE_OK, false},         // NU
    {false, JSON_INT, STATE_MI, true},          // MX
    {false, JSON_INT, STATE_ZE, true},          // ZX
    {false, JSON_INT, STATE_IN, true},          // IX
    {false, JSON_FLOAT, STATE_FR, true},        // DE
    {false, JSON_FLOAT, STATE_E1, true},        // DF
    {true, JSON_NONE, STATE_OK, false},         // NE: with the number's own type
    {false, JSON_NONE, STATE_ST, false},        // EX
    {false, JSON_NONE, STATE_U2, false},        // UH: to the state after this one
    {false, JSON_NONE, STATE_ST, false},        // UC
};

} // namespace json

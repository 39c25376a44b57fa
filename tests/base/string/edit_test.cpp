// Editing: every operation against a std::string model, also with operands inside the string itself and without room.
#include "string_fixture.hpp"

namespace {

// Applies one random operation after another to a string and to its model.
struct StringEditModel : StringFixture {
    std::mt19937 random{20240229};
    std::string model, value;                    // value: the operand
    const char *bytes = nullptr, *own = nullptr; // the operand, in or outside the string; the string's text
    unsigned long size = 0, at = 0, inside = 0, n = 0;
    char c = 0;

    const std::function<void()> operations[24] = {
        [this] { (*s)->Memcpy(s, bytes, size), model = value; },
        [this] { (*s)->Strncat(s, bytes, size), model += value; },
        [this] { (*s)->insert_str(s, at, bytes, size), model.insert(inside, value); },
        [this] { (*s)->insert_char(s, at, c, n), model.insert(inside, n, c); },
        [this] { (*s)->del(s, at, n), model.erase(inside, n); },
        [this] { (*s)->del(s, at, TQ4_ALL_ONES), model.erase(inside); },
        [this] { (*s)->addch(s, c), model += c; },
        [this] { (*s)->addnch(s, c, n), model.append(n, c); },
        [this] { (*s)->resize(s, n, 0x100 + 'f'), model.resize(n, 'f'); },
        [this] { std::memcpy((*s)->Extend(s, 3), "ext", 3), model += "ext"; },
        [this] { (*s)->truncate(s, at), model.resize(inside); },
        [this] { (*s)->truncate_tail(s, n), model.resize(model.size() - std::min(n, model.size())); },
        [this] { (*s)->Replace(s, 'a', c), std::replace(model.begin(), model.end(), 'a', c); },
        [this] { (*s)->Reverse(s), std::reverse(model.begin(), model.end()); },
        [this] { (*s)->TrimLeft(s), trim_left(); },
        [this] { (*s)->TrimRight(s), trim_right(); },
        [this] { (*s)->Trim(s), trim_right(), trim_left(); },
        [this] { (*s)->SetAt(s, at, c), at < model.size() ? void(model[at] = c) : void(); },
        [this] { (*s)->Upper(s), each_byte(std::toupper); },
        [this] { (*s)->Lower(s), each_byte(std::tolower); },
        [this] { (*s)->host2net(s, bytes, size), model.append(value.rbegin(), value.rend()); },
        [this] { model = std::to_string(n) + own, (*s)->Sprintf(s, "%lu%s", n, own); },
        [this] { model += own, (*s)->Sprintf_append(s, "%s", own); },
        [this] { model.insert(inside, own + std::string("!")), (*s)->insert(s, at, "%s!", own); },
    };
    unsigned long below(unsigned long limit) { return random() % limit; }
    void each_byte(int (*change)(int)) {
        for (char &byte : model) byte = static_cast<signed char>(byte) < 0 ? byte : static_cast<char>(change(byte));
    }
    void trim_right() { model.erase(model.find_last_not_of(" \t\r\n") + 1); }
    void trim_left() { model.erase(0, std::min(model.find_first_not_of(" \t"), model.size())); }

    void choose_arguments() {
        own = (*s)->c_str(s);
        at = below(10) ? below(model.size() + 2) : TQ4_ALL_ONES - below(3);
        inside = std::min<unsigned long>(at, model.size()), n = below(50), c = static_cast<char>(random());
        value.resize(below(below(8) ? 40 : 600));
        for (char &byte : value) byte = "ab \t\r\n\0\xe4Z"[below(9)];
        bytes = value.data(), size = value.size();
        if (below(2)) return;
        unsigned long from = below(model.size() + 1);
        bytes = own + from, size = below(model.size() - from + 1), value = model.substr(from, size);
    }
};

TEST_F(StringEditModel, EveryOperationDoesWhatTheModelDoes) {
    for (int i = 0; i < 100000; ++i) {
        choose_arguments();
        const unsigned long operation = below(std::size(operations));
        operations[operation]();
        ASSERT_EQ(text(), model) << operation;
        ASSERT_EQ((*s)->GetAt(s, at), at < model.size() ? static_cast<unsigned char>(model[at]) : -1);
        ASSERT_EQ((*s)->FindLastChar(s, 'a'), static_cast<unsigned long>(model.rfind('a')));
        if (model.size() > 4000) (*s)->Strcpy(s, ""), model.clear();
    }
}

struct StringEdit : StringFixture {};

TEST_F(StringEdit, TextsMayBeNullAndLengthsAllOnes) {
    set("old");
    (*s)->host2net((*s)->insert_str((*s)->Strcat(s, nullptr), 0, nullptr, 5), nullptr, 5);
    EXPECT_EQ((*s)->Sprintf_append(s, nullptr), 0);
    (*s)->Memcat(s, "er\0x", TQ4_ALL_ONES);
    (*s)->insert_str(s, 0, "c\0x", TQ4_ALL_ONES);
    EXPECT_EQ(text(), "colder");
    (*s)->Strncpy(s, nullptr, 3);
    EXPECT_EQ(text(), "");
}

TEST_F(StringEdit, AFormatMayLieInTheStringAndTheResultCountsThisCallOnly) {
    EXPECT_EQ((*s)->Sprintf_append(s, (*s)->c_str((*s)->Strcpy(s, "%s%5000d")), "x", 7), 5001);
    EXPECT_EQ(text(), "%s%5000dx" + std::string(4999, ' ') + "7");
}

TEST_F(StringEdit, AlignsByMode) {
    const std::tuple<const char *, char, unsigned long, const char *> cases[] = {
        {"abc", 'L', 7, "abc****"}, {"abc", 'R', 7, "****abc"}, {"abc", 'M', 7, "**abc**"},
        {"abc", 'M', 6, "*abc**"},  {"abcd", 'L', 3, "abc"},    {"abcd", 'R', 3, "bcd"},
        {"abcd", 'M', 3, "abc"},    {"abc", 'l', 7, "abc"},     {"abc", 'x', 1, "abc"}};
    for (auto &[text, mode, width, result] : cases)
        EXPECT_STREQ((*s)->c_str((*s)->Align((*s)->Strcpy(s, text), mode, '*', width)), result) << mode;
}

const char *twenty = "twenty bytes of text";
void (*const growing[])(Tq4_string s, unsigned long n) = {
    [](Tq4_string s, unsigned long n) { EXPECT_EQ((*s)->Extend(s, n), nullptr); },
    [](Tq4_string s, unsigned long n) { (*s)->insert_char(s, 1, 'x', n); },
    [](Tq4_string s, unsigned long n) { (*s)->Align(s, 'M', 'x', n); },
    [](Tq4_string s, unsigned long n) { (*s)->insert_str(s, 1, twenty, n); },
    [](Tq4_string s, unsigned long n) { (*s)->Memcat(s, (*s)->c_str(s), n), (*s)->Memcpy(s, twenty, n); },
    [](Tq4_string s, unsigned long n) { (*s)->Base64Encode(s, twenty, n); },
    [](Tq4_string s, unsigned long n) { (*s)->enc(s, twenty, n, "key"); },
    [](Tq4_string s, unsigned long n) { (*s)->utf8_2_gb18030(s, twenty, n); }};

TEST_F(StringEdit, RoomThatCannotExistOrIsRefusedChangesNothing) {
    set("123456789012345");
    (*s)->SetQuote(s, {'"', '"'});
    for (unsigned long n : {TQ4_ALL_ONES - 1, TQ4_ALL_ONES - 128, TQ4_ALL_ONES / 2})
        for (auto operation : growing) operation(s, n);
    Tq4_record<Tq4_string_obj>(s)->m_buf.fflush = [](Tq4_wbuf *) { return 0; };
    for (auto operation : growing) operation(s, 20);
    EXPECT_EQ((*s)->Sprintf_append(s, "%s", "two") + (*s)->Sprintf(s, "%020d", 1), 0);
    (*s)->FormatDate(s, 0, "YYYYMMDD HHmissKK");
    EXPECT_EQ(text(), "123456789012345");
    EXPECT_EQ((*s)->GetQuote(s).open, '"');
    (*s)->Strcat(s, "6");
    EXPECT_STREQ((*s)->c_str(s), "123456789012345") << "the NUL takes the last byte's place";
}

} // namespace

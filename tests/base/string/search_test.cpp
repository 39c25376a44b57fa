// Searching: against the plainest program for the rule that a mismatching byte is not tried again.
#include "string_fixture.hpp"

namespace {

constexpr unsigned long none = TQ4_ALL_ONES;

unsigned long model_find(const std::string &text, unsigned long start, const std::string &pattern) {
    size_t matched = 0;
    for (size_t i = start; i < text.size() && !pattern.empty(); ++i) {
        matched = text[i] == pattern[matched] ? matched + 1 : 0;
        if (matched == pattern.size()) return i + 1 - matched;
    }
    return none;
}

std::string reversed(const std::string &text) { return {text.rbegin(), text.rend()}; }

struct StringSearch : StringFixture {
    using Search = decltype(Tq4_string_::Find);

    // Where the pattern is found, both as the pointer and as the position say.
    unsigned long found(Search search, unsigned long from, const std::string &pattern) {
        unsigned long position = from;
        const char *start = (*s)->c_str(s), *at = search(s, &position, pattern.data(), pattern.size());
        EXPECT_EQ(position, at ? static_cast<unsigned long>(at - start) : from);
        return at ? position : none;
    }
};

TEST_F(StringSearch, AgreesWithTheModelInBothDirections) {
    std::mt19937 random(7);
    auto random_text = [&](size_t most) {
        std::string text(random() % most, 0);
        for (char &c : text) c = "aab\0"[random() % 4];
        return text;
    };
    for (int i = 0; i < 50000; ++i) {
        const std::string text = random_text(24), pattern = random_text(5);
        const unsigned long start = random() % 26, backwards = model_find(reversed(text), 0, reversed(pattern));
        set(text);
        ASSERT_EQ(found((*s)->Find, start, pattern), model_find(text, start, pattern)) << text << start << pattern;
        ASSERT_EQ(found((*s)->FindLast, start, pattern),
                  backwards == none ? none : text.size() - backwards - pattern.size());
    }
}

TEST_F(StringSearch, TakesAnyPointerAndLength) {
    set("aab");
    EXPECT_EQ(found((*s)->Find, none - 1, "b"), none);
    for (Search search : {(*s)->Find, (*s)->FindLast}) {
        EXPECT_EQ(search(s, nullptr, "b", none), (*s)->c_str(s) + 2);
        EXPECT_EQ(search(s, nullptr, nullptr, 3), nullptr);
        EXPECT_EQ(search(s, nullptr, "b", none - 1), nullptr) << "longer than any text";
    }
}

TEST_F(StringSearch, MatchesBracketsByCountingTheOpensBeforeTheFirstClose) {
    struct {
        const char *text, *open, *close;
        unsigned long start, open_at, close_at;
    } const cases[] = {{"(a(b)(c)d)", "(", ")", 0, 0, 7}, {"(a)(b)", "(", ")", 1, 3, 5},
                       {")(a)", "(", ")", 0, 1, 3},       {"<<a<<b>>c>>", "<<", ">>", 0, 0, 9},
                       {"'a'", "'", "'", 0, 0, 0},        {"(a(b)", "(", ")", 0, none, none},
                       {"a)", "(", ")", 0, none, none},   {"(a)", "", nullptr, 0, none, none}};
    for (auto &c : cases) {
        set(c.text);
        unsigned long open_at = none, close_at = none;
        const char *found = (*s)->MatchBrack(s, c.start, c.open, c.close, &open_at, &close_at);
        EXPECT_EQ(found, c.open_at == none ? nullptr : (*s)->c_str(s) + c.open_at) << c.text;
        EXPECT_TRUE(close_at == c.close_at && (!found || open_at == c.open_at)) << c.text;
        EXPECT_EQ((*s)->MatchBrack(s, c.start, c.open, c.close, nullptr, nullptr), found) << c.text;
    }
}

} // namespace

// The string as an object: what is equal, what copies carry, what clears the quote, and null handles.
#include "string_fixture.hpp"

namespace {

struct String : StringFixture {
    Tq4_string other = static_cast<Tq4_string>(Tq4_string_oitf->Create("Az[\xff"));
    ~String() override { Tq4_string_oitf->Delete(other); }

    int equal() const { return Tq4_string_oitf->Equal(s, other); }
    char quote_of(Tq4_string string) const { return (*s)->GetQuote(string).open; }
};

TEST_F(String, IsEqualWhenQuoteLengthAndBytesAre) {
    set("Az[\xff");
    EXPECT_TRUE(equal() && Tq4_string_oitf->Equal(s, s));
    (*s)->SetQuote(s, {'"', '"'});
    EXPECT_FALSE(equal() || (*s)->EqualCase(s, other));
    set("aZ[\xff");
    EXPECT_TRUE(!equal() && (*s)->EqualCase(s, other));
    EXPECT_TRUE((*s)->EqualStr(s, "aZ[\xff", 0) && (*s)->EqualStr(s, "Az[\xff", 1));
    EXPECT_FALSE((*s)->EqualStr(s, "Az[\xff", 0) || (*s)->EqualStr(s, "aZ[", 1) || (*s)->EqualStr(s, "aZ{\xff", 1));
    (*s)->addch(s, 0);
    EXPECT_FALSE((*s)->EqualCase(s, other) || (*s)->EqualStr(s, "aZ[\xff", 0)) << "the whole length counts";
}

TEST_F(String, ACopyLosesTheQuoteAndADuplicateKeepsIt) {
    set("text");
    (*s)->SetQuote(s, {'<', '>'});
    (*s)->SetQuote(other, {'(', ')'});
    Tq4_string_oitf->Copy(other, s);
    EXPECT_TRUE((*s)->EqualStr(other, "text", 0) && !quote_of(other) && quote_of(s));
    auto duplicate = static_cast<Tq4_string>(Tq4_string_oitf->Dup(s));
    EXPECT_TRUE(Tq4_string_oitf->Equal(duplicate, s));
    Tq4_string_oitf->Delete(duplicate);
    Tq4_string_oitf->Copy(s, s);
    EXPECT_EQ(text(), "text");
    Tq4_string_oitf->Copy(s, nullptr);
    EXPECT_EQ(text(), "");
}

TEST_F(String, OnlyWhatReplacesTheWholeTextClearsTheQuote) {
    const std::pair<void (*)(Tq4_string), bool> operations[] = {
        {[](Tq4_string t) { (*t)->Strcpy(t, "new"); }, true},     {[](Tq4_string t) { (*t)->Sprintf(t, "new"); }, true},
        {[](Tq4_string t) { (*t)->truncate_tail(t, 4); }, true},  {[](Tq4_string t) { (*t)->truncate(t, 0); }, false},
        {[](Tq4_string t) { (*t)->FormatDate(t, 0, ""); }, true}, {[](Tq4_string t) { (*t)->Strcat(t, "new"); }, false},
        {[](Tq4_string t) { Tq4_string_oitf->Reset(t); }, true},  {[](Tq4_string t) { (*t)->resize(t, 0, 0); }, false}};
    for (auto &[operation, clears] : operations) {
        set("text");
        (*s)->SetQuote(s, {'\'', '\''});
        operation(s);
        EXPECT_EQ(quote_of(s), clears ? 0 : '\'') << text();
    }
}

} // namespace

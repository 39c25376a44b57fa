// Lines from a read buffer whose hook brings scripted pieces.
#include "base/rbuf.hpp"
#include "string_fixture.hpp"

namespace {

std::deque<std::string> pieces; // what the hook has still to bring before the end of the data

int bring(Tq4_rbuf *buffer) {
    if (pieces.empty()) return 0;
    const std::string piece = pieces.front();
    pieces.pop_front();
    for (char byte : piece) {
        long room = 0;
        *Tq4_rbuf_buffer(buffer, &room) = static_cast<uint8_t>(byte);
        Tq4_rbuf_fill(buffer, 1);
    }
    return static_cast<int>(piece.size());
}

struct StringReadLine : StringFixture {
    Tq4_rbuf *buffer = Tq4_rbuf_Create(0);

    StringReadLine() { buffer->get_ready = bring, set("old"), (*s)->SetQuote(s, {'"', '"'}); }
    ~StringReadLine() override { Tq4_rbuf_Delete(buffer), pieces.clear(); }

    std::string line(int trim = 0, unsigned long max = 0) {
        const char *line = Tq4_string_itf_Read_line(s, buffer, trim, max);
        EXPECT_TRUE(line == (*s)->c_str(s) || (!line && text().empty()));
        EXPECT_EQ((*s)->GetQuote(s).open, 0);
        return line ? text() : "(none)";
    }
};

TEST_F(StringReadLine, GoesUpToTheLineFeedAcrossPieces) {
    const std::deque<std::string> script = {" one\ntw", "o", " \t\r\n", "\r\nlast \r"};
    pieces = script;
    for (const char *expected : {" one\n", "two \t\r\n", "\r\n", "last \r", "(none)"}) EXPECT_EQ(line(), expected);
    pieces = script;
    for (const char *trimmed : {" one", "two", "", "last", "(none)"}) EXPECT_EQ(line(1), trimmed);
    EXPECT_EQ(Tq4_string_itf_Read_line(s, nullptr, 0, 0), nullptr);
}

TEST_F(StringReadLine, GivesUpOnALineLongerThanTheMost) {
    pieces = {"1234\n12345\n", "12", "34", "5\nxyz"};
    EXPECT_EQ(line(0, 4), "1234\n") << "the line feed does not count";
    EXPECT_EQ(line(0, 4), "(none)");
    EXPECT_EQ(line(0, 4), "\n") << "no more was taken than needed to tell";
    EXPECT_EQ(line(0, 4), "(none)");
    EXPECT_EQ(line(0, TQ4_ALL_ONES), "\n");
    EXPECT_EQ(line(0, 3), "xyz");
}

} // namespace

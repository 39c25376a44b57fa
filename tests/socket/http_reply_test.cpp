// Replies of HTTP servers, cut in every way: what they say, where they end, and what is refused.
#include "socket/http_reply.hpp"

#include "support/test.hpp"

using namespace std::literals;

namespace {

using State = Tq4_http_reply::State;

// A request that waits, and the pieces of its reply.
class Reply {
    Tq4_hooked<Tq4_value_table> m_header = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
    Tq4_hooked<Tq4_string> m_body = Tq4_make_hooked<Tq4_string>(Tq4_cxx_support->new_string);

public:
    Tq4_http_reply parser;

    explicit Reply(bool to_head = false) { expect(to_head); }
    void expect(bool to_head = false) {
        auto model = Tq4_make_hooked<Tq4_value_table>(Tq4_cxx_support->new_table);
        (*model)->CaseFlag(model.get(), 1);
        (*m_header)->RemoveAll(m_header.get());
        (*m_header)->Append(m_header.get(), model.get());
        (*m_body)->Strcpy(m_body.get(), "");
        parser.Expect(to_head, m_header.get(), m_body.get());
    }
    // Takes a block to its end or the reply's; returns what was left.
    std::string take(std::string_view block) {
        while (!block.empty() && !parser.has_ended()) block.remove_prefix(parser.Take(block.data(), block.size()));
        return std::string(block);
    }
    // What there is to tell of it.
    std::string told() const {
        static const char *const states[] = {"idle", "reading", "complete", "refused"};
        std::string text = std::string(states[static_cast<int>(parser.state())]) + " " +
                           std::to_string(parser.status()) + " [" + text_of(m_body.get()) + "]";
        Tq4_key key;
        for (Tq4_value value = (*m_header)->First(m_header.get(), &key); value;
             value = (*m_header)->Next(m_header.get(), &key))
            text += std::string(" ") + (*key)->GetS(key) + "=" + text_of((*value)->GetString(value));
        return text;
    }
    std::string header(const char *name) const {
        Tq4_value value = (*m_header)->ValueS(m_header.get(), name);
        return value ? text_of((*value)->GetString(value)) : "(none)";
    }
};

std::string told_at_once(std::string_view text, bool to_head = false) {
    Reply reply(to_head);
    reply.take(text);
    return reply.told();
}

TEST(HttpReply, SaysTheSameWhereverItIsCut) {
    const std::string_view replies[] = {
        "HTTP/1.1 404 Not Found\r\nContent-Length: 5\r\nX: a:b\r\n\r\nhello",
        "HTTP/1.1 200 OK\nTransfer-Encoding: Chunked\n\n5\nhello\n1a;x=y\nabcdefghijklmnopqrstuvwxyz\n0\n",
        "HTTP/1.1 200 OK\r\ntransfer-encoding: chunked\r\n\r\n3\r\na\0b\r\n0x2\r\ncd\r\nzz\r\n\r\n1\r\ne\r\n0\r\n"
        ""sv,
        "HTTP/1.1 204 No Content\r\n\r\n",
        "short\r\n",
    };
    for (const std::string_view text : replies) {
        const std::string whole = told_at_once(text);
        EXPECT_TRUE(whole.starts_with("complete")) << whole;
        for (std::size_t first = 0; first <= text.size(); ++first)
            for (const std::size_t second : {std::size_t{1}, (text.size() - first) / 2, text.size() - first}) {
                Reply reply;
                reply.take(text.substr(0, first));
                reply.take(text.substr(first, second));
                if (first + second <= text.size()) reply.take(text.substr(first + second));
                EXPECT_EQ(reply.told(), whole) << first << "+" << second;
            }
    }
}

TEST(HttpReply, EndsWhereItsHeaderSays) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const struct {
        std::string header;
        bool to_head;
        const char *told; // of a reply with "body" behind its header
    } cases[] = {
        {"Content-Length: 0\r\n", false, "complete 200 [] Content-Length=0"},
        {"Content-Length: -3\r\n", false, "complete 200 [] Content-Length=-3"},
        {"Content-Length: 4x\r\n", false, "complete 200 [] Content-Length=4x"},
        {"Content-Length: 4\r\n", true, "complete 200 [] Content-Length=4"},
        {"content-length:  4 \r\n", false, "complete 200 [body] content-length=4"},
        {"Content-Length: 3\r\n", false, "complete 200 [body] Content-Length=3"}, // the rest of the block is in it
        {"Content-Length: 5\r\n", false, "reading 200 [body] Content-Length=5"},
        {"Content-Length: 9\r\ncontent-length: 4\r\n", false, "complete 200 [body] Content-Length=4"},
        {"Content-Length: 99999999999999999999\r\n", false, "refused 200 [] Content-Length=99999999999999999999"},
        {"Content-Length: 1073741825\r\n", false, "refused 200 [] Content-Length=1073741825"},
        {"no colon\r\n: no name\r\nA:\r\n", false, "complete 200 [] =no name A="},
    };
    for (const auto &each : cases)
        EXPECT_EQ(told_at_once(ok + each.header + "\r\nbody", each.to_head), each.told) << each.header;
    EXPECT_EQ(told_at_once("HTTP/1.1 x\r\n\r\n"), "complete 0 []");
}

TEST(HttpReply, LinesBehindTheLastChunkAreTheOldReplys) {
    const std::string first = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\n";
    const std::string second = "HTTP/1.1 201 OK\r\nContent-Length: 1\r\n\r\nb";
    for (const std::string between : {"\r\n", "X: 1\r\nY: 2\r\n\r\n", ""}) {
        for (std::size_t early = 0; early <= between.size(); ++early) { // bytes that come before the next request
            Reply reply;
            EXPECT_EQ(reply.take(first + between.substr(0, early)), between.substr(0, early));
            reply.parser.GiveUp();
            for (const char c : between.substr(0, early)) EXPECT_EQ(reply.parser.Take(&c, 1), 1u);
            reply.expect();
            for (const char c : between.substr(early) + second) reply.take({&c, 1});
            EXPECT_EQ(reply.told(), "complete 201 [b] Content-Length=1") << between << early;
        }
    }
}

TEST(HttpReply, WhatComesWhileNothingIsExpectedIsDropped) {
    Reply reply;
    reply.parser.GiveUp();
    EXPECT_EQ(reply.parser.Take("HTTP/1.1 500 No\r\n", 17), 17u);
    EXPECT_EQ(reply.parser.state(), State::Idle);
    reply.expect();
    reply.take("HTTP/1.1 20");
    reply.parser.Disconnect();
    reply.expect();
    reply.take("HTTP/1.1 203 OK\r\n\r\n");
    EXPECT_EQ(reply.told(), "complete 203 []");
}

TEST(HttpReply, WhatNeverEndsIsRefused) {
    const std::string ok = "HTTP/1.1 200 OK\r\n", long_line(Tq4_http_reply::Longest_line, 'x');
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    std::string many;
    for (unsigned i = 0; i < Tq4_http_reply::Most_headers; ++i) many += "a" + std::to_string(i) + ": 1\r\n";
    EXPECT_TRUE(told_at_once(ok + many + "\r\n").starts_with("complete 200"));
    EXPECT_TRUE(told_at_once(ok + many + "b: 1\r\n").starts_with("refused 200"));
    EXPECT_TRUE(told_at_once(ok + long_line + "\n\n").starts_with("complete 200"));
    EXPECT_TRUE(told_at_once(ok + long_line + "xx").starts_with("refused 200"));
    EXPECT_TRUE(told_at_once(long_line + "xx").starts_with("refused 0"));
    EXPECT_TRUE(told_at_once(chunked + long_line + "xx").starts_with("refused 200"));
    EXPECT_TRUE(told_at_once(chunked + "80000000\r\n").starts_with("refused 200"));
    EXPECT_TRUE(told_at_once(chunked + "fffffffffffffffffffff\r\n").starts_with("refused 200"));
    EXPECT_TRUE(told_at_once(chunked + "7fffffff\r\nabc").starts_with("reading 200 [abc]"));

    Reply after_chunks; // lines without end behind the last chunk
    after_chunks.take(chunked + "0\r\n");
    after_chunks.expect();
    after_chunks.take(many + many);
    EXPECT_EQ(after_chunks.parser.state(), State::Refused);
}

} // namespace

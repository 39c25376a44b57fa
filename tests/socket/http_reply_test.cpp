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
        (*m_header)->RemoveAll(m_header.get());
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
};

const std::string ok = "HTTP/1.1 200 OK\r\n", chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";

std::string told_at_once(std::string_view text, bool to_head = false) {
    Reply reply(to_head);
    reply.take(text);
    return reply.told();
}

TEST(HttpReply, SaysTheSameWhereverItIsCut) {
    const std::string framed = "complete 200 [] Transfer-Encoding=chunked";
    const struct {
        std::string text, told;
        bool to_head = false;
    } cases[] = {
        {"HTTP/1.1 404 Not Found\r\nX: a:b\r\nContent-Length: 5\r\n\r\nhello",
         "complete 404 [hello] X=a:b Content-Length=5"},
        {"HTTP/1.1 204 No Content\n\n", "complete 204 []"},
        {"short\r\n", "complete 0 []"},
        {"HTTP/1.1 x\r\n\r\n", "complete 0 []"},
        {ok + "no colon\r\n: no name\r\nA:\r\n\r\n", "complete 200 [] =no name A="},
        {ok + "Content-Length: 0\r\n\r\nbody", "complete 200 [] Content-Length=0"},
        {ok + "Content-Length: -3\r\n\r\nbody", "complete 200 [] Content-Length=-3"},
        {ok + "Content-Length: 4x\r\n\r\nbody", "complete 200 [] Content-Length=4x"},
        {ok + "content-length:  4 \r\n\r\nbody", "complete 200 [body] content-length=4"},
        {ok + "Content-Length: 9\r\nContent-Length: 4\r\n\r\nbody", "complete 200 [body] Content-Length=4"},
        {ok + "Content-Length: 5\r\n\r\nbody", "reading 200 [body] Content-Length=5"},
        {ok + "Content-Length: 4\r\n\r\nbody", "complete 200 [] Content-Length=4", true},
        {ok + "Content-Length: 1073741825\r\n\r\nbody", "refused 200 [] Content-Length=1073741825"},
        {ok + "Content-Length: 99999999999999999999\r\n\r\n", "refused 200 [] Content-Length=99999999999999999999"},
        {ok + "TRANSFER-encoding: Chunked, x\n\n5\nhello\n1a;x=y\nabcdefghijklmnopqrstuvwxyz\n0\n",
         "complete 200 [helloabcdefghijklmnopqrstuvwxyz] TRANSFER-encoding=Chunked, x"},
        {chunked + "3\r\na\0b\r\n0x2\r\ncd\r\nzz\r\n\r\n+1\r\ne\r\n-0\r\n"s,
         "complete 200 [a\0bcde] Transfer-Encoding=chunked"s},
        {chunked + "7fffffff\r\nabc", "reading 200 [abc] Transfer-Encoding=chunked"},
        {chunked + "80000000\r\n", "refused" + framed.substr(8)},
        {chunked + "-1\r\n", "refused" + framed.substr(8)},
        {chunked + "fffffffffffffffffffff\r\n", "refused" + framed.substr(8)},
    };
    for (const auto &[text, told, to_head] : cases) {
        EXPECT_EQ(told_at_once(text, to_head), told);
        for (std::size_t first = 0; first <= text.size(); ++first)
            for (const std::size_t second : {std::size_t{1}, (text.size() - first) / 2}) {
                Reply reply(to_head);
                for (const auto &piece : {text.substr(0, first), text.substr(first).substr(0, second)})
                    reply.take(piece);
                if (first + second < text.size()) reply.take(text.substr(first + second));
                EXPECT_EQ(reply.told(), told) << first << "+" << second;
            }
    }
    EXPECT_EQ(told_at_once(ok + "Content-Length: 3\r\n\r\nbody"), "complete 200 [body] Content-Length=3")
        << "what comes in the same block";
}

TEST(HttpReply, LinesBehindTheLastChunkAreTheOldReplys) {
    const std::string first = chunked + "1\r\na\r\n0\r\n";
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
    const std::string longest(Tq4_http_reply::Longest_line, 'x'), returns(Tq4_http_reply::Longest_line + 2, '\r');
    std::string many;
    for (unsigned i = 0; i < Tq4_http_reply::Most_headers; ++i) many += "a" + std::to_string(i) + ": 1\r\n";
    const struct {
        std::string text, told;
    } cases[] = {
        {ok + many + "\r\n", "complete 200"},
        {ok + many + "b: 1\r\n", "refused 200"},
        {ok + longest + "\r\n\n", "complete 200"},
        {ok + longest + "x", "refused 200"},
        {longest + "x", "refused 0"},
        {chunked + longest + "x", "refused 200"},
        {ok + returns, "refused 200"},
    };
    for (const auto &[text, told] : cases) {
        EXPECT_TRUE(told_at_once(text).starts_with(told)) << told;
        Reply bytewise;
        for (const char byte : text) bytewise.take({&byte, 1});
        EXPECT_TRUE(bytewise.told().starts_with(told)) << told;
    }

    Reply after_chunks; // lines without end behind the last chunk
    after_chunks.take(chunked + "0\r\n");
    after_chunks.expect();
    after_chunks.take(many + many);
    EXPECT_EQ(after_chunks.parser.state(), State::Refused);
}

} // namespace

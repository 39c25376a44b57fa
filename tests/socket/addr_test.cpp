// Addresses from text and from the system's form, of every family.
#include <netdb.h>
#include <sys/un.h>

#include "support/test.hpp"

namespace {

struct Address {
    Tq4_own<Tq4_sockaddr> own = Tq4_make<Tq4_sockaddr>(Tq4_sockaddr_oitf);
    Tq4_sockaddr a = own.get();

    Address() = default;
    Address(const char *text, int port) { EXPECT_EQ(init(text, port), 1) << text; }
    int init(const char *text, int port) { return (*a)->Init(a, text, port); }
    const addrinfo &info() const { return *(*a)->Info(a); }
    std::string shown() const {
        return std::to_string(info().ai_family) + " " + (*a)->ip(a) + " " + std::to_string((*a)->port(a));
    }
    bool is(const char *text) const { return (*a)->EqualIp(a, text); }
    bool operator==(const Address &other) const { return Tq4_object_Equal(a, other.a); }
};

const std::string longest_path = "/" + std::string(sizeof(sockaddr_un::sun_path) - 2, 'x');

TEST(SockAddr, IsMadeFromText) {
    const std::tuple<const char *, int, std::string, socklen_t> cases[] = {
        {"127.0.0.1", 80, "2 127.0.0.1 80", sizeof(sockaddr_in)},
        {"::1", 65536 + 7, "10 ::1 7", sizeof(sockaddr_in6)},
        {"255.1.2.3", -1, "2 255.1.2.3 65535", sizeof(sockaddr_in)},
        {nullptr, 9, "2 0.0.0.0 9", sizeof(sockaddr_in)},
        {"", 9, "2 0.0.0.0 9", sizeof(sockaddr_in)},
        {"/tmp/x", 9, "1 /tmp/x 0", sizeof(sa_family_t) + 7},
        {longest_path.c_str(), 0, "1 " + longest_path + " 0", sizeof(sockaddr_un)},
    };
    for (const auto &[text, port, shown, length] : cases) {
        Address address(text, port);
        EXPECT_EQ(address.shown(), shown);
        EXPECT_EQ(address.info().ai_addrlen, length) << shown;
        EXPECT_EQ(address.info().ai_addr->sa_family, address.info().ai_family);
        EXPECT_TRUE(address.is(text)) << shown;
        Address again;
        EXPECT_EQ((*again.a)->Init2(again.a, address.info().ai_addr, length), 1);
        EXPECT_EQ(again.shown(), shown);
        EXPECT_TRUE(again == address);
    }
}

TEST(SockAddr, StaysAsItWasWhenItCannotBeSet) {
    Address address("127.0.0.1", 80);
    EXPECT_EQ(address.init((longest_path + "x").c_str(), 0), 0) << "a path is never cut";
    EXPECT_EQ(address.init("no such host", 80), 0);
    EXPECT_EQ((*address.a)->Init2(address.a, nullptr, 128), 0);
    EXPECT_EQ((*address.a)->Init2(address.a, Address("::1", 1).info().ai_addr, 16), 0) << "too short for its family";
    EXPECT_EQ((*address.a)->Init2(address.a, address.info().ai_addr, 1), 0);
    EXPECT_EQ(address.shown(), "2 127.0.0.1 80");
}

TEST(SockAddr, NamesTheSameHostWhateverThePort) {
    Address ipv4("127.0.0.1", 80), ipv6("::1", 80), local("/tmp/x", 0);
    EXPECT_TRUE(ipv4.is("127.1")) << "a text is resolved, not compared";
    if (Address().init("localhost", 0)) { // a machine without /etc/hosts may not know the name
        EXPECT_TRUE(ipv4.is("localhost") || ipv6.is("localhost"));
    }
    EXPECT_FALSE(ipv4.is("127.0.0.2") || ipv4.is("::1") || ipv4.is("/tmp/x"));
    EXPECT_FALSE(ipv6.is("::2") || local.is("/tmp/y") || local.is("127.0.0.1"));
    EXPECT_FALSE(Address() == ipv4 || ipv4 == Address("127.0.0.1", 81) || local == Address("/tmp/y", 0));
}

TEST(SockAddr, IsCopiedExchangedAndReset) {
    Address one("1.2.3.4", 0x1234), other("/tmp/x", 0);
    (*one.a)->Exchange(one.a, other.a);
    EXPECT_EQ(one.shown() + ", " + other.shown(), "1 /tmp/x 0, 2 1.2.3.4 4660");
    EXPECT_EQ(one.info().ai_addr->sa_family, AF_UNIX) << "each keeps a record of its own";
    for (const auto &[host_order, host, port] : {std::tuple(5, 0x01020304u, 0x1234), {0, htonl(0x01020304), 0x3412}}) {
        EXPECT_EQ((*other.a)->sin_addr(other.a, host_order), host);
        EXPECT_EQ((*other.a)->sin_port(other.a, host_order), port);
        EXPECT_EQ((*one.a)->sin_addr(one.a, host_order), 0u);
    }
    Address copy;
    copy.own.reset(static_cast<Tq4_sockaddr>(Tq4_object_Dup(one.a)));
    copy.a = copy.own.get();
    Tq4_sockaddr_oitf->Reset(one.a);
    EXPECT_EQ(one.shown() + ", " + copy.shown(), "0  0, 1 /tmp/x 0");
}

} // namespace

// sockaddr: an address in the system's form, with its text and its port made from it once.
//
// The address lies in a buffer of the record's own, and ai_addr always points there. Where host and port lie in it is
// a row of a table for each family that has them; a local address is a path, everything else bytes without a text.
#include "socket/addr.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>

namespace {

// A family whose addresses have a host and a port, both in network order.
struct Internet {
    int family;
    unsigned long size; // of the whole record
    unsigned long host, host_size;
    unsigned long port;
};
constexpr Internet Internet_families[] = {
    {AF_INET, sizeof(sockaddr_in), offsetof(sockaddr_in, sin_addr), sizeof(in_addr), offsetof(sockaddr_in, sin_port)},
    {AF_INET6, sizeof(sockaddr_in6), offsetof(sockaddr_in6, sin6_addr), sizeof(in6_addr),
     offsetof(sockaddr_in6, sin6_port)},
};
constexpr unsigned long Family_end = offsetof(sockaddr, sa_family) + sizeof(sa_family_t);
constexpr unsigned long Path_start = offsetof(sockaddr_un, sun_path);
constexpr unsigned long Longest_path = sizeof(sockaddr_un::sun_path) - 1;
static_assert(sizeof(sockaddr_un) <= Tq4_sockaddr_obj::Largest);

const Internet *internet(int family) {
    for (const Internet &each : Internet_families)
        if (each.family == family) return &each;
    return nullptr;
}

bool is_path(const char *text) { return text && *text == '/'; }
const char *bytes(const sockaddr *address) { return reinterpret_cast<const char *>(address); }

uint16_t port_of(const sockaddr *address, const Internet &form) {
    uint16_t port;
    std::memcpy(&port, bytes(address) + form.port, sizeof port);
    return ntohs(port);
}

bool same_host(const sockaddr *a, const sockaddr *b, const Internet &form) {
    return std::memcmp(bytes(a) + form.host, bytes(b) + form.host, form.host_size) == 0;
}

struct Free_addresses {
    void operator()(addrinfo *addresses) const { freeaddrinfo(addresses); }
};
using Addresses = std::unique_ptr<addrinfo, Free_addresses>;

Addresses resolve(const char *host, int port) { return Addresses(MP_InitSockAddr(host, static_cast<uint16_t>(port))); }

} // namespace

void Tq4_sockaddr_obj::Reset() {
    m_port = 0;
    info = {};
    info.ai_addr = raw();
    std::memset(m_raw, 0, sizeof m_raw);
    ipaddr[0] = 0;
}

void Tq4_sockaddr_obj::Copy(const Tq4_sockaddr_obj *source) {
    if (!source) return Reset();
    m_port = source->m_port;
    info = source->info;
    info.ai_addr = raw();
    std::memmove(m_raw, source->m_raw, sizeof m_raw);
    std::memmove(ipaddr, source->ipaddr, sizeof ipaddr);
}

bool Tq4_sockaddr_obj::Equal(const Tq4_sockaddr_obj &other) const {
    if (info.ai_family != other.info.ai_family) return false;
    if (const Internet *form = internet(info.ai_family)) {
        const auto *mine = reinterpret_cast<const sockaddr_in6 *>(m_raw);
        const auto *theirs = reinterpret_cast<const sockaddr_in6 *>(other.m_raw);
        const bool same_scope = info.ai_family != AF_INET6 || mine->sin6_scope_id == theirs->sin6_scope_id;
        return m_port == other.m_port && same_scope && same_host(raw(), other.raw(), *form);
    }
    if (is_path(ipaddr)) return std::strcmp(ipaddr, other.ipaddr) == 0; // with or without a NUL that counts
    return info.ai_addrlen == other.info.ai_addrlen && std::memcmp(m_raw, other.m_raw, info.ai_addrlen) == 0;
}

bool Tq4_sockaddr_obj::EqualIp(const char *text) const {
    if (is_path(text)) return info.ai_family == AF_UNIX && std::strcmp(text, ipaddr) == 0;
    const Internet *form = internet(info.ai_family);
    if (!form) return false;
    const Addresses found = resolve(text, 0);
    for (const addrinfo *each = found.get(); each; each = each->ai_next)
        if (each->ai_family == info.ai_family && same_host(raw(), each->ai_addr, *form)) return true;
    return false;
}

void Tq4_sockaddr_obj::Exchange(Tq4_sockaddr other) {
    auto *theirs = Tq4_record<Tq4_sockaddr_obj>(other);
    if (!theirs) return;
    Tq4_sockaddr_obj kept;
    kept.Copy(this);
    Copy(theirs);
    theirs->Copy(&kept);
}

bool Tq4_sockaddr_obj::Init(const char *text, int port) {
    if (is_path(text)) return InitPath(text);
    const Addresses found = resolve(text, port);
    if (!found) return false;
    const addrinfo *first = found.get();
    if (!text || !*text) // the any-address is that of IPv4 where there is one
        while (first->ai_next && first->ai_family != AF_INET) first = first->ai_next;
    return Init2(first->ai_addr, first->ai_addrlen);
}

bool Tq4_sockaddr_obj::InitPath(const char *path) {
    const std::size_t length = std::strlen(path);
    if (length > Longest_path) return false;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path, length);
    return Init2(reinterpret_cast<const sockaddr *>(&address), Path_start + length + 1);
}

bool Tq4_sockaddr_obj::Init2(const sockaddr *address, unsigned long length) {
    length = std::min(length, Largest);
    if (!address || length < Family_end) return false;
    Tq4_sockaddr_obj taken;
    std::memcpy(taken.m_raw, address, length);
    taken.info.ai_addrlen = static_cast<socklen_t>(length);
    if (!taken.ReInit()) return false;
    Copy(&taken);
    return true;
}

bool Tq4_sockaddr_obj::ReInit() {
    info.ai_addrlen = static_cast<socklen_t>(std::min<unsigned long>(info.ai_addrlen, Largest));
    const int family = raw()->sa_family;
    const Internet *form = internet(family);
    if (info.ai_addrlen < (form ? form->size : Family_end)) return false;
    info.ai_family = family;
    info.ai_socktype = family == AF_UNIX ? SOCK_STREAM : SOCK_DGRAM;
    m_port = form ? port_of(raw(), *form) : 0;
    ipaddr[0] = 0;
    if (form) {
        MP_SOCK_HostText(family, m_raw + form->host, ipaddr, sizeof ipaddr);
    } else if (family == AF_UNIX) { // a path may fill its room without a NUL
        const std::size_t length = strnlen(m_raw + Path_start, info.ai_addrlen - Path_start);
        std::memcpy(ipaddr, m_raw + Path_start, length);
        ipaddr[length] = 0;
    }
    return true;
}

void Tq4_sockaddr_obj::SetPort(uint16_t port) {
    const Internet *form = internet(info.ai_family);
    if (!form) return;
    const uint16_t network_port = htons(port);
    std::memcpy(m_raw + form->port, &network_port, sizeof network_port);
    m_port = port;
}

unsigned long Tq4_sockaddr_obj::sin_addr(int host_order) const {
    if (info.ai_family != AF_INET) return 0;
    const in_addr_t address = reinterpret_cast<const sockaddr_in *>(m_raw)->sin_addr.s_addr;
    return host_order ? ntohl(address) : address;
}

int Tq4_sockaddr_obj::sin_port(int host_order) const {
    return host_order ? m_port : htons(static_cast<uint16_t>(m_port));
}

const Tq4_sockaddr_ Tq4_sockaddr_itf = {
    .EqualIp = Tq4_op<&Tq4_sockaddr_obj::EqualIp>,
    .Exchange = Tq4_op<&Tq4_sockaddr_obj::Exchange>,
    .Init = Tq4_op<&Tq4_sockaddr_obj::Init>,
    .Init2 = Tq4_op<&Tq4_sockaddr_obj::Init2>,
    .ReInit = Tq4_op<&Tq4_sockaddr_obj::ReInit>,
    .ip = Tq4_op<&Tq4_sockaddr_obj::ip>,
    .port = Tq4_op<&Tq4_sockaddr_obj::port>,
    .Info = Tq4_op<&Tq4_sockaddr_obj::Info>,
    .sin_addr = Tq4_op<&Tq4_sockaddr_obj::sin_addr>,
    .sin_port = Tq4_op<&Tq4_sockaddr_obj::sin_port>,
};
TQ4_MODULE(sockaddr)

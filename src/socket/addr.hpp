// addr.hpp: the socket address's record, for the socket calls.
#pragma once

#include "module.hpp"
#include "platform/multi_platform_socket.hpp"
#include "tq4/sockaddr.h"

struct Tq4_sockaddr_obj {
    static constexpr unsigned long Largest = 128; // bytes of an address in the system's form
    static constexpr unsigned long Text_room = 256;

    int m_port = 0;     // host order
    addrinfo info = {}; // ai_addr points at m_raw; no list, no name
    alignas(8) char m_raw[Largest] = {};
    char ipaddr[Text_room] = "";

    Tq4_sockaddr_obj() { info.ai_addr = raw(); }
    Tq4_sockaddr_obj(const Tq4_sockaddr_obj &) = delete;
    Tq4_sockaddr_obj &operator=(const Tq4_sockaddr_obj &) = delete;
    void Reset();
    void Copy(const Tq4_sockaddr_obj *source);
    bool Equal(const Tq4_sockaddr_obj &other) const;

    bool EqualIp(const char *text) const;
    void Exchange(Tq4_sockaddr other);
    bool Init(const char *text, int port);
    bool Init2(const sockaddr *address, unsigned long length);
    bool ReInit();
    const char *ip() const { return ipaddr; }
    int port() const { return m_port; }
    addrinfo *Info() { return &info; }
    unsigned long sin_addr(int host_order) const;
    int sin_port(int host_order) const;

    sockaddr *raw() { return reinterpret_cast<sockaddr *>(m_raw); }
    const sockaddr *raw() const { return reinterpret_cast<const sockaddr *>(m_raw); }
    void SetPort(uint16_t port); // nothing for a family without ports

private:
    bool InitPath(const char *path);
};

// server.hpp: the relay on TCP: a table of texts that its peers share, line by line.
//
//   GET KEY         OK VALUE, or NONE
//   SET KEY VALUE   OK
//   STATUS          OK and the counters as JSON
//
// Anything else is answered by ERROR and the reason. Lines end with a line feed, before which a carriage return is
// ignored. Peers that send a line without end, or never read their answers, are sent away.
#pragma once

#include <string>
#include <string_view>

#include <tq4/tq4.h>

#include "../object.hpp"
#include "counters.hpp"

class Server {
public:
    explicit Server(Counters &counters) : m_counters(counters) {}

    // Listens on this host at a port, 0: at one that the system chooses, which it gives. 0 when it cannot.
    int Listen(int port);

private:
    struct Peer {
        Server &server;
        std::string line; // what has come of it
    };
    Counters &m_counters;                                  // for any thread
    Object<Tq4_value_table> m_table{Tq4_value_table_oitf}; // the service thread's
    Object<Tq4_socket> m_service{Tq4_socket_oitf};         // last: it goes before what its callbacks use

    static const Tq4_listen_callback listening;
    static const Tq4_socket_callback connected;
    static const Tq4_socket_callback *Accept(Tq4_socket, Tq4_socket_info *listener, Tq4_socket_info *child);
    static int Receive(Tq4_socket, Tq4_socket_info *info, Tq4_string *data);

    bool Take(Peer &peer, const Tq4_id &id, std::string_view text);
    bool Answer(const Tq4_id &id, const std::string &line);
    std::string AnswerTo(std::string line);
    std::string Get(const std::string &key);
    std::string Set(const std::string &key, const std::string &value);
};

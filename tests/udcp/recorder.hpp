// recorder.hpp: two hosts, one of which connects to the other, and an application that writes down what it is told.
#pragma once

#include "support/test.hpp"
#include "udcp/simulator.hpp"

struct Recorder : Application {
    Texts seen;
    std::vector<Tq4_id> ids; // of the connections that stood
    int again = -1;          // the answer to OnConnectFailed and OnDisConnect

    void on_ok(Host &, Tq4_udcp_info &info) override {
        seen.push_back("ok");
        ids.push_back(*info.id);
    }
    int on_failed(Host &, Tq4_udcp_info &) override {
        seen.push_back("failed");
        return again;
    }
    int on_disconnect(Host &, Tq4_udcp_info &) override {
        seen.push_back("disconnect");
        return again;
    }
    void on_data(Host &, Tq4_udcp_info &, Tq4_udcp_data &data) override {
        seen.push_back(text_of(data.data) + (data.safe_flag ? "!" : ""));
    }
    void on_post(Host &, Tq4_udcp_info &, Tq4_udcp_data &data) override {
        seen.push_back("post " + text_of(data.data));
    }
    void on_status(Host &, Tq4_udcp_info &, int busy) override { seen.push_back(busy ? "busy" : "idle"); }
    void on_error(Host &, Tq4_udcp_info &, Tq4_udcp_data &data) override {
        seen.push_back("refused " + text_of(data.data));
    }
    Texts take() { return std::exchange(seen, {}); }
};

// Datagrams by their commands, as they are sent: "0:Sync" is one from host 0.
inline std::string name_of(Tq4_bytes datagram) {
    constexpr const char *names[] = {
#define TQ4_UPP_TEXT(code, name, ...) #name,
        TQ4_UPP_COMMANDS(TQ4_UPP_TEXT)
#undef TQ4_UPP_TEXT
    };
    Tq4_upp_Packet packet;
    const int code = Tq4_upp_Decode(datagram, Tq4_upp_host_order(), packet);
    return code < 0 ? "bad" : names[packet.command()];
}

struct Pair : testing::Test {
    Recorder at_client, at_server;
    Simulator simulator{1};
    Host &client = simulator.add_host(at_client);
    Host &server = simulator.add_host(at_server);
    Tq4_id id{};
    Texts wire;                                    // what was sent since it was last taken
    std::vector<Tq4_upp_Packet> packets;           // the same; payloads are gone
    std::vector<std::string> datagrams;            // the same
    std::function<bool(const std::string &)> lose; // by name

    Pair() {
        simulator.each_link([](Link &link) { link.delay = 5 * ms; });
        simulator.lose = [this](unsigned long, const Host &from, Tq4_bytes bytes) {
            const std::string name = std::to_string(from.number()) + ":" + name_of(bytes);
            wire.push_back(name);
            packets.emplace_back();
            Tq4_upp_Decode(bytes, Tq4_upp_host_order(), packets.back());
            datagrams.emplace_back(reinterpret_cast<const char *>(bytes.data), bytes.size);
            return lose && lose(name);
        };
    }
    void connect() {
        id = client.connect(server);
        simulator.run_for(100 * ms);
        ASSERT_EQ(at_client.take(), Texts{"ok"});
        ASSERT_EQ(at_server.take(), Texts{"ok"});
        take_wire();
    }
    Tq4_id server_id() const { return at_server.ids.back(); }
    Texts take_wire() {
        packets.clear();
        datagrams.clear();
        return std::exchange(wire, {});
    }
    long count(const std::string &name) const { return std::count(wire.begin(), wire.end(), name); }
    Tq4_udcp_item &item(Host &host, const Tq4_id &which) { return *host.engine().Find(which); }
    bool gone(Host &host, const Tq4_id &which) { return host.engine().Find(which) == nullptr; }
};

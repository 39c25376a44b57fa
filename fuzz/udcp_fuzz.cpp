// Sessions with hostile peers: two hosts on a good network, and between their steps whatever the input makes of the
// datagrams they have sent. Those whose codes are kept are a peer that does not keep to the protocol. After each
// session both engines must come to an end, with nothing left.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdio>
#include <cstdlib>

#include "../tests/udcp/simulator.hpp"
#include "tq4/debug.h"

namespace {

struct Talker : Application {
    std::vector<std::pair<Host *, Tq4_id>> standing;
    void on_ok(Host &host, Tq4_udcp_info &info) override { standing.emplace_back(&host, *info.id); }
    int on_disconnect(Host &, Tq4_udcp_info &) override { return 300; }
};

void must(bool holds, const char *what) {
    if (holds) return;
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

// One of the datagrams seen, changed: some bytes anywhere, its command, its number, its end.
std::string made_of(FuzzedDataProvider &input, const std::vector<std::string> &seen) {
    std::string bytes = seen.empty() || input.ConsumeBool()
                            ? input.ConsumeRandomLengthString(200)
                            : seen[input.ConsumeIntegralInRange<std::size_t>(0, seen.size() - 1)];
    for (unsigned n = input.ConsumeIntegralInRange(0, 4); n && bytes.size() >= 30; --n) {
        char *base = bytes.data() + bytes.size() - 30;
        switch (input.ConsumeIntegralInRange(0, 4)) {
        case 0:
            base[1] = static_cast<char>((base[1] & 0xc0) | (input.ConsumeIntegral<uint8_t>() & 0x3f));
            break;
        case 1:
            base[10] = static_cast<char>(base[10] + input.ConsumeIntegral<int8_t>());
            break;
        case 2:
            base[14] = static_cast<char>(base[14] + input.ConsumeIntegral<int8_t>());
            break;
        case 3:
            bytes.insert(0, input.ConsumeRandomLengthString(60));
            break;
        default:
            bytes[input.ConsumeIntegralInRange<std::size_t>(0, bytes.size() - 1)] = input.ConsumeIntegral<char>();
        }
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    Tq4_debug_api->SetLog([](int, const char *, va_list) {});
    FuzzedDataProvider input(data, size);
    Talker talker;
    Simulator simulator(1);
    Host &a = simulator.add_host(talker), &b = simulator.add_host(talker, {.order = 1});
    std::vector<std::string> seen;
    simulator.lose = [&](unsigned long, const Host &, Tq4_bytes bytes) {
        if (seen.size() < 64) seen.emplace_back(reinterpret_cast<const char *>(bytes.data), bytes.size);
        return false;
    };
    a.connect(b);
    while (input.remaining_bytes()) {
        Host &host = input.ConsumeBool() ? a : b;
        const auto &[speaker, id] = talker.standing.empty()
                                        ? std::pair<Host *, Tq4_id>{&host, {}}
                                        : talker.standing[input.ConsumeIntegral<uint8_t>() % talker.standing.size()];
        switch (input.ConsumeIntegralInRange(0, 6)) {
        case 0:
            simulator.run_for(input.ConsumeIntegral<uint8_t>() * 10 * ms);
            break;
        case 1:
            speaker->send(id, std::string(input.ConsumeIntegral<uint16_t>() % 5000, 'm'), input.ConsumeBool());
            break;
        case 2:
            speaker->post(id, "post");
            break;
        case 3:
            speaker->disconnect(id);
            break;
        default: {
            const std::string bytes = made_of(input, seen);
            const bool known = input.ConsumeBool();
            if (bytes.size() >= 30) host.receive(known ? (&host == &a ? b : a).key() : "9.9.9.9:9", bytes);
        }
        }
    }
    simulator.run_for(30 * second);
    for (Host *host : {&a, &b}) host->engine().BeginExit();
    simulator.run_for(10 * second);
    for (Host *host : {&a, &b}) {
        must(host->engine().m_exit_flag == 2 && host->engine().connections() == 0, "a connection does not end");
        must(host->engine().m_half_open.m_count == 0 && host->engine().m_working.m_count == 0, "something is left");
    }
    return 0;
}

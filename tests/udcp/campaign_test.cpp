// Many hosts on bad networks for many hours, beside models of what was sent and of what may be on the wire. A failure
// tells its seed; with TQ4_UDCP_SEED set, that seed alone is run.
#include "sanitizers.hpp"
#include "support/test.hpp"
#include "udcp/wire_model.hpp"

namespace {

// At least so many seeds, and so many more that their connections have stood for so many hours. All of it is one
// thread: for the thread sanitizer a tenth is enough.
#ifdef TQ4_THREAD_SANITIZER
constexpr unsigned seeds = 50, connection_hours = 100, batches = 25;
#else
constexpr unsigned seeds = 500, connection_hours = 1000, batches = 25;
#endif

// A run: a network and its troubles, drawn from the seed; then quiet, in which everything must arrive; then the end.
class Campaign {
public:
    explicit Campaign(unsigned seed) : m_simulator(seed), m_shadow(m_simulator) {
        const unsigned servers = 1 + pick(2), clients = 2 + pick(4);
        for (unsigned i = 0; i < servers + clients; ++i)
            m_simulator.add_host(m_shadow, {.scheme = pick(3), .order = static_cast<uint8_t>(1 + pick(2))});
        m_busy = seed % 9 == 0; // some runs carry much, the others last long
        m_simulator.wraps = seed % 4 == 1;
        m_length = m_busy ? 30 * second : 65 * minute;
        const double loss = seed % 11 * 0.05;
        m_simulator.each_link([&](Link &link) { trouble(link, loss); });
        for (unsigned i = servers; i < servers + clients; ++i)
            m_shadow.open(m_simulator.host(i), m_simulator.host(pick(servers)), habit());
        for (unsigned i = 0; i < servers; ++i) m_shadow.set_habit(m_simulator.host(i), habit());
        for (Microseconds t = 0; t < m_length; t += 1 + m_simulator.below(m_length / 20))
            m_simulator.at(t, [this] { incident(); });
    }

    void run() {
        m_simulator.run_for(m_length);
        m_shadow.stop_sending();
        m_simulator.each_link([](Link &link) { link = {.delay = 5 * ms}; });
        m_simulator.run_for(3 * minute); // the most patient tuning finds out in 75 s
        m_shadow.expect_all_arrived();
        for (std::size_t i = 0; i < m_simulator.hosts(); ++i) m_simulator.host(i).engine().BeginExit();
        m_simulator.run_for(10 * second);
        for (std::size_t i = 0; i < m_simulator.hosts(); ++i) {
            const Tq4_udcp_engine &engine = m_simulator.host(i).engine();
            if (engine.connections() || engine.m_half_open.m_count || engine.m_working.m_count ||
                engine.m_exit_flag != 2)
                m_shadow.faults.push_back("host " + std::to_string(i) + " has not come to an end");
            if (m_simulator.host(i).stopped_in_vain) m_shadow.faults.push_back("a timer was stopped that had ended");
        }
    }
    const Shadow &shadow() const { return m_shadow; }
    uint64_t trace() const { return m_simulator.trace(); }

private:
    unsigned pick(unsigned n) { return static_cast<unsigned>(m_simulator.below(n)); }
    bool sometimes() { return pick(3) == 0; }

    void trouble(Link &link, double loss) {
        constexpr Microseconds delays[] = {0, ms, 20 * ms, 150 * ms, 400 * ms};
        link.delay = delays[pick(5)];
        link.loss = loss;
        if (sometimes()) link.jitter = link.delay / 2 + ms;
        if (sometimes()) link.in_order = false;
        if (sometimes()) link.bytes_a_second = 20000 * (1 + pick(50));
        if (sometimes()) link.queue_limit = 20000;
        if (sometimes()) link.burst = 0.01;
        if (sometimes()) link.duplicate = 0.05;
        if (sometimes()) link.late = 0.02;
        if (sometimes()) link.damage = 0.02;
    }
    Shadow::Habit habit() {
        Shadow::Habit habit;
        habit.pause = m_busy ? 200 * ms : 20 * second;
        habit.burst = m_busy ? 20 : 4;
        habit.largest = m_busy && sometimes() ? 100000 : 3000;
        habit.closes = sometimes() ? 0.02 : 0;
        habit.again = static_cast<int>(pick(3000));
        return habit;
    }
    Host &somebody() { return m_simulator.host(pick(static_cast<unsigned>(m_simulator.hosts()))); }

    void incident() {
        Host &host = somebody(), &other = somebody();
        switch (pick(5)) {
        case 0:
            m_simulator.link(host, other).cut = true;
            m_simulator.after(m_simulator.below(40 * second), [&] { m_simulator.link(host, other).cut = false; });
            break;
        case 1: // only a peer that speaks tells where it is now: a server stays
            if (host.number() >= 2) host.move(host.address(), 4000 + static_cast<int>(pick(1000)));
            break;
        case 2:
            host.step_clock(static_cast<int64_t>(pick(2) ? pick(7200000) : 0) - 3600000);
            break;
        case 3:
            m_shadow.flood(host);
            break;
        default:
            host.pause(m_simulator.below(3 * second));
        }
    }

    Simulator m_simulator;
    Wire_model m_shadow;
    bool m_busy;
    Microseconds m_length;
};

struct UdcpCampaign : testing::TestWithParam<unsigned> {};

Microseconds run(unsigned seed) {
    Campaign campaign(seed);
    campaign.run();
    for (const std::string &fault : campaign.shadow().faults) ADD_FAILURE() << "seed " << seed << ": " << fault;
    EXPECT_GT(campaign.shadow().received, 0u) << "seed " << seed;
    return campaign.shadow().stood;
}

TEST_P(UdcpCampaign, NothingIsLostDoubledReorderedOrAltered) {
    if (const char *only = std::getenv("TQ4_UDCP_SEED")) {
        if (GetParam() == 0) run(static_cast<unsigned>(std::stoul(only)));
        return;
    }
    constexpr Microseconds share = connection_hours * 60 * minute / batches;
    Microseconds stood = 0;
    for (unsigned seed = GetParam(); (seed < seeds || stood < share) && !HasFailure(); seed += batches)
        stood += run(seed);
}

INSTANTIATE_TEST_SUITE_P(Batch, UdcpCampaign, testing::Range(0u, batches));

TEST(UdcpSimulator, SeedGivesTheSameRunAgain) {
    for (const unsigned seed : {0u, 1u, 7u}) {
        Campaign first(seed), again(seed + 1000);
        first.run();
        again.run();
        Campaign second(seed);
        second.run();
        EXPECT_EQ(first.trace(), second.trace());
        EXPECT_EQ(first.shadow().received, second.shadow().received);
        EXPECT_NE(first.trace(), again.trace());
    }
}

} // namespace

// Every event in every state: where it leads and what it sends, from a table told a second time; and what each state
// waits for.
#include "udcp/recorder.hpp"

namespace {

constexpr long any = -1;
constexpr const char *stays = "";

struct Row {
    std::string state; // "" for any that has no row of its own
    unsigned message;
    long value;
    std::string sends;
    std::string next;
};

enum : unsigned { user = 8, frame = 9, t_syn = 10, t_resyn = 11, t_rst = 12, t_act = 13, t_err = 14, t_exit = 15 };

const std::vector<Row> rows = {
    {"initial", user, 1, "Sync", "user_syn"},
    {"initial", user, 4, "", stays},
    {"initial", frame, 1, "SynAck", "net_syn"},
    {"user_syn", frame, 2, "SynAck2", "data_master"},
    {"user_syn", t_syn, 16, "", "reconnect?"},
    {"user_syn", t_syn, any, "Sync", stays},
    {"data_master", frame, 2, "SynAck2", stays},
    {"data_master", t_err, 1, "", "reconnect?"},
    {"data_slave", t_err, 1, "", "exit"},
    {"net_syn", frame, 1, "SynAck", stays},
    {"net_syn", frame, 3, "", "data_slave"},
    {"net_syn", t_syn, 15, "", "exit"},
    {"net_syn", t_syn, any, "SynAck", stays},
    {"", user, 4, "Rst", "user_rst"},
    {"user_rst", frame, 5, "RstAck2", "exit_wait"},
    {"user_rst", t_rst, 3, "", "exit"},
    {"user_rst", t_rst, any, "Rst", stays},
    {"exit_wait", frame, 5, "RstAck2", stays},
    {"exit_wait", frame, 6, "", "exit"},
    {"exit_wait", t_exit, 1, "", "exit"},
    {"", frame, 4, "RstAck", "net_rst"},
    {"", frame, 16, "", "reconnect?"},
    {"net_rst", frame, 6, "RstAck2", "reconnect?"},
    {"net_rst", t_rst, 3, "", "reconnect?"},
    {"net_rst", t_rst, any, "RstAck", stays},
    {"reconnect?", t_resyn, 1, "Sync", "user_syn"},
    {"reconnect?", t_rst, 0, "", "exit"},
};

// Firings of the timer that a state waits for; 0 for none.
const std::map<std::string, unsigned long> firings = {
    {"user_syn", 16}, {"net_syn", 15},   {"user_rst", 3},    {"exit_wait", 1},
    {"net_rst", 3},   {"reconnect?", 1}, {"data_master", 0}, {"data_slave", 0},
};

Row expected(const std::string &state, unsigned message, long value) {
    for (const std::string &of : {state, std::string()})
        for (const long exact : {value, any})
            for (const Row &row : rows)
                if (row.state == of && row.message == message && row.value == exact) return row;
    return {state, message, value, "", stays};
}

// One connection that is brought into a state, on a host whose peer hears nothing.
struct Stage : Recorder {
    Simulator simulator{3};
    Host &host = simulator.add_host(*this), &peer = simulator.add_host(*this);
    Texts sent;
    Tq4_udcp_item *item;
    Tq4_id id;

    explicit Stage(const std::string &state) {
        again = 500;
        simulator.lose = [this](unsigned long, const Host &, Tq4_bytes bytes) {
            sent.push_back(name_of(bytes));
            return true;
        };
        const bool slave = state == "net_syn" || state == "data_slave";
        item = host.engine().Begin(!slave);
        id = item->m_id;
        item->m_dialed = Host::sockaddr_of(peer.key());
        item->m_addr = "peer";
        item->Follow(item->m_dialed.get());
        for (const auto &[message, value] : way_to(state)) drive(message, value);
        item->m_reconnect_ms = 500; // so that "reconnect?" is not left at once
        sent.clear();
    }
    void drive(unsigned message, long value) { host.engine().Drive(*item, message, value); }
    static std::vector<std::pair<unsigned, long>> way_to(const std::string &state) {
        const std::map<std::string, std::vector<std::pair<unsigned, long>>> ways = {
            {"initial", {}},
            {"user_syn", {{user, 1}}},
            {"data_master", {{user, 1}, {frame, 2}}},
            {"reconnect?", {{user, 1}, {frame, 2}, {t_err, 1}}},
            {"net_syn", {{frame, 1}}},
            {"data_slave", {{frame, 1}, {frame, 3}}},
            {"user_rst", {{user, 1}, {user, 4}}},
            {"exit_wait", {{user, 1}, {user, 4}, {frame, 5}}},
            {"net_rst", {{user, 1}, {frame, 4}}},
        };
        return ways.at(state);
    }
    std::string state() const {
        if (!host_engine().Find(id)) return "exit";
        for (const auto &[name, count] : firings)
            if (host_engine().In(*item, name.c_str())) return name;
        return "initial";
    }
    Tq4_udcp_engine &host_engine() const { return const_cast<Host &>(host).engine(); }
};

TEST(UdcpStateMachine, EveryEventInEveryStateLeadsWhereItShould) {
    const std::map<unsigned, std::vector<long>> events = {
        {user, {1, 4}}, {frame, {1, 2, 3, 4, 5, 6, 16}}, {t_syn, {1, 15, 16}},
        {t_resyn, {1}}, {t_rst, {0, 1, 2, 3}},           {t_err, {1}},
        {t_exit, {1}},
    };
    std::vector<std::string> states{"initial"};
    for (const auto &[name, count] : firings) states.push_back(name);
    for (const std::string &state : states)
        for (const auto &[message, values] : events)
            for (const long value : values) {
                Stage stage(state);
                ASSERT_EQ(stage.state(), state);
                stage.drive(message, value);
                const Row row = expected(state, message, value);
                SCOPED_TRACE(state + ", " + std::to_string(message) + ", " + std::to_string(value));
                EXPECT_EQ(stage.state(), row.next == stays ? state : row.next);
                EXPECT_EQ(stage.sent, row.sends.empty() ? Texts{} : Texts{row.sends});
            }
}

TEST(UdcpStateMachine, EachStateWaitsForItsTimersAndNoOther) {
    for (const auto &[state, count] : firings) {
        const Stage stage(state);
        SCOPED_TRACE(state);
        EXPECT_EQ(stage.item->m_t_timer.l != 0, count > 0);
        if (count) { EXPECT_EQ(stage.item->m_t_firings, count); }
        EXPECT_EQ(stage.item->m_a_timer.l != 0, state == "data_master" || state == "data_slave");
        EXPECT_EQ(stage.item->stands(), state == "data_master" || state == "data_slave");
    }
}

TEST(UdcpStateMachine, TimerThatWasStoppedIsNotHeardAnyMore) {
    Stage stage("user_syn");
    const Tq4_id timer = stage.item->m_t_timer;
    stage.drive(frame, 2);
    stage.drive(user, 4);
    ASSERT_EQ(stage.state(), "user_rst");
    stage.host.engine().OnTimer(timer, stage.id, t_rst, 3);
    EXPECT_EQ(stage.state(), "user_rst");
}

TEST(UdcpStateMachine, FitsTogether) {
    const auto machine = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf);
    EXPECT_EQ(Tq4_udcp_InitFSM(machine.get()), 0);
    EXPECT_EQ((*machine)->GetStateCount(machine.get()), 10u);
}

// A repeated SynAck2 cannot come to a master: it would be a fault of our own.
TEST(UdcpStateMachineDeathTest, MasterNeverBecomesASlave) {
    Stage stage("net_syn");
    stage.item->m_cbdata.master = 1;
    EXPECT_DEATH(stage.drive(frame, 3), "pItem->m_cbdata.master == 0");
}

} // namespace

// fault_sweep.hpp: an operation under every fault that it can meet: the first call of a kind fails, then the second,
// until the operation makes no more of them. A test gives a scenario, which prepares, runs the operation through its
// round, and judges what the operation promises.
#pragma once

#include <set>

#include "support/faults.hpp"
#include "support/test.hpp"

// One fault at one of its calls.
class Fault_round {
public:
    Fault_round(const Fault &fault, unsigned long nth) : m_fault(fault), m_nth(nth) {}

    // Runs the operation with the fault armed.
    template <class Operation> auto operator()(Operation operation) {
        const Armed_fault armed(m_fault, m_nth);
        const Told_at_end told{armed, m_happened};
        return operation();
    }
    // The same for an operation that tells whether it is done: it is, when the system refused nothing.
    template <class Operation> bool done(Operation operation) {
        const bool is_done = (*this)(operation);
        EXPECT_TRUE(is_done || !is_harmless());
        return is_done;
    }
    bool happened() const { return m_happened; }
    bool is(const char *call) const { return std::strcmp(m_fault.call, call) == 0; }
    // Whether the system may refuse something, and whether it has refused nothing: a signal came in between, or it took
    // the bytes in two parts.
    bool may_refuse() const { return m_fault.error != EINTR && m_fault.manner != Fault_manner::cut; }
    bool is_harmless() const { return !m_happened || !may_refuse(); }
    // Whether the system took half of some bytes and nothing more for good.
    bool leaves_half() const { return m_happened && m_fault.manner == Fault_manner::cut_then_fail; }
    std::string name() const { return name_of(m_fault) + ", call " + std::to_string(m_nth); }

private:
    struct Told_at_end {
        const Armed_fault &armed;
        bool &happened;
        ~Told_at_end() { happened = armed.happened(); }
    };
    const Fault &m_fault;
    unsigned long m_nth;
    bool m_happened = false;
};

// A fresh directory in memory where there is one: a round takes no time on a medium.
struct Quick_dir : Temp_dir {
    Quick_dir() : Temp_dir(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path()) {}
};

inline long open_descriptors() { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); }

// Runs the scenario in every round. No round may leave a descriptor open, and each of the calls must fail in one.
template <class Scenario> void sweep_faults(std::set<std::string> calls, Scenario scenario) {
    for (const Fault &fault : possible_faults())
        for (unsigned long nth = 1;; ++nth) {
            Fault_round round(fault, nth);
            SCOPED_TRACE(round.name());
            const long before = open_descriptors();
            scenario(round);
            EXPECT_EQ(open_descriptors(), before) << "descriptors";
            if (!round.happened() || testing::Test::HasFatalFailure()) break;
            calls.erase(fault.call);
        }
    EXPECT_EQ(calls, std::set<std::string>()) << "never made";
}

// Prints and log lines reach the sinks; the built-in ones write to standard output and to the system log.
#include "base/debug.hpp"
#include "support/test.hpp"

namespace {

Texts system_log; // what the process did to the system log, in order

} // namespace

// In this program this takes the place of the C library's, so that the tests see what would reach the system log.
extern "C" void syslog(int priority, const char *format, ...) {
    va_list args;
    va_start(args, format);
    system_log.push_back(std::to_string(priority) + " " + formatted(format, args));
    va_end(args);
}

namespace {

const Tq4_debug_ &debug = *Tq4_debug_api;

// Standard output is a pipe while this lives.
class Standard_output {
public:
    Standard_output() {
        std::fflush(stdout);
        EXPECT_EQ(pipe2(m_ends, O_CLOEXEC), 0);
        dup2(m_ends[1], 1);
    }
    ~Standard_output() {
        dup2(m_before, 1);
        for (int descriptor : {m_before, m_ends[0], m_ends[1]}) close(descriptor);
    }
    // What was written, at most a pipe's content; waits for the first of it.
    std::string read_some() {
        std::string text(1 << 16, 0);
        const ssize_t got = read(m_ends[0], text.data(), text.size());
        text.resize(got < 0 ? 0 : static_cast<std::size_t>(got));
        return text;
    }

private:
    int m_before = fcntl(1, F_DUPFD_CLOEXEC, 3);
    int m_ends[2];
};

struct Debug : testing::Test {
    static inline Texts sunk;

    Debug() { sunk.clear(), system_log.clear(); }
    ~Debug() override { debug.SetPrint(nullptr), debug.SetLog(nullptr), debug.Charset(0); }
    template <char Name> static void sink(int level, const char *format, va_list args) {
        sunk.push_back(Name + std::to_string(level) + " " + formatted(format, args));
    }
    static void call(void (*slot)(int, const char *, va_list), int level, const char *format, ...) {
        va_list args;
        va_start(args, format);
        slot(level, format, args);
        va_end(args);
    }
};

TEST_F(Debug, SinksReceiveEverythingUntilNullRestoresTheBuiltInOnes) {
    debug.SetPrint(sink<'p'>);
    debug.SetLog(sink<'l'>);
    debug.Printf(3, "%d %s", 1, "one");
    call(debug.vPrintf, -1, "%s", "two");
    debug.log(9, "%c", '3');
    call(debug.vlog, 0, "%s", "four");
    EXPECT_EQ(sunk, (Texts{"p3 1 one", "p-1 two", "l9 3", "l0 four"}));

    Standard_output output;
    debug.SetPrint(nullptr);
    debug.SetLog(nullptr);
    debug.Printf(0, nullptr);
    for (int level : {-100, 0, 1}) debug.Printf(level, "%d,", level), debug.log(level, "level %d 100%%", level);
    EXPECT_EQ(output.read_some(), "-100,0,1,");
    EXPECT_EQ(system_log, (Texts{"8 level -100 100%", "8 level 0 100%"})) << "up to zero, with one severity";
}

TEST_F(Debug, OutputIsGb18030WhenAsked) {
    Standard_output output;
    debug.Charset(1);
    debug.Printf(0, "%s%c\n", "中", 0);
    EXPECT_EQ(output.read_some(), std::string("\xd6\xd0\0\n", 4));
}

// For the thread sanitizer; elsewhere every print is in one charset or in the other.
TEST_F(Debug, TheCharsetMayChangeWhileAThreadPrints) {
    Standard_output output;
    std::atomic<bool> over = false;
    Parallel switching([&] {
        for (int gb18030 = 0; !over; gb18030 ^= 1) debug.Charset(gb18030);
    });
    for (int i = 0; i < 1000; ++i) {
        debug.Printf(0, "%s", "中");
        const std::string shown = output.read_some();
        ASSERT_TRUE(shown == "中" || shown == "\xd6\xd0") << shown;
    }
    over = true;
}

TEST_F(Debug, AModuleGivesUpTheLogOnlyWhileItsSinkIsInstalled) {
    debug.SetLog(sink<'h'>);
    Tq4_debug_restore_log(sink<'m'>);
    debug.log(0, "to the host");
    EXPECT_EQ(sunk, Texts{"h0 to the host"});
    Tq4_debug_restore_log(sink<'h'>);
    debug.log(0, "to the system");
    EXPECT_EQ(system_log, Texts{"8 to the system"});
}

TEST_F(Debug, PartialWritesGoOnAndFailingOnesEndTheOutput) {
    const std::string text(1000000, 'x');
    std::string received;
    Standard_output output;
    Parallel print([&] { return debug.Printf(0, "%s", text.c_str()), 0; });
    print.interrupt();
    while (received.size() < text.size()) received += output.read_some();
    EXPECT_EQ(received, text);
    print.result();

    fcntl(1, F_SETFL, O_NONBLOCK);
    debug.Printf(0, "%s", text.c_str());
    EXPECT_GT(output.read_some().size(), 0u) << "what fitted, and the call has come back";
}

} // namespace

// Prints and log lines reach the sinks; the built-in ones write to standard output and to the system log. Errors are
// told to standard error, where somebody may read them or not.
#include "base/debug.hpp"
#include "support/output.hpp"

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

    Piped output;
    debug.SetPrint(nullptr);
    debug.SetLog(nullptr);
    debug.Printf(0, nullptr);
    for (int level : {-100, 0, 1}) debug.Printf(level, "%d,", level), debug.log(level, "level %d 100%%", level);
    EXPECT_EQ(output.read_some(), "-100,0,1,");
    EXPECT_EQ(system_log, (Texts{"8 level -100 100%", "8 level 0 100%"})) << "up to zero, with one severity";
}

// Every print is in one charset or in the other.
TEST_F(Debug, OutputIsGb18030WhenAskedAlsoWhileAThreadPrints) {
    Piped output;
    debug.Charset(1);
    debug.Printf(0, "%s%c\n", "中", 0);
    EXPECT_EQ(output.read_some(), std::string("\xd6\xd0\0\n", 4));
    std::atomic<bool> over = false;
    Parallel switching([&] {
        for (int gb18030 = 0; !over; gb18030 ^= 1) debug.Charset(gb18030);
    });
    for (int i = 0; i < 1000; ++i) {
        debug.Printf(0, "%s", "中");
        const std::string shown = output.read_some();
        EXPECT_TRUE(shown == "中" || shown == "\xd6\xd0") << shown;
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
    Piped output;
    Parallel print([&] { return debug.Printf(0, "%s", text.c_str()), 0; });
    print.interrupt();
    while (received.size() < text.size()) received += output.read_some();
    EXPECT_EQ(received, text);
    print.result();

    fcntl(1, F_SETFL, O_NONBLOCK);
    debug.Printf(0, "%s", text.c_str());
    EXPECT_GT(output.read_some().size(), 0u) << "what fitted, and the call has come back";
}

TEST_F(Debug, AnErrorNeitherWaitsForAReaderForLongNorEndsTheProcess) {
    Piped errors(2);
    errno = EAGAIN;
    Tq4_debug_tell_error("%s %m\n", "中");
    EXPECT_EQ(errors.read_some(), "中 Resource temporarily unavailable\n");
    fcntl(2, F_SETFL, O_NONBLOCK);
    const std::string block(4096, 'x');
    while (write(2, block.data(), block.size()) > 0) continue;
    fcntl(2, F_SETFL, 0);
    Tq4_debug_tell_error("lost");
    EXPECT_EQ(errors.read_some().back(), 'x');
    errors.close_reader();
    Tq4_debug_tell_error("lost");
}

} // namespace

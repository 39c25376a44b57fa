// The system interface tells what the system tells, into strings and numbers, and null is harmless.
#include "platform/multi_platform_system.hpp"
#include "support/test.hpp"

namespace {

const Tq4_system_ &sys = *Tq4_system_api;

// The text that an operation leaves in a string, which it also returns.
std::string text(const char *(*operation)(Tq4_string)) {
    auto s = Tq4_make<Tq4_string>(Tq4_string_oitf, "what was there before");
    const char *returned = operation(s.get());
    EXPECT_TRUE(returned == (*s)->c_str(s.get()) && !operation(nullptr));
    EXPECT_EQ(static_cast<std::size_t>((*s)->length(s.get())), std::strlen(returned));
    return returned;
}

TEST(System, TellsPathsAndCutsThemToAnyBuffer) {
    const fs::path exe = fs::read_symlink("/proc/self/exe");
    EXPECT_EQ(text(sys.ExePathName), exe);
    EXPECT_EQ(text(sys.ExeName), exe.filename());
    EXPECT_EQ(text(sys.ExePath), exe.parent_path());
    EXPECT_EQ(text(sys.CurrentDir), fs::current_path());
    for (auto fill : {MP_GetExeFullName, MP_GetExePath, MP_GetExeBaseName, MP_GetCurrentDir})
        for (std::size_t size = 0; size < 8; ++size) {
            char buffer[] = "#######";
            const char *told = fill(buffer, size);
            EXPECT_TRUE(size == 7 || buffer[size] == '#') << size;
            EXPECT_TRUE(size == 0 || (told >= buffer && told + std::strlen(told) < buffer + size)) << size;
            if (size > 0 && fill == MP_GetExeFullName) { EXPECT_EQ(buffer, exe.string().substr(0, size - 1)); }
        }
}

TEST(System, ClocksAgree) {
    long seconds = 0, microseconds = -1;
    const unsigned long before = sys.GetTickCount();
    EXPECT_EQ(sys.gettimeofday(&seconds, &microseconds), 0);
    const auto now = static_cast<unsigned long>(seconds * 1000 + microseconds / 1000);
    EXPECT_TRUE(before <= now && now <= sys.GetTickCount()) << now;
    EXPECT_EQ(sys.difftimeval(4, 999999, 5, 1), -2.0);
    EXPECT_EQ(sys.difftimeval(INT64_MAX, 0, INT64_MIN, 0), 0x1p64 * 1e6);

    tm local;
    EXPECT_EQ(sys.localtime(&seconds, &local), &local);
    EXPECT_EQ(mktime(&local), seconds);
    EXPECT_EQ(sys.localtime(&seconds, nullptr), localtime(&seconds));
}

TEST(System, SleepLastsThroughSignals) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sys.Sleep(-1), 0);
    Parallel sleeper([] { return sys.Sleep(50); });
    sleeper.interrupt();
    EXPECT_EQ(sleeper.result(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
}

TEST(System, LibrariesLoadAndTellTheirSymbols) {
    void *library = sys.LoadDll("libm.so.6");
    ASSERT_NE(library, nullptr);
    EXPECT_NE(sys.Function(library, "cos"), nullptr);
    EXPECT_EQ(sys.Function(nullptr, "cos"), nullptr) << "must not ask the program itself";
    sys.UnloadDll(library);
    EXPECT_EQ(sys.LoadDll("/no/such/library.so"), nullptr);
}

} // namespace

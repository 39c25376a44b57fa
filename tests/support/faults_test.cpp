// The seam between the library and the system: the call that a test names fails, and no other.
#include "file/descriptor.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"
#include "support/fault_sweep.hpp"

namespace {

struct Faults : testing::Test {
    Temp_dir dir;
    int file = open((dir / "file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);

    ~Faults() override { close(file); }
};

TEST_F(Faults, TheNamedCallFailsInItsManner) {
    const std::pair<Fault_manner, std::vector<long>> manners[] = {
        {Fault_manner::once, {10, -1, 10, 10}},
        {Fault_manner::from_then_on, {10, -1, -1, -1}},
        {Fault_manner::cut, {10, 5, 10, 10}},
        {Fault_manner::cut_then_fail, {10, 5, -1, -1}},
    };
    for (const auto &[manner, expected] : manners) {
        const Armed_fault armed({"write", ENOSPC, manner}, 2);
        for (long moved : expected) EXPECT_EQ(MP_Write(file, "0123456789", 10), moved);
        EXPECT_TRUE(armed.happened());
    }
    EXPECT_EQ(MP_Write(file, "0", 1), 1) << "nothing is armed any more";
    EXPECT_EQ(MP_GetFileSize1(file), 30u + 10 + 35 + 15 + 1) << "what did not fail was done";
}

TEST_F(Faults, EveryKindOfCallFailsInItsOwnWay) {
    const std::tuple<const char *, int, std::function<int()>, int> kinds[] = {
        {"close", EIO, [&] { return MP_FileClose(dup(file)); }, 0},
        {"pthread_create", EAGAIN,
         [] { return MP_THREAD_Create([](void *) -> void * { return nullptr; }, nullptr, 1, nullptr, nullptr); }, 0},
        {"readdir", EIO,
         [&] {
             std::vector<std::string> names;
             const Tq4_descriptor directory(MP_DirOpen(dir.path().c_str(), 0));
             return MP_DirList(directory.get(), &names);
         },
         0},
        {"write", EINTR, [&] { return static_cast<int>(MP_Write(file, "x", 1)); }, 1}, // it is made again
    };
    for (const auto &[call, error, operation, result] : kinds) {
        const long before = open_descriptors();
        const Armed_fault armed({call, error, Fault_manner::once}, 1);
        EXPECT_EQ(operation(), result) << call;
        EXPECT_TRUE(armed.happened());
        EXPECT_EQ(open_descriptors(), before) << "what failed to close is closed";
    }
}

} // namespace

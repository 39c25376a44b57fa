// The seam between the library and the system: the call that a test names fails, and no other.
#include "platform/multi_platform_fs.hpp"
#include "platform/multi_platform_pthread.hpp"
#include "platform/multi_platform_system.hpp"
#include "support/fault_sweep.hpp"

namespace {

struct Faults : testing::Test {
    Temp_dir dir;
    int file = open((dir / "file").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);

    ~Faults() override { close(file); }
    // How many bytes each of four writes of ten moves.
    std::vector<long> writes(Fault_manner manner) {
        const Armed_fault armed({"write", ENOSPC, manner}, 2);
        std::vector<long> moved;
        for (int i = 0; i < 4; ++i) moved.push_back(MP_Write(file, "0123456789", 10));
        EXPECT_TRUE(armed.happened());
        return moved;
    }
};

TEST_F(Faults, TheNamedCallFailsInItsManner) {
    EXPECT_EQ(writes(Fault_manner::once), (std::vector<long>{10, -1, 10, 10}));
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(writes(Fault_manner::from_then_on), (std::vector<long>{10, -1, -1, -1}));
    EXPECT_EQ(writes(Fault_manner::cut), (std::vector<long>{10, 5, 10, 10}));
    EXPECT_EQ(writes(Fault_manner::cut_then_fail), (std::vector<long>{10, 5, -1, -1}));
    EXPECT_EQ(MP_Write(file, "0", 1), 1) << "nothing is armed any more";
    EXPECT_EQ(MP_GetFileSize1(file), 30u + 10 + 35 + 15 + 1) << "what did not fail was done";
}

TEST_F(Faults, EveryKindOfCallFailsInItsOwnWay) {
    const Fault_manner once = Fault_manner::once;
    {
        const long before = open_descriptors();
        const int extra = dup(file);
        const Armed_fault armed({"close", EIO, once}, 1);
        EXPECT_EQ(MP_FileClose(extra), 0);
        EXPECT_EQ(open_descriptors(), before) << "it is closed all the same";
    }
    {
        const Armed_fault armed({"pthread_create", EAGAIN, once}, 1);
        EXPECT_EQ(MP_THREAD_Create([](void *) -> void * { return nullptr; }, nullptr, 1, nullptr, nullptr), 0);
    }
    {
        const Armed_fault armed({"readdir", EIO, once}, 2);
        const int directory = MP_DirOpen(dir.path().c_str(), 0);
        std::vector<std::string> names;
        EXPECT_EQ(MP_DirList(directory, &names), 0);
        close(directory);
    }
    {
        const Armed_fault armed({"write", EINTR, once}, 1);
        EXPECT_EQ(MP_Write(file, "x", 1), 1) << "interrupted, and made again";
        EXPECT_TRUE(armed.happened());
    }
}

} // namespace

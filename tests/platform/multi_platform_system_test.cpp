// What chance gives: other bytes each time, all of them, and from the device where the call is forbidden.
#include <set>

#include "support/test.hpp"

#include "platform/multi_platform_system.hpp"
#include "support/faults.hpp"

namespace {

std::string chance() {
    std::string bytes(64, '\0');
    EXPECT_EQ(MP_GetRandom(bytes.data(), bytes.size()), 1);
    EXPECT_GT(std::set<char>(bytes.begin(), bytes.end()).size(), 16u) << "64 bytes of chance have about 57";
    return bytes;
}

TEST(PlatformSystem, ChanceIsOtherwiseEachTimeWhateverTheCallDoes) {
    std::set<std::string> all{chance(), chance()};
    for (const Fault &fault : possible_faults()) {
        if (std::string(fault.call) != "getrandom") continue;
        const Armed_fault armed(fault, 1);
        all.insert(chance());
        EXPECT_TRUE(armed.happened()) << name_of(fault);
    }
    EXPECT_GE(all.size(), 6u);
}

TEST(PlatformSystem, DeviceStandsInForTheCall) {
    char byte;
    const Armed_fault call({"getrandom", ENOSYS, Fault_manner::from_then_on}, 1);
    EXPECT_EQ(MP_GetRandom(&byte, 0), 1);
    EXPECT_EQ(MP_GetRandom(&byte, 1), 1) << "from the device";
}

} // namespace

// The size of a Base64 text. What is in it the fuzz target compares with a model, by every kernel; the conversions of
// strings are tested with them.
#include "base/charset/base64.hpp"
#include "support/test.hpp"

TEST(Base64Size, IsAllOnesWhenItCannotBeRepresented) {
    const std::size_t all_ones = static_cast<std::size_t>(-1);
    EXPECT_EQ(base64_encoded_size(all_ones), all_ones);
    EXPECT_EQ(base64_encoded_size(all_ones / 4 * 3), all_ones); // only the line feeds are too many
}

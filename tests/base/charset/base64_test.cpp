// Base64: every kernel this processor runs against a bit-by-bit model, the line rule, and what decoding skips and ends
// at. The fuzz target decodes any bytes beside a model.
#include "base/charset/base64.hpp"
#include "base/charset/base64_kernels.hpp"
#include "support/test.hpp"

namespace {

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string random_bytes(std::size_t n) {
    static std::mt19937 random(2024);
    std::string bytes(n, '\0');
    for (char &byte : bytes) byte = static_cast<char>(random());
    return bytes;
}

// Six bits at a time, a line feed after every twenty whole groups, then the padding.
std::string model_encode(const std::string &bytes) {
    std::string text;
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
        unsigned value = 0;
        for (std::size_t i = bit; i < bit + 6; ++i)
            value = value << 1 | (i / 8 < bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1 : 0);
        text += alphabet[value];
        if (bit % 480 == 474) text += '\n';
    }
    return text + std::string((3 - bytes.size() % 3) % 3, '=');
}

class Base64 : public testing::TestWithParam<const Base64_kernel *> {
protected:
    void SetUp() override {
        if (!GetParam()->is_supported()) GTEST_SKIP() << "not on this processor";
    }
    // Between blocks of exactly their size, so that the sanitizer sees an access beyond.
    std::string Run(decltype(base64_encode_by) *direction, const std::string &in, std::size_t room) const {
        const std::vector<uint8_t> exact(in.begin(), in.end());
        std::vector<uint8_t> out(room);
        out.resize(direction(*GetParam(), {exact.data(), exact.size()}, out.data()));
        return std::string(out.begin(), out.end());
    }
    std::string Encode(const std::string &bytes) const {
        return Run(base64_encode_by, bytes, base64_encoded_size(bytes.size()));
    }
    std::string Decode(const std::string &text) const {
        return Run(base64_decode_by, text, base64_decoded_max(text.size()));
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Kernels, Base64, testing::ValuesIn(base64_kernels().begin(), base64_kernels().end()),
                         [](const auto &test) { return std::string(test.param->name); });

TEST_P(Base64, EncodesAndDecodesEveryLengthLikeTheModel) {
    for (std::size_t n = 0; n <= 300; ++n) {
        const std::string bytes = random_bytes(n), text = model_encode(bytes);
        ASSERT_EQ(base64_encoded_size(n), text.size());
        ASSERT_EQ(Encode(bytes), text);
        ASSERT_EQ(Decode(text), bytes);
    }
}

TEST(Base64Size, IsAllOnesWhenItCannotBeRepresented) {
    const std::size_t all_ones = static_cast<std::size_t>(-1);
    EXPECT_EQ(base64_encoded_size(all_ones), all_ones);
    EXPECT_EQ(base64_encoded_size(all_ones / 4 * 3), all_ones); // only the line feeds are too many
}

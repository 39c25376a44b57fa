// Base64: every kernel this processor runs against a bit-by-bit model, with the line rule. The fuzz target decodes any
// bytes beside a model.
#include "base/charset/base64.hpp"
#include "base/charset/base64_kernels.hpp"
#include "support/test.hpp"

namespace {

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Six bits at a time, a line feed after every twenty whole groups, then the padding.
std::string model_encode(const std::vector<uint8_t> &bytes) {
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

} // namespace

// Between blocks of exactly their size, so that the sanitizer sees an access beyond.
TEST(Base64, EveryKernelEncodesAndDecodesEveryLengthLikeTheModel) {
    std::mt19937 random(2024);
    for (std::size_t n = 0; n <= 300; ++n) {
        std::vector<uint8_t> bytes(n);
        for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(random());
        const std::string text = model_encode(bytes);
        ASSERT_EQ(base64_encoded_size(n), text.size());
        for (const Base64_kernel *kernel : base64_kernels()) {
            if (!kernel->is_supported()) continue;
            std::vector<uint8_t> encoded(text.size()), decoded(base64_decoded_max(text.size()));
            ASSERT_EQ(base64_encode_by(*kernel, {bytes.data(), n}, encoded.data()), text.size());
            ASSERT_EQ(std::string(encoded.begin(), encoded.end()), text) << kernel->name << n;
            decoded.resize(base64_decode_by(*kernel, {encoded.data(), encoded.size()}, decoded.data()));
            ASSERT_EQ(decoded, bytes) << kernel->name << n;
        }
    }
}

TEST(Base64Size, IsAllOnesWhenItCannotBeRepresented) {
    const std::size_t all_ones = static_cast<std::size_t>(-1);
    EXPECT_EQ(base64_encoded_size(all_ones), all_ones);
    EXPECT_EQ(base64_encoded_size(all_ones / 4 * 3), all_ones); // only the line feeds are too many
}

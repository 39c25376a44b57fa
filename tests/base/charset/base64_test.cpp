// Base64: every kernel this processor runs against a bit-by-bit model, the line rule, and what decoding skips and ends
// at.
#include "base/charset/base64.hpp"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>
#include <vector>

#include "base/charset/base64_kernels.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

Bytes random_bytes(std::size_t n) {
    static std::mt19937 random(2024);
    Bytes bytes(n);
    for (uint8_t &byte : bytes) byte = static_cast<uint8_t>(random());
    return bytes;
}

// Six bits at a time over the whole text, then the padding, with a line feed after every twenty whole groups.
std::string model_encode(const Bytes &bytes) {
    std::string text;
    for (std::size_t bit = 0; bit < bytes.size() * 8; bit += 6) {
        unsigned value = 0;
        for (std::size_t i = bit; i < bit + 6; ++i)
            value = value << 1 | (i / 8 < bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1u : 0u);
        text += alphabet[value];
        if (bit % 480 == 474) text += '\n';
    }
    return text + std::string((3 - bytes.size() % 3) % 3, '=');
}

// The text with a line break after every width characters.
std::string in_lines(const std::string &text, std::size_t width, const std::string &line_break) {
    std::string lines;
    for (std::size_t at = 0; at < text.size(); at += width) lines += text.substr(at, width) + line_break;
    return lines;
}

std::string without_line_feeds(std::string text) {
    std::erase(text, '\n');
    return text;
}

class Base64 : public testing::TestWithParam<const Base64_kernel *> {
protected:
    void SetUp() override {
        if (!GetParam()->is_supported()) GTEST_SKIP() << "not on this processor";
    }
    std::string Encode(const Bytes &bytes) const {
        const Bytes exact(bytes); // a block of exactly this size, so that the sanitizer sees a read beyond
        Bytes room(base64_encoded_size(exact.size()));
        EXPECT_EQ(base64_encode_by(*GetParam(), {exact.data(), exact.size()}, room.data()), room.size());
        return std::string(room.begin(), room.end());
    }
    Bytes Decode(const std::string &text) const {
        const Bytes exact(text.begin(), text.end());
        Bytes room(base64_decoded_max(exact.size()));
        room.resize(base64_decode_by(*GetParam(), {exact.data(), exact.size()}, room.data()));
        return room;
    }
    std::string DecodeText(const std::string &text) const {
        const Bytes bytes = Decode(text);
        return std::string(bytes.begin(), bytes.end());
    }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(Kernels, Base64, testing::ValuesIn(base64_kernels().begin(), base64_kernels().end()),
                         [](const auto &test) { return std::string(test.param->name); });

TEST_P(Base64, EncodesAndDecodesEveryLengthLikeTheModel) {
    for (std::size_t n = 0; n <= 300; ++n) {
        const Bytes bytes = random_bytes(n);
        const std::string text = model_encode(bytes);
        ASSERT_EQ(Encode(bytes), text);
        ASSERT_EQ(Decode(text), bytes) << n;
    }
}

TEST_P(Base64, LineFeedFollowsEveryTwentyWholeGroups) {
    const std::pair<std::size_t, std::size_t> sizes[] = {{57, 76}, {58, 80},   {59, 80},  {60, 81},
                                                         {61, 85}, {120, 162}, {118, 161}};
    for (auto [bytes, characters] : sizes) {
        const std::string text = Encode(random_bytes(bytes));
        EXPECT_EQ(text.size(), characters);
        EXPECT_EQ(text.back() == '\n', bytes % 60 == 0);
        for (std::size_t i = 0; i < text.size(); ++i) EXPECT_EQ(text[i] == '\n', i % 81 == 80);
    }
}

TEST_P(Base64, DecodingSkipsLineBreaksAnywhere) {
    const Bytes bytes = random_bytes(500);
    const std::string text = without_line_feeds(model_encode(bytes));
    for (std::size_t width : {1, 3, 4, 7, 16, 31, 32, 63, 64, 66, 76, 80, 128})
        for (const char *line_break : {"\n", "\r\n", "\n\r\r\n\n"})
            EXPECT_EQ(Decode(in_lines(text, width, line_break)), bytes) << width;
    EXPECT_EQ(DecodeText("\r\n\nY\nQ\r=\n=\n"), "a");
}

TEST_P(Base64, EveryByteAtEveryPlaceOfALongTextDecodesByTheTable) {
    const std::string text(132, 'A');
    for (int byte = 0; byte < 256; ++byte)
        for (std::size_t at = 0; at < text.size(); at += at < 64 ? 1 : 13) {
            std::string changed = text;
            changed[at] = static_cast<char>(byte);
            const auto value = alphabet.find(static_cast<char>(byte));
            Bytes expected(99);
            if (value != std::string::npos) {
                const std::size_t bits = value << (3 - at % 4) * 6;
                for (std::size_t i = 0; i < 3; ++i)
                    expected[at / 4 * 3 + i] = static_cast<uint8_t>(bits >> (16 - 8 * i));
            } else if (byte == '\r' || byte == '\n') {
                expected.resize(96); // the last group is incomplete
            } else if (byte == '=') {
                expected.resize(at % 4 >= 2 ? 98 : 99);
            } else {
                expected.resize(at / 4 * 3);
            }
            ASSERT_EQ(Decode(changed), expected) << byte << " at " << at;
        }
}

TEST_P(Base64, GroupsDecodeByTheRulesOfPaddingAndOfTheirEnd) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"YWJj", "abc"},
        {"YWI=", "ab"},
        {"YQ==", "a"},
        {"YQ==YWJj", "aabc"},     // padding does not end the text
        {"YWI", ""},              // an incomplete last group is dropped
        {"YWJjYQ", "abc"},        //
        {"YW-j", ""},             // a foreign character drops its group
        {"YWJjY-Jj", "abc"},      //
        {"YWJj YWJj", "abc"},     // a blank is foreign too
        {"YQ=j", "a#"},           // each byte hangs on its own character: only the second is left out
        {"=WJj", "\x01\x62\x63"}, // padding in front stands for zero bits
        {"Y=Jj", "\x60\x02\x63"}, //
        {"====", std::string(1, '\0')},
        {std::string("YWJj\0YWJj", 9), "abc"},
    };
    for (const auto &[text, decoded] : cases) EXPECT_EQ(DecodeText(text), decoded) << text;
}

TEST(Base64Size, IsExactAndAllOnesWhenItCannotBe) {
    EXPECT_EQ(base64_encoded_size(0), 0u);
    EXPECT_EQ(base64_encoded_size(58), 80u);
    EXPECT_EQ(base64_encoded_size(60), 81u);
    EXPECT_EQ(base64_encoded_size(static_cast<std::size_t>(-1)), static_cast<std::size_t>(-1));
    EXPECT_EQ(base64_encoded_size(static_cast<std::size_t>(-1) / 4 * 3), static_cast<std::size_t>(-1));
}

TEST(Base64Choice, TheChosenKernelGivesTheSame) {
    const Bytes bytes = random_bytes(1000);
    std::string text(base64_encoded_size(bytes.size()), '\0');
    EXPECT_EQ(base64_encode({bytes.data(), bytes.size()}, reinterpret_cast<uint8_t *>(text.data())), text.size());
    EXPECT_EQ(text, model_encode(bytes));
    Bytes back(base64_decoded_max(text.size()));
    back.resize(base64_decode({reinterpret_cast<const uint8_t *>(text.data()), text.size()}, back.data()));
    EXPECT_EQ(back, bytes);
}

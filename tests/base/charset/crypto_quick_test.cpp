// The block scrambling against a model that follows the rules one bit at a time.
#include "base/charset/crypto_quick.hpp"
#include "support/test.hpp"

namespace {

Tq4_bytes view(const std::string &bytes) { return {reinterpret_cast<const uint8_t *>(bytes.data()), bytes.size()}; }

// From a fresh key into exactly the announced size.
std::string run(decltype(crypto_quick_enc) *direction, const std::string &key_text, const std::string &in,
                std::size_t out_size) {
    crypto_quick_key_t key;
    crypto_quick_init_key(&key, view(key_text));
    std::string out(out_size, '\0');
    EXPECT_EQ(direction(&key, view(in), reinterpret_cast<uint8_t *>(out.data())), out_size);
    return out;
}

int bit(int byte, int number) { return byte >> number & 1; }

int model_round_key(const std::string &text) {
    int round_key = 0;
    for (std::size_t i = 0; i < text.size(); ++i) // of each byte only the bit on the diagonal counts
        round_key ^= bit(text[i], 7 - static_cast<int>(i % 8)) << (7 - i % 8);
    return round_key;
}

std::string model_scramble(const std::string &key, std::string in) {
    const int mask[8] = {0x6A, 0x09, 0xE6, 0x67, 0xF3, 0xBC, 0xC9, 0x08};
    in.resize((in.size() + 7) / 8 * 8);
    std::string out, chain(8, '\0');
    for (std::size_t block = 0; block < in.size(); block += 8) {
        std::string next;
        for (std::size_t i = 0; i < 8; ++i) {
            int mirrored = 0;
            for (int b = 0; b < 8; ++b) mirrored |= bit(chain[i] ^ in[block + 7 - i], b) << (7 - b);
            next += static_cast<char>(mirrored ^ mask[i] ^ model_round_key(key));
        }
        out += chain = next;
    }
    return out;
}

} // namespace

TEST(CryptoQuick, ScramblesEveryLengthLikeTheModelAndBack) {
    std::mt19937 random(7);
    for (const std::string &key : {std::string(), std::string("k"), std::string("more than eight bytes")})
        for (std::size_t n = 0; n <= 40; ++n) {
            std::string in(n, '\0');
            for (char &byte : in) byte = static_cast<char>(random());
            const std::string out = run(crypto_quick_enc, key, in, (n + 7) / 8 * 8);
            ASSERT_EQ(out, model_scramble(key, in));
            in.resize(out.size());
            ASSERT_EQ(run(crypto_quick_dec, key, out, out.size()), in);
            ASSERT_EQ(run(crypto_quick_dec, key, out + "\4", out.size()), in); // an incomplete block is left out
        }
}

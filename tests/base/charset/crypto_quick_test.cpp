// The block scrambling against a model that follows the rules one bit and one byte at a time.
#include "base/charset/crypto_quick.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Tq4_bytes view(const Bytes &bytes) { return {bytes.data(), bytes.size()}; }
Bytes bytes_of(const std::string &text) { return Bytes(text.begin(), text.end()); }

crypto_quick_key_t key_of(const std::string &text) {
    crypto_quick_key_t key;
    crypto_quick_init_key(&key, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
    return key;
}

Bytes scramble(crypto_quick_key_t key, const Bytes &in) {
    Bytes out((in.size() + 7) / 8 * 8);
    EXPECT_EQ(crypto_quick_enc(&key, view(in), out.data()), out.size());
    return out;
}

Bytes unscramble(crypto_quick_key_t key, const Bytes &in) {
    Bytes out(in.size() / 8 * 8);
    EXPECT_EQ(crypto_quick_dec(&key, view(in), out.data()), out.size());
    return out;
}

int bit(int byte, int number) { return byte >> number & 1; }

uint8_t model_round_key(const std::string &text) {
    int round_key = 0;
    for (std::size_t i = 0; i < text.size(); ++i) { // of each text byte only one bit counts
        const int number = 7 - static_cast<int>(i % 8);
        round_key ^= bit(text[i], number) << number;
    }
    return static_cast<uint8_t>(round_key);
}

Bytes model_scramble(const std::string &key, Bytes in) {
    const int mask[8] = {0x6A, 0x09, 0xE6, 0x67, 0xF3, 0xBC, 0xC9, 0x08};
    in.resize((in.size() + 7) / 8 * 8);
    Bytes out, chain(8);
    for (std::size_t block = 0; block < in.size(); block += 8) {
        Bytes next;
        for (std::size_t i = 0; i < 8; ++i) {
            const int mixed = chain[i] ^ in[block + 7 - i];
            int mirrored = 0;
            for (int b = 0; b < 8; ++b) mirrored |= bit(mixed, b) << (7 - b);
            next.push_back(static_cast<uint8_t>(mirrored ^ mask[i] ^ model_round_key(key)));
        }
        out.insert(out.end(), next.begin(), next.end());
        chain = next;
    }
    return out;
}

} // namespace

TEST(CryptoQuick, ScramblesEveryLengthLikeTheModelAndBack) {
    std::mt19937 random(7);
    for (const std::string key :
         {"", "k", "secret", "a key of more than eight bytes", "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF"})
        for (std::size_t n = 0; n <= 40; ++n) {
            Bytes in(n);
            for (uint8_t &byte : in) byte = static_cast<uint8_t>(random());
            const Bytes out = scramble(key_of(key), in);
            ASSERT_EQ(out, model_scramble(key, in));
            Bytes padded = in;
            padded.resize(out.size());
            ASSERT_EQ(unscramble(key_of(key), out), padded);
        }
}

TEST(CryptoQuick, ScramblesAKnownTextToKnownBytes) {
    const Bytes known = {0x6A ^ 0x16, 0x09 ^ 0xE6, 0xE6 ^ 0x66, 0x67 ^ 0xA6,
                         0xF3 ^ 0x26, 0xBC ^ 0xC6, 0xC9 ^ 0x46, 0x08 ^ 0x86};
    EXPECT_EQ(scramble(key_of(""), bytes_of("abcdefgh")), known);
}

TEST(CryptoQuick, KeyIsTheDiagonalOfTheFoldedBytes) {
    const Bytes zero(8), diagonal = {0x80, 0x40, 0x20, 0x10, 0x08, 0x04, 0x02, 0x01};
    crypto_quick_key_t key;
    for (std::size_t i = 0; i < 8; ++i) {
        Bytes one = zero;
        one[i] = 0xFF;
        crypto_quick_init_key(&key, view(one));
        EXPECT_EQ(Bytes(key.rk, key.rk + 8), Bytes(8, diagonal[i]));
        EXPECT_EQ(Bytes(key.iv, key.iv + 8), zero);
    }
    EXPECT_EQ(key_of("12345678"
                     "12345678")
                  .rk[0],
              0);
}

TEST(CryptoQuick, PiecesFoldAsOneSequence) {
    const Bytes number = {0x81, 0x42, 0x23, 0x14}, text = bytes_of("a text key");
    Bytes whole = number;
    whole.insert(whole.end(), text.begin(), text.end());
    crypto_quick_key_t in_pieces, at_once;
    const Tq4_bytes pieces[] = {view(number), {nullptr, 0}, view(text)};
    crypto_quick_init_key(&in_pieces, pieces, 3);
    crypto_quick_init_key(&at_once, view(whole));
    EXPECT_EQ(in_pieces.rk[0], at_once.rk[0]);
    EXPECT_NE(in_pieces.rk[0], key_of("a text key").rk[0]);
}

TEST(CryptoQuick, ChainRunsOnOverCallsOfWholeBlocks) {
    const Bytes in = bytes_of("sixteen bytes and five");
    crypto_quick_key_t key = key_of("key");
    Bytes out(24);
    crypto_quick_enc(&key, {in.data(), 16}, out.data());
    crypto_quick_enc(&key, {in.data() + 16, in.size() - 16}, out.data() + 16);
    EXPECT_EQ(out, scramble(key_of("key"), in));
}

TEST(CryptoQuick, UnscramblingLeavesOutAnIncompleteBlock) {
    Bytes scrambled = scramble(key_of("key"), bytes_of("abcdefgh"));
    scrambled.push_back(3);
    EXPECT_EQ(unscramble(key_of("key"), scrambled), bytes_of("abcdefgh"));
}

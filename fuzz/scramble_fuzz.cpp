// Scrambling and unscrambling of any bytes under any key: unscrambling inverts scrambling up to the zeros that fill the
// last block, takes any bytes as its input, and no direction leaves its room. The first byte is the key's length.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "base/charset/crypto_quick.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

void require(bool condition) {
    if (!condition) std::abort();
}

Bytes scrambled(crypto_quick_key_t key, const Bytes &in) {
    Bytes out((in.size() + 7) / 8 * 8);
    require(crypto_quick_enc(&key, {in.data(), in.size()}, out.data()) == out.size());
    return out;
}

Bytes unscrambled(crypto_quick_key_t key, const Bytes &in) {
    Bytes out(in.size() / 8 * 8);
    require(crypto_quick_dec(&key, {in.data(), in.size()}, out.data()) == out.size());
    return out;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    const std::size_t key_size = std::min<std::size_t>(data[0], size - 1);
    const Bytes key_text(data + 1, data + 1 + key_size), in(data + 1 + key_size, data + size);
    crypto_quick_key_t key;
    crypto_quick_init_key(&key, {key_text.data(), key_text.size()});
    require(std::all_of(key.rk, key.rk + 8, [&](uint8_t byte) { return byte == key.rk[0]; }));

    Bytes filled = in;
    filled.resize((in.size() + 7) / 8 * 8);
    require(unscrambled(key, scrambled(key, in)) == filled);
    const Bytes whole(in.begin(), in.begin() + static_cast<std::ptrdiff_t>(in.size() / 8 * 8));
    require(scrambled(key, unscrambled(key, in)) == whole);
    return 0;
}

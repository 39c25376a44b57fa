// Base64 decoding of any text, and encoding of any bytes, by every kernel against one simple model. Rooms are exact, so
// that the sanitizer sees a write beyond; what lies beyond a decoded text but inside its room is free.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "base/charset/base64_kernels.hpp"

namespace {

using Bytes = std::vector<uint8_t>;

void require(bool condition) {
    if (!condition) std::abort();
}

Bytes model_decode(const Bytes &text) {
    Bytes bytes;
    int group[4], have = 0;
    for (uint8_t character : text) {
        if (character == '\r' || character == '\n') continue;
        const char *place = character ? std::strchr(base64_alphabet, character) : nullptr;
        if (!place && character != '=') break;
        group[have++] = place ? static_cast<int>(place - base64_alphabet) : -1;
        if (have < 4) continue;
        have = 0;
        unsigned bits = 0;
        for (int value : group) bits = bits << 6 | (value < 0 ? 0u : static_cast<unsigned>(value));
        bytes.push_back(static_cast<uint8_t>(bits >> 16));
        if (group[2] >= 0) bytes.push_back(static_cast<uint8_t>(bits >> 8));
        if (group[3] >= 0) bytes.push_back(static_cast<uint8_t>(bits));
    }
    return bytes;
}

Bytes decoded(const Base64_kernel &kernel, const Bytes &text) {
    Bytes room(base64_decoded_max(text.size()));
    room.resize(base64_decode_by(kernel, {text.data(), text.size()}, room.data()));
    return room;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, std::size_t size) {
    const Bytes in(data, data + size);
    const Bytes expected = model_decode(in);
    for (const Base64_kernel *kernel : base64_kernels()) {
        if (!kernel->is_supported()) continue;
        require(decoded(*kernel, in) == expected);
        Bytes text(base64_encoded_size(size));
        require(base64_encode_by(*kernel, {in.data(), size}, text.data()) == text.size());
        require(model_decode(text) == in && decoded(*kernel, text) == in);
        for (std::size_t i = 80; i < text.size(); i += 81) require(text[i] == '\n');
    }
    return 0;
}

// The printf engine under any format, into a buffer that grows and into a small one that cannot; and any conversion of
// the common grammar beside the C library.
//
// A format of any bytes takes any arguments, so every argument is one pointer to a text at a low address: it is a text
// for %s, a moderate number for %d and a moderate width for '*'. Doubles come from their own registers. The input is
// ignored when it takes more arguments than there are, or names a width that only costs time.
#include <fuzzer/FuzzedDataProvider.h>
#include <sys/mman.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "base/print.hpp"

namespace {

constexpr int most_pointers = 16;
constexpr int most_doubles = 8;

void require(bool condition) {
    if (!condition) std::abort();
}

struct Buffer {
    Tq4_wbuf b;
    ~Buffer() { Tq4_wbuf_Release(&b); }

    std::string print(const char *format, ...) {
        uint64_t before = Tq4_wbuf_size(&b);
        va_list args;
        va_start(args, format);
        long written = Tq4_wbuf_print(&b, format, args);
        va_end(args);
        require(written == static_cast<long>(Tq4_wbuf_size(&b) - before));
        require(static_cast<uint64_t>(b.m_ptr - b.m_data) + b.m_cnt == b.m_len);
        return {reinterpret_cast<const char *>(b.m_data), Tq4_wbuf_size(&b)};
    }
};

struct Growing : Buffer {
    Growing() {
        Tq4_wbuf_Init(&b, 8);
        b.fflush = Tq4_wbuf_flush_nothing;
    }
};

struct Small : Buffer {
    std::unique_ptr<uint8_t[]> storage; // exact, so that the sanitizer sees a write beyond
    explicit Small(size_t size) : storage(new uint8_t[size]) {
        Tq4_wbuf_InitFixed(&b, storage.get(), size);
        b.put_ready = b.fflush = [](Tq4_wbuf *) { return 0; };
        Tq4_wbuf_putch(&b, '>'); // an empty buffer would grow without asking
    }
};

// The text that every pointer argument shows; at an address that is a moderate number.
char *low_text() {
    static char *page = [] {
        void *at = mmap(reinterpret_cast<void *>(0x10000), 4096, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
        require(at != MAP_FAILED);
        return static_cast<char *>(at);
    }();
    return page;
}

bool takes_too_much(const std::string &format) {
    size_t pointers = 0, doubles = 0, digits = 0;
    for (char c : format) {
        pointers += c == '%' || c == '*';
        doubles += c == 'e' || c == 'f' || c == 'g';
        digits = c >= '0' && c <= '9' ? digits + 1 : (c == '*' ? digits : 0);
        if (digits > 4) return true;
    }
    return pointers > most_pointers || doubles > most_doubles;
}

std::string print_any(Buffer &buffer, const std::string &format, const double (&d)[most_doubles]) {
    char *p = low_text();
    return buffer.print(format.c_str(), d[0], d[1], d[2], d[3], d[4], d[5], d[6], d[7], p, p, p, p, p, p, p, p, p, p, p,
                        p, p, p, p, p);
}

void any_format(FuzzedDataProvider &in) {
    size_t room = in.ConsumeIntegralInRange<size_t>(1, 300);
    std::string format = in.ConsumeRandomLengthString(200), text = in.ConsumeRandomLengthString(60);
    if (takes_too_much(format)) return;
    memset(low_text(), 0, 64);
    memcpy(low_text(), text.data(), text.size());
    double doubles[most_doubles];
    for (double &value : doubles) value = in.ConsumeFloatingPoint<double>();
    Growing growing;
    Small small(room);
    std::string all = print_any(growing, format, doubles), some = print_any(small, format, doubles);
    require(some.size() <= room && (">" + all).starts_with(some));
}

#pragma GCC diagnostic ignored "-Wformat-nonliteral"
template <class Value> void compare(const std::string &specification, int width, Value value) {
    bool star = specification.find('*') != std::string::npos;
    char expected[2000];
    Growing growing;
    int size = star ? snprintf(expected, sizeof expected, specification.c_str(), width, value)
                    : snprintf(expected, sizeof expected, specification.c_str(), value);
    require(size >= 0 && size < static_cast<int>(sizeof expected));
    std::string actual =
        star ? growing.print(specification.c_str(), width, value) : growing.print(specification.c_str(), value);
    require(actual == std::string(expected, static_cast<size_t>(size)));
}

void common_conversion(FuzzedDataProvider &in) {
    std::string s = "%";
    for (char flag : {'-', '+', '0'})
        if (in.ConsumeBool()) s += flag;
    int width = in.ConsumeIntegralInRange(-400, 400);
    s += in.ConsumeBool() ? "*" : width > 0 ? std::to_string(width) : "";
    if (in.ConsumeBool()) s += "." + std::to_string(in.ConsumeIntegralInRange(0, 600));
    char letter = in.PickValueInArray({'d', 'u', 'o', 'x', 'X', 'e', 'f', 'g', 'p', 'c', 's'});
    bool is_integer = strchr("duoxX", letter);
    if (strchr("efg", letter)) return compare(s + letter, width, in.ConsumeFloatingPoint<double>());
    if (letter == 'p') return compare(s + letter, width, reinterpret_cast<void *>(in.ConsumeIntegral<uintptr_t>()));
    if (letter == 's') return compare(s + letter, width, std::string(in.ConsumeIntegralInRange(0, 90), 'x').c_str());
    if (is_integer && in.ConsumeBool())
        return compare(s + (in.ConsumeBool() ? "l" : "ll") + letter, width, in.ConsumeIntegral<long>());
    compare(s + letter, width, in.ConsumeIntegral<int>());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FuzzedDataProvider in(data, size);
    in.ConsumeBool() ? any_format(in) : common_conversion(in);
    return 0;
}

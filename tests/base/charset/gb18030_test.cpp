// What GB18030 promises: the published mapping of 2022, whole characters only, and the same answer from every kernel.
// The C library's converter is the model, but for a few code points.
#include <iconv.h>

#include "base/charset/gb18030_kernels.hpp"
#include "support/test.hpp"

namespace {

// The code points that editions of the standard moved, where the model may be of an older one: the code in 2022.
// clang-format off
const std::map<std::string, char32_t> moved = {
    {"\xA6\xD9", 0xFE10}, {"\xFE\x59", 0x9FB4}, {"\xA8\xBC", 0x1E3F}, {"\x81\x35\xF4\x37", 0xE7C7},
    // Two-byte codes that keep their private-use code point; the ideographs of some tables have four bytes.
    {"\xFE\x51", 0xE816}, {"\xFE\x52", 0xE817}, {"\xFE\x53", 0xE818}, {"\xFE\x6C", 0xE831}, {"\xFE\x76", 0xE83B},
    {"\xFE\x91", 0xE855}, {"\x95\x32\x90\x31", 0x20087}, {"\x95\x32\x90\x33", 0x20089}, {"\x95\x32\x97\x30", 0x200CC},
    {"\x95\x36\xB9\x37", 0x215D7}, {"\x96\x30\xBA\x35", 0x2298F}, {"\x96\x35\xB6\x30", 0x241FE},
    // Private-use code points that took over the four-byte codes of vertical punctuation and of eight components.
    {"\x84\x31\x82\x36", 0xE78D}, {"\x84\x31\x82\x38", 0xE78E}, {"\x84\x31\x82\x37", 0xE78F},
    {"\x84\x31\x82\x39", 0xE790}, {"\x84\x31\x83\x30", 0xE791}, {"\x84\x31\x83\x31", 0xE792},
    {"\x84\x31\x83\x32", 0xE793}, {"\x84\x31\x83\x33", 0xE794}, {"\x84\x31\x83\x34", 0xE795},
    {"\x84\x31\x83\x35", 0xE796}, {"\x82\x35\x90\x37", 0xE81E}, {"\x82\x35\x90\x38", 0xE826},
    {"\x82\x35\x90\x39", 0xE82B}, {"\x82\x35\x91\x30", 0xE82C}, {"\x82\x35\x91\x31", 0xE832},
    {"\x82\x35\x91\x32", 0xE843}, {"\x82\x35\x91\x33", 0xE854}, {"\x82\x35\x91\x34", 0xE864},
};
// clang-format on

class Model {
public:
    Model(const char *to, const char *from) : converter_(iconv_open(to, from)) {}
    ~Model() { iconv_close(converter_); }
    // Empty where there is no such character.
    std::string operator()(std::string in) {
        char room[16], *from = in.data(), *to = room;
        std::size_t left = in.size(), free = sizeof room;
        iconv(converter_, nullptr, nullptr, nullptr, nullptr);
        const bool all = iconv(converter_, &from, &left, &to, &free) == 0;
        return all ? std::string(room, sizeof room - free) : "";
    }

private:
    iconv_t converter_;
};

std::string utf8_of(char32_t code_point) {
    static Model model("UTF-8", "UTF-32LE");
    return model(std::string(reinterpret_cast<char *>(&code_point), sizeof code_point));
}

std::string units_of(char32_t code_point) {
    const auto unit = static_cast<char16_t>(code_point);
    return code_point > 0xFFFF ? "" : std::string(reinterpret_cast<const char *>(&unit), sizeof unit);
}

// A character in its three forms; the units are empty beyond the 16-bit ones.
struct Character {
    std::string utf8, gb18030, units;
};
using Characters = std::vector<Character>;
using Form = std::string Character::*;

// The characters in four pools: ASCII, two-byte codes, four-byte codes of the Basic Multilingual Plane (each with all
// of them, in the order of code points) and every 97th beyond it.
const std::vector<Characters> &repertoire() {
    static const auto all = [] {
        std::vector<Characters> characters(4);
        Model model("GB18030", "UTF-8");
        std::map<char32_t, std::string> codes;
        for (char32_t point = 0; point <= 0x10FFFF; point += point < 0x10000 ? 1 : 97)
            codes[point] = model(utf8_of(point));
        for (const auto &[code, point] : moved) codes[point] = code;
        for (const auto &[point, code] : codes)
            if (!code.empty())
                characters[point > 0xFFFF ? 3 : code.size() / 2].push_back({utf8_of(point), code, units_of(point)});
        return characters;
    }();
    return all;
}

struct Direction {
    const char *name;
    Form from, to;
    Gb18030_conversion *Gb18030_kernel::*conversion;
};

constexpr Direction directions[] = {
    {"utf8_to_gb18030", &Character::utf8, &Character::gb18030, &Gb18030_kernel::utf8_to_gb18030},
    {"gb18030_to_utf8", &Character::gb18030, &Character::utf8, &Gb18030_kernel::gb18030_to_utf8},
    {"units_to_gb18030", &Character::units, &Character::gb18030, &Gb18030_kernel::units_to_gb18030},
    {"gb18030_to_units", &Character::gb18030, &Character::units, &Gb18030_kernel::gb18030_to_units},
};

struct Result {
    std::size_t consumed;
    std::string produced;
    bool operator==(const Result &) const = default;
};

std::string all_of(const Characters &text, Form form) {
    std::string whole;
    for (const Character &character : text) whole += character.*form;
    return whole;
}

struct Gb18030 : testing::TestWithParam<const Gb18030_kernel *> {
    std::mt19937 random{7};

    void SetUp() override {
        if (!GetParam()->is_supported()) GTEST_SKIP() << "not on this processor";
    }

    // Input and room are blocks of their own, which end where the bytes end; the offset shifts both.
    Result convert(const Direction &direction, std::string_view in, std::size_t room, std::size_t offset = 0) {
        const std::unique_ptr<uint8_t[]> from(new uint8_t[offset + in.size()]), to(new uint8_t[offset + room]);
        std::copy(in.begin(), in.end(), from.get() + offset);
        const Tq4_converted done =
            (GetParam()->*direction.conversion)({from.get() + offset, in.size()}, {to.get() + offset, room});
        EXPECT_LE(done.produced, room);
        return {done.consumed, {reinterpret_cast<char *>(to.get()) + offset, done.produced}};
    }
    Result utf8_to_gb18030(std::string_view in) { return convert(directions[0], in, in.size() * 2); }
    Result gb18030_to_utf8(std::string_view in) { return convert(directions[1], in, in.size() * 2); }
    Result units_to_gb18030(std::u16string_view in) {
        return convert(directions[2], {reinterpret_cast<const char *>(in.data()), in.size() * 2}, in.size() * 4);
    }

    void expect_code(const std::string &code) {
        static Model model("UTF-8", "GB18030");
        const auto known = moved.find(code);
        const std::string text = known == moved.end() ? model(code) : utf8_of(known->second);
        ASSERT_EQ(gb18030_to_utf8(code), (Result{text.empty() ? 0 : code.size(), text})) << text;
    }
};

TEST_P(Gb18030, FollowsTheMappingInAllDirections) {
    ASSERT_EQ(repertoire()[1].size() + repertoire()[2].size(), 0x10000u - 0x800 - 0x80);
    for (const Characters &pool : repertoire())
        for (std::size_t at = 0; at < pool.size(); at += 50)
            for (const Direction &direction : directions) {
                const Characters some(pool.begin() + at, pool.begin() + std::min(at + 50, pool.size()));
                const std::string in = all_of(some, direction.from), out = in.empty() ? "" : all_of(some, direction.to);
                ASSERT_EQ(convert(direction, in, 300), (Result{out.empty() ? 0 : in.size(), out})) << direction.name;
            }
}

TEST_P(Gb18030, AnswersEveryCodeOfTwoBytesAndThroughoutThoseOfFour) {
    for (int code = 0x8000; code <= 0xFFFF; ++code)
        expect_code({static_cast<char>(code >> 8), static_cast<char>(code)});
    for (unsigned number = 0; number < 126 * 1260 * 10; number += 53) {
        const unsigned high = number / 1260, low = number % 1260;
        expect_code({static_cast<char>(high / 10 + 0x81), static_cast<char>(high % 10 + '0'),
                     static_cast<char>(low / 10 + 0x81), static_cast<char>(low % 10 + '0')});
    }
}

std::vector<std::string> words(const std::string &text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

TEST_P(Gb18030, StopsBeforeWhatIsMalformedOrHasNoCounterpart) {
    const auto codes =
        words("\x80 \xFF \x80\x41 \x81\x7F \xB0\xFF \xB0\x3A \x81\x30\x81 \x81\x30\x80\x30 \x81\x30\x81\x3A "
              "\x81\x30\xFF\x30 \x84\x31\xA5\x30 \x8F\x39\xFE\x39 \xE3\x32\x9A\x36 \xFE\x39\xFE\x39");
    const auto forms = words("\x80 \xC0\x80 \xC1\xBF \xE0\x9F\xBF \xE4\xB8 \xE4\xB8\x41 \xED\xA0\x80 \xED\xBF\xBF "
                             "\xF0\x8F\xBF\xBF \xF0\x9F\x98 \xF4\x90\x80\x80 \xF8\x88\x80\x80\x80 \xFE \xFF");
    for (const std::string prefix : {"", "a\n", "abcdefgh"})
        for (const std::string &rest : {std::string(), std::string(200, 'x')}) {
            for (const std::string &bad : codes)
                EXPECT_EQ(gb18030_to_utf8(prefix + "\xD6\xD0" + bad + rest),
                          (Result{prefix.size() + 2, prefix + "中"}));
            for (const std::string &bad : forms)
                EXPECT_EQ(utf8_to_gb18030(prefix + "中" + bad + rest),
                          (Result{prefix.size() + 3, prefix + "\xD6\xD0"}));
        }
    for (const char16_t surrogate : {u'\xD800', u'\xDBFF', u'\xDC00', u'\xDFFF'})
        EXPECT_EQ(units_to_gb18030(u"中" + std::u16string(200, surrogate)), (Result{2, "\xD6\xD0"}));
    EXPECT_EQ(utf8_to_gb18030("\xF8\x80\x84\xB8\x80 \xFC\x80\x80\x84\xB8\x80"), (Result{12, "\xD2\xBB \xD2\xBB"}))
        << "long forms decode by their value";
}

TEST_P(Gb18030, ConvertsWholeCharactersOfInputsAndIntoRoomsOfEverySize) {
    for (const unsigned pools : {1u, 2u, 3u, 4u}) { // how many of the four are mixed
        Characters text;
        while (text.size() < 130)
            for (std::size_t run = random() % 12 + 1, pool = random() % pools; run--;)
                text.push_back(repertoire()[pool][random() % repertoire()[pool].size()]);
        for (const Direction &direction : directions) {
            const std::string in = all_of(text, direction.from);
            const Result whole = convert(direction, in, 600);
            const Direction &back = directions[(&direction - directions) ^ 1];
            for (std::size_t n = 0; n <= std::max(in.size(), std::size_t{300}); ++n) {
                const std::size_t size = std::min(n, in.size());
                const Result cut = convert(direction, {in.data(), size}, 600, n % 64), part = convert(direction, in, n);
                for (const Result &result : {cut, part})
                    ASSERT_EQ(convert(back, result.produced, 600),
                              (Result{result.produced.size(), in.substr(0, result.consumed)}));
                ASSERT_LT(std::min(size, whole.consumed) - cut.consumed, 4u) << direction.name << n;
                ASSERT_LT(std::min(n, whole.produced.size()) - part.produced.size(), 4u) << direction.name << n;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Kernels, Gb18030, testing::ValuesIn(gb18030_kernels().begin(), gb18030_kernels().end()),
                         [](const auto &kernel) { return kernel.param->name; });

} // namespace

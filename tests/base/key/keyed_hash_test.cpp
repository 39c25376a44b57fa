// What the index beside the chains promises: a hash that folds like the comparison of texts, room that follows the
// number of entries, and a cost that no choice of keys changes.
#include "base/key/entry_room.hpp"
#include "base/key/hash_index.hpp"
#include "base/key/keyed_hash.hpp"
#include "sanitizers.hpp"
#include "support/test.hpp"

#include <malloc.h>

namespace {

template <bool folded> uint64_t hash_of(const std::string &text) {
    return Tq4_keyed_text<folded>(1, {reinterpret_cast<const uint8_t *>(text.data()), text.size()});
}

TEST(KeyedHash, EqualsExactlyWhereTextsDoUnderTheCaseFlag) {
    Tq4_draw_hash_key();
    std::mt19937 random(1);
    for (std::size_t size = 0; size < 40; ++size)
        for (int i = 0; i < 50; ++i) {
            std::string text(size, ' '), lower = text;
            for (char &c : text) c = static_cast<char>(random());
            std::transform(text.begin(), text.end(), lower.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
            ASSERT_EQ(hash_of<true>(text), hash_of<false>(lower));
            for (std::size_t at = 0; at < size; ++at) { // each byte counts
                const uint64_t before = hash_of<false>(text);
                text[at] = static_cast<char>(text[at] + 1);
                ASSERT_NE(hash_of<false>(text), before);
            }
        }
}

struct alignas(16) Indexed {
    uint32_t hash;
};

TEST(HashIndex, FindsWhatIsInItAndShrinks) {
    std::mt19937 random(2);
    std::vector<Indexed> entries(5000);
    for (Indexed &entry : entries)
        entry.hash = static_cast<uint32_t>(random() << (random() % 2 ? 0 : 20)); // and crowded
    Tq4_hash_index<Indexed, &Indexed::hash> index;
    std::set<Indexed *> inside;
    for (int step = 0; step < 40000; ++step) {
        Indexed *entry = &entries[random() % entries.size()];
        const bool growing = step / 10000 % 2 == 0;
        if (!inside.contains(entry) && (growing || random() % 8 == 0))
            index.Add(entry), inside.insert(entry);
        else if (inside.contains(entry) && !growing)
            index.Remove(entry), inside.erase(entry);
        entry = &entries[random() % entries.size()];
        if (!index) continue;
        Indexed *found = index.Find(entry->hash, [=](const Indexed &one) { return &one == entry; });
        ASSERT_EQ(found, inside.contains(entry) ? entry : nullptr);
    }
    while (inside.size() > 10) index.Remove(*inside.begin()), inside.erase(inside.begin());
    EXPECT_LE(index.slots(), 128u);
}

// ---- memory

// Each part of each entry is filled with bytes of its own, which others that come and go leave alone.
TEST(EntryRoom, PartsOfEntriesNeverMeet) {
    constexpr std::size_t rest = 32, most = 5000;
    Tq4_entry_room<rest> room;
    struct Part {
        char *at;
        std::size_t size;
    };
    const auto parts = [](Tq4_entry_place place) {
        char *entry = static_cast<char *>(place.entry);
        return std::array{Part{entry, Tq4_entry_place::line}, Part{entry + place.rest, rest}};
    };
    std::map<int, Tq4_entry_place> taken; // by what is written in them
    std::mt19937 random(3);
    for (int step = 0; step < 6 * static_cast<int>(most); ++step) {
        if (taken.size() < most && random() % 3) {
            const Tq4_entry_place place = taken[step] = room.Take();
            for (const Part part : parts(place))
                for (std::size_t at = 0; at < part.size; at += sizeof step)
                    std::memcpy(part.at + at, &step, sizeof step);
        } else if (!taken.empty()) {
            const auto given =
                std::next(taken.begin(), static_cast<long>(random() % std::min<std::size_t>(taken.size(), 50)));
            for (const Part part : parts(given->second))
                for (std::size_t at = 0; at < part.size; at += sizeof step)
                    ASSERT_EQ(std::memcmp(part.at + at, &given->first, sizeof step), 0) << given->first;
            room.Give(given->second);
            taken.erase(given);
        }
    }
    // In a large table the lines lie side by side.
    std::set<char *> lines;
    for (const auto &[step, place] : taken) lines.insert(static_cast<char *>(place.entry));
    std::size_t beside = 0;
    for (char *line : lines) beside += lines.contains(line + Tq4_entry_place::line);
    EXPECT_GT(2 * beside, lines.size());
    for (const auto &[step, place] : taken) room.Give(place);
}

TEST(Memory, ComesBackWithTheLastEntry) {
#if defined(TQ4_ADDRESS_SANITIZER) || defined(TQ4_THREAD_SANITIZER)
    GTEST_SKIP() << "the sanitizers count memory by themselves";
#endif
    const auto table = Tq4_make<Tq4_value_table>(Tq4_value_table_oitf);
    const auto map = Tq4_make<Tq4_strmap>(Tq4_strmap_oitf);
    const auto in_use = [] {
        const struct mallinfo2 info = mallinfo2();
        return info.uordblks + info.hblkhd;
    };
    const std::size_t before = in_use();
    constexpr unsigned long count = 100000;
    for (unsigned long n = 0; n < count; ++n) (*table)->SetII(table.get(), n, 1), (*map)->SetAtI(map.get(), nullptr, n);
    EXPECT_GT(in_use(), before + 128 * count);
    for (unsigned long n = 0; n < count; ++n) (*table)->RemoveI(table.get(), n), (*map)->RemoveI(map.get(), n);
    EXPECT_LT(in_use(), before + 4 * count) << "but what a thread keeps of freed objects";
}

// ---- keys that a stranger chose

double cpu_seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

std::string big_endian(unsigned long n, int width) {
    std::string bytes;
    while (width--) bytes += static_cast<char>(n >> 8 * width);
    return bytes;
}
std::string text_key(int flags, const std::string &text) {
    return static_cast<char>(flags) + big_endian(text.size(), 2) + text;
}
// Bit by bit, one of two letters.
std::string letters_of(unsigned long n, const char *zero, const char *one) {
    std::string text;
    for (int bit = 0; bit < 16; ++bit) text += n >> bit & 1 ? one : zero;
    return text;
}

// The encoded key of the n-th entry of a family, whose visible hashes are alike or whose case flags are mixed.
using Family = std::string (*)(unsigned long n);
const Family families[] = {
    [](unsigned long n) { return text_key(n == 500 ? 0xE4 : 0x64, "Key" + std::to_string(n)); },
    [](unsigned long n) { return static_cast<char>(0x18 + n % 8) + big_endian(8, 1) + big_endian(n + 1, 8); },
    [](unsigned long n) { return "\x91" + big_endian(n + 1, 4); },
    [](unsigned long n) { return "\x13" + big_endian(0 - 16 * n, 4) + big_endian(n, 4); },
    [](unsigned long n) { return text_key(0x64, letters_of(n, "ab", "bA")); },
    [](unsigned long n) { return text_key(0x64, letters_of(n, "a", "A")); },
    [](unsigned long n) { return text_key(n % 2 ? 0xE4 : 0x64, letters_of(n, "a", "A")); },
};

double seconds_for(Family family, unsigned long count) {
    std::string bytes = '\0' + big_endian(count, 4);
    for (unsigned long n = 0; n < count; ++n) bytes += family(n) + std::string("\x01x");
    const auto table = Tq4_make<Tq4_value_table>(Tq4_value_table_oitf);
    const auto key = Tq4_make<Tq4_key>(Tq4_key_oitf);
    const double begin = cpu_seconds();
    EXPECT_EQ((*table)->Import(table.get(), bytes.data(), static_cast<int>(bytes.size())),
              static_cast<int>(bytes.size()));
    for (unsigned long n = 0; n < count; ++n) {
        const std::string code = family(n);
        (*key)->Import(key.get(), code.data(), static_cast<int>(code.size()));
        (*table)->ValueK(table.get(), key.get());
        (*table)->ValueS(table.get(), "absent");
        (*table)->RemoveK(table.get(), key.get());
    }
    return cpu_seconds() - begin;
}

// Sixteen times as many entries: about sixteen times the time, were it quadratic, 256 times.
TEST(HostileKeys, CostWhatHonestOnesCost) {
    for (std::size_t i = 0; i < std::size(families); ++i) {
        const double few = seconds_for(families[i], 2000), many = seconds_for(families[i], 32000);
        EXPECT_LT(many, 100 * few) << "family " << i;
    }
}

TEST(HostileKeys, CostNothingInMapsEither) {
    const auto strmap2 = [](unsigned long count) {
        const auto m = Tq4_make<Tq4_strmap2>(Tq4_strmap2_oitf);
        const double begin = cpu_seconds();
        for (unsigned long n = 0; n < count; ++n) {
            (*m)->SetAtS(m.get(), m.get(), letters_of(n, "a", "A").c_str());
            (*m)->SetAtS(m.get(), m.get(), letters_of(0, "abc", "").c_str()); // too long to be found
        }
        for (int flag : {1, 0}) {
            (*m)->CaseFlag(m.get(), flag);
            for (unsigned long n = 0; n < count; ++n) (*m)->LookupS(m.get(), letters_of(n, "a", "A").c_str());
        }
        return cpu_seconds() - begin;
    };
    const auto intmap = [](unsigned long count) {
        const auto m = Tq4_make<Tq4_intmap>(Tq4_intmap_oitf);
        const double begin = cpu_seconds();
        for (unsigned long n = 0; n < count; ++n) {
            (*m)->SetAt1(m.get(), m.get(), n);
            (*m)->SetAt3(m.get(), m.get(), 7, 0, n);
        }
        for (unsigned long n = 0; n < count; ++n)
            (*m)->Lookup1(m.get(), n), (*m)->Lookup2(m.get(), 7, n), (*m)->Remove1(m.get(), 7);
        return cpu_seconds() - begin;
    };
    EXPECT_LT(strmap2(32000), 100 * strmap2(2000));
    EXPECT_LT(intmap(32000), 100 * intmap(2000));
}

} // namespace

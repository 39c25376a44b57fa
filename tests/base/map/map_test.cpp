// What the maps promise: chains by hash modulo the bucket count with the newest first, and look-ups that meet exactly
// what a walk along the chain would meet, whatever the size. The model is that walk.
#include "support/test.hpp"

#include <sys/resource.h>

#include "sanitizers.hpp"

namespace {

void *pointer(long n) { return reinterpret_cast<void *>(n); }

// Chains of entries; what an entry is and how it matches is the map's.
template <class Entry> struct Model {
    using Chain = std::deque<std::pair<Entry, void *>>; // no value is null
    std::vector<Chain> chains{17};

    Chain &chain(unsigned long hash) { return chains[hash % chains.size()]; }
    template <class Match> auto at(unsigned long hash, Match match) {
        return std::find_if(chain(hash).begin(), chain(hash).end(), [&](auto &e) { return match(e.first); });
    }
    template <class Match> void *find(unsigned long hash, Match match) {
        const auto found = at(hash, match);
        return found == chain(hash).end() ? nullptr : found->second;
    }
    template <class Match> void set(unsigned long hash, Match match, const Entry &fresh, void *value) {
        if (find(hash, match))
            at(hash, match)->second = value;
        else
            chain(hash).emplace_front(fresh, value);
    }
    template <class Match> void *remove(unsigned long hash, Match match) {
        void *const value = find(hash, match);
        if (value) chain(hash).erase(at(hash, match));
        return value;
    }
    std::vector<void *> values() const {
        std::vector<void *> all;
        for (const Chain &one : chains)
            for (const auto &[entry, value] : one) all.push_back(value);
        return all;
    }
    int size() const { return static_cast<int>(values().size()); }
};

template <class Own> std::vector<void *> values_of(const Own &m) {
    std::vector<void *> all;
    void *position = nullptr;
    const char *text;
    unsigned long number;
    if ((*m)->Count(m.get()) == 0) return all;
    do all.push_back((*m)->NextSI(m.get(), &text, &number, &position));
    while (position);
    return all;
}

// A text key or a text with a number, as both string maps know it.
struct TextKey {
    std::string text;
    bool has_number;
    unsigned long number;
    bool nocase; // of the entry's own key, in Tq4_strmap
};

// Random operations on texts that differ in case, with the case flag changed in between while the map is full.
// Tq4_strmap is also asked by key objects, with flags of their own.
template <class Own> void walk_like_the_model(const Own &m, unsigned seed) {
    constexpr bool has_keys = std::is_same_v<Own, Tq4_own<Tq4_strmap>>;
    const auto key = Tq4_make<Tq4_key>(Tq4_key_oitf);
    std::mt19937 random(seed);
    Model<TextKey> model;
    int nocase = 0;
    for (long step = 1; step < 15000; ++step) {
        if (random() % 2000 == 0) (*m)->CaseFlag(m.get(), nocase = random() % 2);
        if (random() % 9000 == 0) (*m)->RemoveAll(m.get()), model = {};
        std::string text = "key" + std::to_string(random() % 400);
        if (random() % 2) text[random() % 3] ^= 0x20;
        const bool with_number = random() % 2;
        const unsigned long number = with_number ? random() % 3 : 0;
        const char *t = text.c_str();
        const bool by_key = has_keys && random() % 3 == 0, key_folds = by_key && random() % 2;
        with_number ? (*key)->SetLS(key.get(), number, t, key_folds) : (*key)->SetS(key.get(), t, -1, key_folds);
        const unsigned long hash = (*key)->Hash(key.get(), nocase);
        const auto match = [&](const TextKey &e) {
            const bool folded = (by_key ? key_folds : nocase != 0) || (has_keys && e.nocase);
            return e.has_number == with_number && e.number == number && e.text.size() == text.size() &&
                   (folded ? strcasecmp(e.text.c_str(), text.c_str()) : e.text.compare(text)) == 0;
        };
        // By one of the forms; the one of key objects is made only for the map that has it.
        const auto ask = [&](auto by_k, auto by_si, auto by_s) {
            if constexpr (has_keys)
                if (by_key) return by_k(m);
            return with_number ? by_si() : by_s();
        };
        void *found = nullptr, *expected = nullptr, *const value = pointer(step);
        switch (random() % 6) {
        case 0:
        case 1:
            ask([&](auto &map) { (*map)->SetAtK(map.get(), value, key.get()); },
                [&] { (*m)->SetAtSI(m.get(), value, t, number); }, [&] { (*m)->SetAtS(m.get(), value, t); });
            model.set(hash, match, {text, with_number, number, nocase != 0}, value);
            break;
        case 2:
            found = ask([&](auto &map) { return (*map)->RemoveK(map.get(), key.get()); },
                        [&] { return (*m)->RemoveSI(m.get(), t, number); }, [&] { return (*m)->RemoveS(m.get(), t); });
            expected = model.remove(hash, match);
            break;
        default:
            found = ask([&](auto &map) { return (*map)->LookupK(map.get(), key.get()); },
                        [&] { return (*m)->LookupSI(m.get(), t, number); }, [&] { return (*m)->LookupS(m.get(), t); });
            expected = model.find(hash, match);
        }
        ASSERT_EQ(found, expected) << step;
        ASSERT_EQ((*m)->Count(m.get()), model.size());
    }
    EXPECT_EQ(values_of(m), model.values());
}

TEST(Strmap, MeetsWhatAWalkAlongTheChainMeets) {
    for (unsigned seed : {1u, 2u, 3u}) walk_like_the_model(Tq4_make<Tq4_strmap>(Tq4_strmap_oitf), seed);
}

TEST(Strmap2, MeetsWhatAWalkAlongTheChainMeets) {
    for (unsigned seed : {1u, 2u, 3u}) walk_like_the_model(Tq4_make<Tq4_strmap2>(Tq4_strmap2_oitf), seed);
}

TEST(Strmap, FormsOfKeyAreDistinctAndIterateByBucketNewestFirst) {
    auto m = Tq4_make<Tq4_strmap>(Tq4_strmap_oitf);
    auto key = Tq4_make<Tq4_key>(Tq4_key_oitf);
    (*m)->SetAtI(m.get(), pointer(1), 1);
    (*m)->SetAtI(m.get(), pointer(18), 18);
    (*key)->SetI(key.get(), 1, nullptr);
    EXPECT_EQ((*m)->LookupK(m.get(), key.get()), nullptr) << "kind 1 is not kind 2";
    EXPECT_EQ(values_of(m), (std::vector<void *>{pointer(18), pointer(1)}));
    Tq4_key seen = nullptr;
    void *position = nullptr;
    (*m)->NextK(m.get(), &seen, &position);
    EXPECT_EQ((*seen)->GetL(seen), 18u);
    (*m)->Init(m.get(), 5);
    EXPECT_EQ((*m)->HashTableSize(m.get()), 17u) << "not while there are entries";
    EXPECT_TRUE((*m)->LookupI(m.get(), 18) == pointer(18) && (*m)->RemoveI(m.get(), 1) == pointer(1));
    (*m)->RemoveAll(m.get());
    (*m)->Init(m.get(), 0);
    EXPECT_EQ((*m)->HashTableSize(m.get()), 17u);
}

TEST(Strmap2, TextsThatFillTheFieldAreCountedAndNeverFound) {
    auto m = Tq4_make<Tq4_strmap2>(Tq4_strmap2_oitf);
    const std::string fits(31, 'x'), fills(32, 'x'), longer(40, 'x');
    for (const std::string &text : {fits, fills, longer, longer}) (*m)->SetAtS(m.get(), pointer(1), text.c_str());
    EXPECT_EQ((*m)->Count(m.get()), 4);
    EXPECT_EQ((*m)->LookupS(m.get(), fits.c_str()), pointer(1));
    EXPECT_TRUE(!(*m)->LookupS(m.get(), fills.c_str()) && !(*m)->RemoveS(m.get(), longer.c_str()));
    const char *text = nullptr;
    unsigned long number = 0;
    void *position = nullptr;
    do {
        (*m)->NextSI(m.get(), &text, &number, &position);
        EXPECT_LE(std::strlen(text), 32u);
    } while (position);
}

TEST(Intmap, MeetsWhatAWalkAlongTheChainMeets) {
    using Keys = std::vector<unsigned long>;
    for (unsigned arities : {1u, 2u, 3u}) { // with up to so many keys
        auto m = Tq4_make<Tq4_intmap>(Tq4_intmap_oitf);
        Model<Keys> model;
        std::mt19937 random(arities);
        for (long step = 1; step < 20000; ++step) {
            const std::size_t given = 1 + random() % arities;
            Keys k(3, 0);
            for (std::size_t i = 0; i < given; ++i) k[i] = random() % (i ? 20 : 60) + (random() % 50 ? 0 : ~0ul - 80);
            const auto match = [&](const Keys &e) {
                return std::equal(k.begin(), k.begin() + static_cast<long>(given), e.begin());
            };
            const unsigned long hash = k[0] + k[1] + k[2];
            void *found = nullptr, *expected = nullptr;
            switch (random() % 3) {
            case 0:
                given == 1   ? (*m)->SetAt1(m.get(), pointer(step), k[0])
                : given == 2 ? (*m)->SetAt2(m.get(), pointer(step), k[0], k[1])
                             : (*m)->SetAt3(m.get(), pointer(step), k[0], k[1], k[2]);
                model.set(hash, match, k, pointer(step));
                break;
            case 1:
                found = given == 1   ? (*m)->Lookup1(m.get(), k[0])
                        : given == 2 ? (*m)->Lookup2(m.get(), k[0], k[1])
                                     : (*m)->Lookup3(m.get(), k[0], k[1], k[2]);
                expected = model.find(hash, match);
                break;
            default:
                if (random() % 2) break;
                found = given == 1   ? (*m)->Remove1(m.get(), k[0])
                        : given == 2 ? (*m)->Remove2(m.get(), k[0], k[1])
                                     : (*m)->Remove3(m.get(), k[0], k[1], k[2]);
                expected = model.remove(hash, match);
            }
            ASSERT_EQ(found, expected) << step;
            ASSERT_EQ((*m)->Count(m.get()), model.size());
        }
        std::vector<void *> all;
        (*m)->each(
            m.get(),
            [](unsigned long, unsigned long, unsigned long, void *value, void *out) {
                static_cast<std::vector<void *> *>(out)->push_back(value);
                return 0;
            },
            &all);
        EXPECT_EQ(all, model.values());
    }
}

// Fills a map of five buckets, beyond where the index begins, and copies it.
template <class Own, class Set> void copies_are_equal_and_in_order(const Tq4_object_itf *module, Set set) {
    const auto handle = [&](void *object) { return Own(static_cast<typename Own::pointer>(object)); };
    const Own m = handle(module->Create(nullptr));
    (*m)->Init(m.get(), 5);
    for (unsigned long i = 1; i <= 150; ++i) set(m.get(), pointer(static_cast<long>(i)), i);
    const Own copy = handle(module->Dup(m.get()));
    EXPECT_EQ((*copy)->HashTableSize(copy.get()), 5u);
    EXPECT_EQ((*copy)->Count(copy.get()), 150);
    EXPECT_TRUE(module->Equal(copy.get(), m.get()));
    set(copy.get(), pointer(-1), 75);
    EXPECT_FALSE(module->Equal(copy.get(), m.get())) << "another value";
    module->Copy(copy.get(), m.get());
    EXPECT_TRUE(module->Equal(copy.get(), m.get()));
    module->Reset(copy.get());
    EXPECT_TRUE((*copy)->IsEmpty(copy.get()));
    EXPECT_EQ((*copy)->HashTableSize(copy.get()), 17u) << "as it was created";
    module->Copy(m.get(), nullptr);
    EXPECT_TRUE(module->Equal(copy.get(), m.get())) << "copying null empties";
}

TEST(Maps, CopiesAreEqualAndInOrder) {
    copies_are_equal_and_in_order<Tq4_own<Tq4_strmap>>(
        Tq4_strmap_oitf, [](Tq4_strmap m, void *value, unsigned long n) { (*m)->SetAtSI(m, value, "t", n); });
    copies_are_equal_and_in_order<Tq4_own<Tq4_strmap2>>(
        Tq4_strmap2_oitf, [](Tq4_strmap2 m, void *value, unsigned long n) { (*m)->SetAtI(m, value, n); });
    copies_are_equal_and_in_order<Tq4_own<Tq4_intmap>>(
        Tq4_intmap_oitf, [](Tq4_intmap m, void *value, unsigned long n) { (*m)->SetAt2(m, value, n, n * n); });
}

TEST(Intmap, PositionsShowEveryEntryWithItsKeys) {
    auto m = Tq4_make<Tq4_intmap>(Tq4_intmap_oitf);
    unsigned long k1 = 9, k2 = 9, k3 = 9;
    void *position = nullptr;
    EXPECT_TRUE(!(*m)->Next(m.get(), &k1, &k2, &k3, &position) && k1 + k2 + k3 == 0);
    (*m)->SetAt2(m.get(), pointer(1), 5, 12);
    (*m)->SetAt3(m.get(), pointer(2), 1, 1, 15);
    EXPECT_EQ((*m)->Next(m.get(), &k1, &k2, &k3, &position), pointer(2)) << "in bucket 0, too, and newer";
    EXPECT_EQ((*m)->Next(m.get(), &k1, nullptr, nullptr, &position), pointer(1));
    EXPECT_TRUE(k3 == 15 && k1 == 5 && !position);
}

#if !defined(TQ4_ADDRESS_SANITIZER) && !defined(TQ4_THREAD_SANITIZER) // which need more memory than the limit allows
TEST(MapDeathTest, MoreBucketsThanMemoryHoldsChangeNothing) {
    const auto ask_for_too_many = [] {
        const rlimit gigabyte{1 << 30, 1 << 30};
        setrlimit(RLIMIT_AS, &gigabyte);
        auto m = Tq4_make<Tq4_strmap>(Tq4_strmap_oitf);
        (*m)->Init(m.get(), 4000000000);
        (*m)->SetAtI(m.get(), pointer(1), 1);
        const bool as_before = (*m)->HashTableSize(m.get()) == 17 && (*m)->LookupI(m.get(), 1) == pointer(1);
        std::_Exit(as_before ? 0 : 1);
    };
    EXPECT_EXIT(ask_for_too_many(), testing::ExitedWithCode(0), "");
}
#endif

} // namespace

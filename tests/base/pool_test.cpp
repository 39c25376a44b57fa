// What a pool promises: ids find what is lent under them and nothing else, payloads are used again in turn, and
// whatever the caller's functions do with the pool meanwhile, no payload is lent twice, lost or destroyed twice.
#include "support/test.hpp"

#include "base/pool.hpp"

namespace {

struct Payload {
    long number;
    int resets = 0;
};

// A pool of payloads that are numbered as they are made, and what happened to them.
struct Pool : testing::Test {
    static inline long made, deleted;
    static inline bool refuses;                                                  // to make another
    static inline std::function<void(Payload *)> on_create, on_reset, on_delete; // null for nothing
    static inline std::vector<unsigned long> reset_slots;
    Tq4_own<Tq4_pool> owner;
    Tq4_pool p = nullptr;

    Pool() {
        made = deleted = 0;
        refuses = false;
        on_create = on_reset = on_delete = nullptr;
        reset_slots.clear();
    }
    ~Pool() override {
        owner.reset();
        EXPECT_EQ(made, deleted);
    }
    static Tq4_pool_CreateParams params(uint32_t max_res, uint64_t mask) {
        return {.max_res = max_res,
                .Create = [](void *) -> void * {
                    if (refuses) return nullptr;
                    auto *payload = new Payload{made++};
                    if (on_create) on_create(payload);
                    return payload;
                },
                .Delete =
                    [](void *payload) {
                        ++deleted;
                        if (on_delete) on_delete(static_cast<Payload *>(payload));
                        delete static_cast<Payload *>(payload);
                    },
                .Reset =
                    [](void *payload, unsigned long slot) {
                        ++static_cast<Payload *>(payload)->resets;
                        reset_slots.push_back(slot);
                        if (on_reset) on_reset(static_cast<Payload *>(payload));
                    },
                .mask = mask};
    }
    void open(uint32_t max_res, uint64_t mask = 0) {
        const Tq4_pool_CreateParams given = params(max_res, mask);
        owner = Tq4_make<Tq4_pool>(Tq4_pool_oitf, &given);
        p = owner.get();
    }
    void next_serial(uint32_t serial) { Tq4_record<Tq4_pool_obj>(p)->m_serial = serial; }

    static long number(void *payload) { return payload ? static_cast<Payload *>(payload)->number : -1; }
    long lend(Tq4_id *id) { return number((*p)->Alloc(p, nullptr, id)); }
    long lend_at(unsigned slot, Tq4_id *id) { return number((*p)->AllocAt(p, slot, nullptr, id)); }
    long lend_by(Tq4_id id) { return number((*p)->AllocBy(p, nullptr, &id)); }
    long look(Tq4_id id) { return number((*p)->Peek(p, &id)); }
    int give_back(Tq4_id id) { return (*p)->Recycle(p, &id); }
    std::vector<long> lent() {
        std::vector<long> seen;
        (*p)->each(
            p,
            [](void *payload, void *out) {
                static_cast<std::vector<long> *>(out)->push_back(number(payload));
                return 0;
            },
            &seen);
        return seen;
    }
};

// The rules of a pool told plainly, over the slots themselves.
struct Model {
    struct Slot {
        long number = -1; // payload; -1 before there is one
        uint32_t l = 0;   // 0 while nothing is lent
    };
    std::vector<Slot> slots;
    std::deque<unsigned> waiting, lent; // slots
    uint32_t serial, mask = 1, random;
    long made = 0;

    Model(unsigned count, uint32_t first_serial, uint64_t scrambler) : slots(count), serial(first_serial) {
        while (mask < count - 1) mask = 2 * mask + 1;
        random = static_cast<uint32_t>(scrambler) & mask;
    }
    unsigned slot_of(Tq4_id id) const { return (id.h ^ random) & mask; }
    long lend(unsigned slot, uint32_t l, bool refuses) {
        if (slots[slot].number < 0 && refuses) return -1;
        if (slots[slot].number < 0) slots[slot].number = made++;
        std::erase(waiting, slot);
        slots[slot].l = l;
        lent.push_back(slot);
        serial += serial == UINT32_MAX ? 2 : 1;
        return slots[slot].number;
    }
    long alloc(bool refuses) {
        if (!waiting.empty()) return lend(waiting.front(), serial, refuses);
        for (unsigned slot = 0; slot < slots.size(); ++slot)
            if (slots[slot].number < 0) return lend(slot, serial, refuses);
        return -1;
    }
    long alloc_at(unsigned slot, uint32_t l, bool refuses) {
        return slot < slots.size() && !slots[slot].l && l ? lend(slot, l, refuses) : -1;
    }
    long look(Tq4_id id) const {
        const unsigned slot = slot_of(id);
        return slot < slots.size() && id.l && slots[slot].l == id.l ? slots[slot].number : -1;
    }
    int give_back(Tq4_id id) {
        if (look(id) < 0) return 0;
        const unsigned slot = slot_of(id);
        slots[slot].l = 0;
        std::erase(lent, slot);
        waiting.push_back(slot);
        return 1;
    }
};

TEST_F(Pool, BehavesAsTheModelUnderRandomOperationsAcrossTheWrapOfTheSerial) {
    for (unsigned count : {1u, 2u, 5u, 300u, 1000u}) {
        made = deleted = 0;
        const uint64_t scrambler = 0xFEDCBA9876543210u + count;
        open(count, scrambler);
        const uint32_t first = UINT32_MAX - 20;
        next_serial(first);
        Model model(count, first, scrambler);
        std::mt19937 random(count);
        std::vector<Tq4_id> known{{0, 0}, {~0u, ~0u}};
        for (int step = 0; step < 6000; ++step) {
            Tq4_id id = known[random() % known.size()];
            if (random() % 8 == 0) id.h ^= static_cast<uint32_t>(random()); // any bits may be set
            refuses = random() % 16 == 0;
            const unsigned slot = static_cast<unsigned>(random() % (count + 3));
            Tq4_id given{};
            switch (random() % 6) {
            case 0:
            case 1: {
                const uint32_t serial = model.serial;
                const long expected = model.alloc(refuses);
                ASSERT_EQ(lend(&given), expected) << step;
                if (expected < 0) break;
                ASSERT_TRUE(given.l == serial && model.look(given) == expected) << step;
                known.push_back(given);
                break;
            }
            case 2: {
                const long expected = model.alloc_at(slot, model.serial, refuses);
                ASSERT_EQ(lend_at(slot, &given), expected) << step;
                ASSERT_TRUE(expected < 0 || ((*p)->ToIndex(p, &given) == slot && model.look(given) == expected));
                if (expected >= 0) known.push_back(given);
                break;
            }
            case 3:
                ASSERT_EQ(lend_by(id), model.alloc_at(model.slot_of(id), id.l, refuses)) << step;
                break;
            default:
                ASSERT_EQ(give_back(id), model.give_back(id)) << step;
                if (random() % 500 == 0) {
                    (*p)->RecycleAll(p);
                    while (!model.lent.empty())
                        model.give_back({model.lent.front() ^ model.random, model.slots[model.lent.front()].l});
                }
            }
            ASSERT_EQ(look(id), model.look(id)) << step;
            ASSERT_EQ((*p)->ToIndex(p, &id), model.slot_of(id));
            ASSERT_EQ(number((*p)->PeekAt(p, slot)),
                      slot < count && model.slots[slot].l ? model.slots[slot].number : -1);
            ASSERT_EQ((*p)->Counts(p), model.lent.size());
        }
        std::vector<long> numbers;
        for (unsigned slot : model.lent) numbers.push_back(model.slots[slot].number);
        EXPECT_EQ(lent(), numbers);
        EXPECT_LT(model.serial, 1u << 16) << "the wrap was met";
        owner.reset();
    }
}

TEST_F(Pool, UsesSlotsFromTheFirstOnAndRefusesStaleIds) {
    open(4);
    Tq4_id ids[5];
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(lend(&ids[i]), i);
        EXPECT_TRUE(ids[i].h == i && ids[i].l != 0);
    }
    EXPECT_EQ(lend(&ids[4]), -1);
    EXPECT_TRUE(give_back(ids[2]) && !give_back(ids[2]));
    EXPECT_EQ(lend(&ids[4]), 2) << "the payload as it is";
    EXPECT_TRUE(ids[4].h == 2 && ids[4].l != ids[2].l && look(ids[2]) == -1 && look(ids[4]) == 2);
    EXPECT_TRUE(lend_at(2, nullptr) == -1 && lend_at(4, nullptr) == -1 && look({2, 0}) == -1);
    EXPECT_EQ(reset_slots, std::vector<unsigned long>{2});
}

TEST_F(Pool, TakesAnyNumberOfSlotsUpToItsMost) {
    const std::tuple<uint32_t, unsigned, uint32_t> cases[] = {// max_res, the last slot, the bits of slot numbers
                                                              {1, 0, 1},
                                                              {2, 1, 1},
                                                              {3, 2, 3},
                                                              {1000, 999, 1023},
                                                              {65537, 65536, 0x1FFFF},
                                                              {16777216, 16777215, 0xFFFFFF},
                                                              {~0u, 16777215, 0xFFFFFF}};
    for (auto [max_res, last, mask] : cases) {
        open(max_res, ~0ull);
        Tq4_id id, past{(last + 1) ^ mask, 1};
        EXPECT_EQ(lend_at(last + 1, &id), -1) << max_res;
        EXPECT_GE(lend_at(last, &id), 0);
        EXPECT_TRUE(id.h == (last ^ mask) && look(id) >= 0 && (*p)->ToIndex(p, &id) == last);
        EXPECT_TRUE((last == mask || look(past) == -1) && look({id.h | ~mask, id.l}) >= 0);
        owner.reset();
    }
    open(0, ~0ull);
    Tq4_id id{1, 1};
    EXPECT_TRUE(lend(&id) == -1 && lend_at(0, &id) == -1 && lend_by(id) == -1 && look(id) == -1 && give_back(id) == 0);
}

TEST_F(Pool, IsNotMadeWithoutAWayToMakePayloads) {
    EXPECT_EQ(Tq4_pool_oitf->Create(nullptr), nullptr);
    Tq4_pool_CreateParams given = params(1, 0);
    given.Create = nullptr;
    EXPECT_EQ(Tq4_pool_oitf->Create(&given), nullptr);
    EXPECT_TRUE(!Tq4_pool_oitf->Dup(nullptr));
}

TEST_F(Pool, DuplicatesAsAFreshPoolWithTheSameParameters) {
    open(2, 3);
    Tq4_id id;
    lend(&id);
    Tq4_own<Tq4_pool> other(static_cast<Tq4_pool>(Tq4_pool_oitf->Dup(p)));
    EXPECT_TRUE((*other)->Counts(other.get()) == 0 && !Tq4_object_Equal(p, other.get()));
    (*other)->Alloc(other.get(), nullptr, &id);
    EXPECT_TRUE(id.h == 1 && made == 2);
    Tq4_pool_oitf->Copy(other.get(), p);
    Tq4_pool_oitf->Reset(p);
    EXPECT_TRUE((*p)->Counts(p) == 0 && (*other)->Counts(other.get()) == 1);
}

TEST_F(Pool, WithoutFunctionsOfItsOwnResetsThroughThePayloadsModule) {
    static std::vector<Tq4_string> strings;
    strings.clear();
    const Tq4_pool_CreateParams given{.max_res = 2, .Create = [](void *text) -> void * {
                                          strings.push_back(static_cast<Tq4_string>(Tq4_string_oitf->Create(text)));
                                          return strings.back();
                                      }};
    auto pool = Tq4_make<Tq4_pool>(Tq4_pool_oitf, &given);
    Tq4_id id;
    char hello[] = "hello";
    for (int i = 0; i < 2; ++i) (*pool)->Alloc(pool.get(), hello, i ? nullptr : &id);
    (*pool)->Recycle(pool.get(), &id);
    EXPECT_EQ(text_of(strings[0]) + text_of(strings[1]), "hello");
    pool.reset();
    EXPECT_EQ(text_of(strings[1]), "") << "reset, and the caller's to delete";
    for (Tq4_string s : strings) Tq4_string_oitf->Delete(s);
}

TEST_F(Pool, KeepsWhatItsFunctionsAreAboutFromBeingLentOrGivenBack) {
    open(3);
    Tq4_id ids[3], inner{};
    on_create = [&](Payload *payload) {
        if (payload->number > 0) return;
        EXPECT_EQ(lend_at(0, nullptr), -1) << "its slot is taken";
        EXPECT_EQ(lend(&inner), 1);
    };
    EXPECT_EQ(lend(&ids[0]), 0);
    EXPECT_TRUE(inner.h == 1 && ids[0].h == 0 && ids[0].l != inner.l && (*p)->Counts(p) == 2);
    on_reset = [&](Payload *payload) {
        if (payload->number > 0) return;
        EXPECT_TRUE(give_back(ids[0]) == 0 && look(ids[0]) == -1 && lend_at(0, nullptr) == -1 && lend_by(ids[0]) == -1);
        EXPECT_EQ(lend(&ids[2]), 2) << "another one";
    };
    EXPECT_EQ(give_back(ids[0]), 1);
    EXPECT_EQ(lend(&ids[1]), 0);
    on_delete = [&](Payload *payload) {
        EXPECT_TRUE(payload->number != 0 || (look(ids[1]) == -1 && !give_back(ids[1])));
    };
}

TEST_F(Pool, ASlotWhosePayloadCannotBeMadeIsUsedLater) {
    open(3);
    Tq4_id id;
    refuses = true;
    EXPECT_TRUE(lend(&id) == -1 && lend_at(2, &id) == -1 && lend_by({1, 7}) == -1 && (*p)->Counts(p) == 0);
    refuses = false;
    for (unsigned slot = 0; slot < 3; ++slot) EXPECT_TRUE(lend(&id) == slot && id.h == slot);
}

TEST_F(Pool, AVisitorMayGiveBackWhatItIsShownAndStop) {
    open(5);
    std::vector<Tq4_id> ids(5);
    for (Tq4_id &id : ids) lend(&id);
    struct Visit {
        Pool &pool;
        std::vector<Tq4_id> &ids;
        std::vector<long> seen;
    } visit{*this, ids, {}};
    const auto visitor = [](void *payload, void *param) {
        auto &v = *static_cast<Visit *>(param);
        const long n = number(payload);
        v.seen.push_back(n);
        if (n != 1) v.pool.give_back(v.ids[static_cast<std::size_t>(n)]);
        if (n == 2) (*v.pool.p)->Alloc(v.pool.p, nullptr, nullptr); // comes at the end
        return n == 4 ? 1 : 0;
    };
    (*p)->each(p, visitor, &visit);
    EXPECT_EQ(visit.seen, (std::vector<long>{0, 1, 2, 3, 4}));
    EXPECT_EQ(lent(), (std::vector<long>{1, 0}));
    (*p)->each(p, nullptr, nullptr);
}

} // namespace

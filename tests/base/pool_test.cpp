// What a pool promises: ids find what is lent under them and nothing else, payloads are used again in turn, and
// whatever the caller's functions do with the pool meanwhile, no payload is lent twice, lost or destroyed twice.
#include "support/test.hpp"

#include "base/pool.hpp"

namespace {

struct Payload {
    long number;
};

// A pool of payloads that are numbered as they are made, and what happened to them.
struct Pool : testing::Test {
    static inline long made, deleted, resets;
    static inline bool refuses;                                                  // to make another
    static inline std::function<void(Payload *)> on_create, on_reset, on_delete; // null for nothing
    Tq4_own<Tq4_pool> owner;
    Tq4_pool p = nullptr;

    Pool() {
        made = deleted = resets = 0;
        refuses = false;
        on_create = on_reset = on_delete = nullptr;
    }
    ~Pool() override {
        owner.reset();
        EXPECT_EQ(made, deleted);
    }
    static void *create(void *) {
        if (refuses) return nullptr;
        auto *payload = new Payload{made++};
        if (on_create) on_create(payload);
        return payload;
    }
    static void destroy(void *payload) {
        ++deleted;
        if (on_delete) on_delete(static_cast<Payload *>(payload));
        delete static_cast<Payload *>(payload);
    }
    static void reset(void *payload, unsigned long) {
        ++resets;
        if (on_reset) on_reset(static_cast<Payload *>(payload));
    }
    void open(uint32_t max_res, uint64_t mask = 0) {
        const Tq4_pool_CreateParams given{max_res, create, destroy, reset, mask};
        owner = Tq4_make<Tq4_pool>(Tq4_pool_oitf, &given);
        p = owner.get();
    }

    static long number(void *payload) { return payload ? static_cast<Payload *>(payload)->number : -1; }
    long lend(Tq4_id *id) { return number((*p)->Alloc(p, nullptr, id)); }
    long lend_at(unsigned slot, Tq4_id *id) { return number((*p)->AllocAt(p, slot, nullptr, id)); }
    long lend_by(Tq4_id id) { return number((*p)->AllocBy(p, nullptr, &id)); }
    long look(Tq4_id id) { return number((*p)->Peek(p, &id)); }
    int give_back(Tq4_id id) { return (*p)->Recycle(p, &id); }
    // The numbers of what is lent, in order; the visit may end early or give back.
    std::vector<long> visit(std::function<int(long)> visitor = [](long) { return 0; }) {
        std::vector<long> seen;
        auto show = [&](long n) { return seen.push_back(n), visitor(n); };
        (*p)->each(
            p, [](void *payload, void *f) { return (*static_cast<decltype(show) *>(f))(number(payload)); }, &show);
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
    long made = 0, resets = 0;

    Model(unsigned count, uint32_t first_serial, uint64_t scrambler) : slots(count), serial(first_serial) {
        while (mask < count - 1) mask = 2 * mask + 1;
        random = static_cast<uint32_t>(scrambler) & mask;
    }
    unsigned slot_of(Tq4_id id) const { return (id.h ^ random) & mask; }
    Tq4_id id_of(unsigned slot) const { return {slot ^ random, slots[slot].l}; }
    long lend(unsigned slot, uint32_t l) {
        if (slots[slot].number < 0 && Pool::refuses) return -1;
        if (slots[slot].number < 0) slots[slot].number = made++;
        std::erase(waiting, slot);
        slots[slot].l = l;
        lent.push_back(slot);
        serial += serial == UINT32_MAX ? 2 : 1;
        return slots[slot].number;
    }
    long alloc() {
        if (!waiting.empty()) return lend(waiting.front(), serial);
        for (unsigned slot = 0; slot < slots.size(); ++slot)
            if (slots[slot].number < 0) return lend(slot, serial);
        return -1;
    }
    long alloc_at(unsigned slot, uint32_t l) { return slot < slots.size() && !slots[slot].l && l ? lend(slot, l) : -1; }
    long look(Tq4_id id) const {
        const unsigned slot = slot_of(id);
        return slot < slots.size() && id.l && slots[slot].l == id.l ? slots[slot].number : -1;
    }
    int give_back(Tq4_id id) {
        if (look(id) < 0) return 0;
        slots[slot_of(id)].l = 0;
        std::erase(lent, slot_of(id));
        waiting.push_back(slot_of(id));
        return static_cast<int>(++resets > 0);
    }
};

TEST_F(Pool, BehavesAsTheModelUnderRandomOperationsAcrossTheWrapOfTheSerial) {
    for (unsigned count : {1u, 2u, 5u, 300u, 1000u}) {
        made = deleted = resets = 0;
        Model model(count, UINT32_MAX - 20, 0xFEDCBA9876543210u + count);
        open(count, 0xFEDCBA9876543210u + count);
        Tq4_record<Tq4_pool_obj>(p)->m_serial = model.serial;
        std::mt19937 random(count);
        std::vector<Tq4_id> known{{0, 0}, {~0u, ~0u}};
        for (int step = 0; step < 6000; ++step) {
            Tq4_id id = known[random() % known.size()], given{};
            if (random() % 8 == 0) id.h ^= static_cast<uint32_t>(random()); // any bits may be set
            refuses = random() % 16 == 0;
            const auto slot = static_cast<unsigned>(random() % (count + 3));
            const uint32_t serial = model.serial;
            const unsigned way = random() % 6;
            if (way < 3) {
                const long expected = way ? model.alloc() : model.alloc_at(slot, serial);
                ASSERT_EQ(way ? lend(&given) : lend_at(slot, &given), expected) << step;
                if (expected < 0) continue;
                ASSERT_TRUE(given.l == serial && model.look(given) == expected) << step;
                known.push_back(given);
            } else if (way == 3) {
                ASSERT_EQ(lend_by(id), model.alloc_at(model.slot_of(id), id.l)) << step;
            } else if (random() % 500) {
                ASSERT_EQ(give_back(id), model.give_back(id)) << step;
            } else {
                (*p)->RecycleAll(p);
                while (!model.lent.empty()) model.give_back(model.id_of(model.lent.front()));
            }
            ASSERT_EQ(look(id), model.look(id)) << step;
            ASSERT_EQ((*p)->ToIndex(p, &id), model.slot_of(id));
            ASSERT_EQ(number((*p)->PeekAt(p, slot)),
                      slot < count && model.slots[slot].l ? model.slots[slot].number : -1);
            ASSERT_TRUE((*p)->Counts(p) == model.lent.size() && resets == model.resets);
        }
        std::vector<long> numbers;
        for (unsigned slot : model.lent) numbers.push_back(model.slots[slot].number);
        EXPECT_EQ(visit(), numbers);
        EXPECT_LT(model.serial, 1u << 16) << "the wrap was met";
        owner.reset();
    }
}

TEST_F(Pool, TakesAnyNumberOfSlotsUpToItsMost) {
    open(~0u, ~0ull);
    constexpr unsigned last = TQ4_POOL_MOST - 1;
    Tq4_id id;
    EXPECT_TRUE(lend_at(last + 1, &id) == -1 && lend_at(last, &id) == 0 && id.h == 0 && look({~last, id.l}) == 0);
    owner.reset();
    open(0, ~0ull);
    EXPECT_TRUE(lend(&id) == -1 && lend_at(0, &id) == -1 && lend_by(id) == -1 && look(id) == -1 && give_back(id) == 0);
}

TEST_F(Pool, IsMadeAndDuplicatedFromItsParameters) {
    EXPECT_EQ(Tq4_pool_oitf->Create(nullptr), nullptr);
    Tq4_pool_CreateParams without{1, nullptr, destroy, reset, 0};
    EXPECT_EQ(Tq4_pool_oitf->Create(&without), nullptr);
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
    static Tq4_string strings[2];
    static int count;
    count = 0;
    const Tq4_pool_CreateParams given{.max_res = 2, .Create = [](void *text) -> void * {
                                          return strings[count++] =
                                                     static_cast<Tq4_string>(Tq4_string_oitf->Create(text));
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
    on_reset = nullptr;
    on_delete = [&](Payload *payload) {
        if (payload->number == 0) { EXPECT_TRUE(look(ids[1]) == -1 && !give_back(ids[1]) && give_back(ids[2])); }
        EXPECT_EQ(lend_at(0, nullptr), -1) << "nothing new is made";
        lend(nullptr);
    };
    owner.reset();
}

TEST_F(Pool, AVisitorMayGiveBackWhatItIsShownAndStop) {
    open(5);
    std::vector<Tq4_id> ids(5);
    for (Tq4_id &id : ids) lend(&id);
    const auto seen = visit([&](long n) {
        if (n != 1) give_back(ids[static_cast<std::size_t>(n)]);
        if (n == 2) lend(nullptr); // comes at the end
        return n == 4 ? 1 : 0;
    });
    EXPECT_EQ(seen, (std::vector<long>{0, 1, 2, 3, 4}));
    EXPECT_EQ(visit(), (std::vector<long>{1, 0}));
    (*p)->each(p, nullptr, nullptr);
}

} // namespace

// What the object frame promises: identity, ownership, equality and the life of a record, for objects of any module.
#include <gtest/gtest.h>

#include "module.hpp"

namespace {
int comparisons = 0; // how often a module was asked for Equal
}

// Two modules of the same shape: a number.
struct Tq4_apple_obj {
    int m_number = 0;

    explicit Tq4_apple_obj(const int *number) : m_number(number ? *number : 0) {}
    void Reset() { m_number = 0; }
    void Copy(const Tq4_apple_obj *source) { m_number = source ? source->m_number : 0; }
    bool Equal(const Tq4_apple_obj &other) const { return ++comparisons, m_number == other.m_number; }
    int Number() const { return m_number; }
    void Add(int n) { m_number += n; }
};
struct Tq4_pear_obj : Tq4_apple_obj {
    using Tq4_apple_obj::Tq4_apple_obj;
};

struct Tq4_apple_;
using Tq4_apple = const Tq4_apple_ **;
struct Tq4_apple_ {
    int (*Number)(Tq4_apple);
    Tq4_apple (*Add)(Tq4_apple, int);
};
using Tq4_pear_ = Tq4_apple_;
const Tq4_apple_ Tq4_apple_itf = {.Number = Tq4_op<&Tq4_apple_obj::Number>, .Add = Tq4_op<&Tq4_apple_obj::Add>};
const Tq4_pear_ Tq4_pear_itf = {.Number = Tq4_op<&Tq4_pear_obj::Number>, .Add = Tq4_op<&Tq4_pear_obj::Add>};
TQ4_MODULE(apple)
TQ4_MODULE(pear)

namespace {

struct Object : testing::Test {
    Tq4_apple a = make(Tq4_apple_oitf, 7);
    Tq4_apple b = make(Tq4_apple_oitf, 7);
    Tq4_apple pear = make(Tq4_pear_oitf, 7);

    static Tq4_apple make(const Tq4_object_itf *oitf, int number) {
        return static_cast<Tq4_apple>(oitf->Create(&number));
    }
    Object() { comparisons = 0; }
    ~Object() override {
        for (Tq4_apple handle : {a, b, pear}) Tq4_object_itf2object(handle)->oitf->Delete(handle);
    }
};

TEST_F(Object, AHandleIsTheAddressOfTheTablePointerInItsRecord) {
    Tq4_object *record = Tq4_object_itf2object(a);
    EXPECT_EQ(&record->itf, static_cast<void *>(a));
    EXPECT_EQ(record->oitf, Tq4_apple_oitf);
    EXPECT_EQ(record->info, nullptr);
    EXPECT_EQ(Tq4_object_itf2object(nullptr), nullptr);
}

TEST_F(Object, IdentityAndOwnerAppearWhenFirstSetAndStayApart) {
    EXPECT_EQ(Tq4_object_Id(a), nullptr) << "not a zero id";
    EXPECT_EQ(Tq4_object_Owner(a), nullptr);

    Tq4_object_SetOwner(a, this);
    EXPECT_EQ(Tq4_apple_oitf->Owner(a), this);
    ASSERT_NE(Tq4_apple_oitf->Id(a), nullptr);
    EXPECT_EQ(Tq4_object_Id(a)->h | Tq4_object_Id(a)->l, 0u);

    const Tq4_id id = {.h = 0x01234567, .l = 0x89abcdef};
    Tq4_object_SetId(a, &id);
    Tq4_object_SetOwner(a, &comparisons);
    EXPECT_TRUE(Tq4_id_Equal(Tq4_object_Id(a), &id)) << "a later owner keeps the id";
    EXPECT_NE(Tq4_object_Id(a), &id) << "copied, not kept";
    EXPECT_EQ(Tq4_object_Owner(a), &comparisons);
}

TEST_F(Object, EqualAsksTheModuleThatBothShareAndNoOther) {
    EXPECT_EQ(Tq4_object_Equal(a, b), 1);
    EXPECT_EQ(Tq4_object_Equal(a, a), 1);
    EXPECT_EQ(comparisons, 2) << "an object is compared also with itself";
    EXPECT_EQ(Tq4_object_Equal(a, (*b)->Add(b, 1)), 0);
    comparisons = 0;
    EXPECT_EQ(Tq4_object_Equal(a, pear), 0);
    EXPECT_EQ(Tq4_object_Equal(a, nullptr), 0);
    EXPECT_EQ(Tq4_object_Equal(nullptr, a), 0);
    EXPECT_EQ(Tq4_object_Equal(nullptr, nullptr), 1);
    EXPECT_EQ(comparisons, 0);
}

TEST_F(Object, ADuplicateHasTheContentButNeitherIdNorOwner) {
    const Tq4_id id = {.h = 1, .l = 2};
    Tq4_object_SetId(a, &id);
    auto duplicate = static_cast<Tq4_apple>(Tq4_object_Dup(a));
    EXPECT_EQ((*duplicate)->Number(duplicate), 7);
    EXPECT_EQ(Tq4_object_Id(duplicate), nullptr);
    Tq4_apple_oitf->Delete(duplicate);
}

TEST_F(Object, AModuleResetsAndCopiesAndANullSourceEmpties) {
    Tq4_apple_oitf->Reset(a);
    EXPECT_EQ((*a)->Number(a), 0);
    Tq4_apple_oitf->Copy(a, b);
    EXPECT_EQ((*a)->Number(a), 7);
    Tq4_apple_oitf->Copy(a, nullptr);
    EXPECT_EQ((*a)->Number(a), 0);
}

TEST_F(Object, NullHandlesGiveNullOrZero) {
    const Tq4_id id{};
    Tq4_object_SetId(nullptr, &id);
    Tq4_object_SetOwner(nullptr, this);
    EXPECT_EQ(Tq4_object_Id(nullptr), nullptr);
    EXPECT_EQ(Tq4_object_Owner(nullptr), nullptr);
    EXPECT_EQ(Tq4_object_Dup(nullptr), nullptr);
    Tq4_object_info_Delete(nullptr);

    Tq4_apple_oitf->Delete(nullptr);
    Tq4_apple_oitf->Reset(nullptr);
    Tq4_apple_oitf->Copy(nullptr, a);
    EXPECT_EQ(Tq4_apple_oitf->Dup(nullptr), nullptr);
    EXPECT_EQ((*a)->Number(nullptr), 0);
    EXPECT_EQ((*a)->Add(nullptr, 1), nullptr);
    EXPECT_EQ((*a)->Add(a, 1), a) << "what returns the handle chains";
}

TEST_F(Object, ASecondDeleteOfAnIntactRecordDoesNothing) {
    auto record = static_cast<Tq4_object *>(Tq4_object_oitf->Create(nullptr));
    record->oitf = Tq4_apple_oitf;
    Tq4_apple_oitf->Delete(&record->itf); // as a first Delete leaves it: itf is null
    Tq4_object_oitf->Delete(record);
}

TEST_F(Object, TheAllocatorOfRecordsIsNoModule) {
    auto record = static_cast<Tq4_object *>(Tq4_object_oitf->Create("ignored"));
    EXPECT_TRUE(!record->info && !record->oitf && !record->itf && !record->real_obj);
    Tq4_object_oitf->Reset(record);
    Tq4_object_oitf->Copy(record, record);
    EXPECT_EQ(Tq4_object_oitf->Equal(record, record), 0);
    EXPECT_EQ(Tq4_object_oitf->Dup(record), nullptr);
    EXPECT_EQ(Tq4_object_oitf->Owner(record), nullptr);
    EXPECT_EQ(Tq4_object_oitf->Id(record), nullptr);
    record->info = Tq4_object_info_Create();
    EXPECT_TRUE(record->info->id.h == 0 && record->info->id.l == 0 && !record->info->owner);
    Tq4_object_oitf->Delete(record); // frees the info too
    Tq4_object_oitf->Delete(nullptr);
}

TEST_F(Object, FreeingARecordThatIsStillInUseStopsTheProcess) {
    EXPECT_DEATH(Tq4_object_oitf->Delete(Tq4_object_itf2object(a)), "Tq4_c_object.*0 == obj->itf");
}

TEST(Id, StartsAtZeroAndEqualsByBothHalves) {
    Tq4_id *a = Tq4_id_Create(), *b = Tq4_id_Create();
    EXPECT_EQ(a->h | a->l, 0u);
    EXPECT_EQ(Tq4_id_Equal(a, b), 1);
    a->h = 1;
    EXPECT_EQ(Tq4_id_Equal(a, b), 0);
    b->l = 1;
    Tq4_id_Reset(a);
    EXPECT_EQ(Tq4_id_Equal(a, b), 0);
    Tq4_id_Reset(b);
    EXPECT_EQ(Tq4_id_Equal(a, b), 1);
    EXPECT_EQ(Tq4_id_Equal(a, nullptr), 0);
    Tq4_id_Delete(a);
    Tq4_id_Delete(b);
    Tq4_id_Delete(nullptr);
}

} // namespace

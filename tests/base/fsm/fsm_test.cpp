// What machines promise beside what random_machines_test.cpp asks of them: nulls, the operations of every object, the
// host's hooks, and what is left of a thread that is killed in a handler.
#include "support/killed.hpp"

namespace {

std::string name_of(Tq4_fsm_state state) { return "(" + std::string((*state)->Name(state)) + ")"; }
void never(Tq4_fsm_item, const Tq4_fsm_msg *, Tq4_fsm_state, Tq4_fsm_state, Tq4_fsm_state) { ADD_FAILURE(); }

TEST(Fsm, ObjectsAndNullsBehaveAsInEveryModule) {
    const auto machine = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf);
    const auto item = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
    const Tq4_fsm fsm = machine.get();
    const Tq4_fsm_state a = (*fsm)->AddState(fsm, "a");
    EXPECT_EQ((*a)->Name(nullptr), std::string());
    EXPECT_TRUE(!(*fsm)->AddState(fsm, "") && !(*fsm)->GetState(fsm, "") && !(*fsm)->GetState(fsm, "b"));
    EXPECT_TRUE(!(*fsm)->AddState(nullptr, "a") && (*fsm)->Inspect(nullptr) + (*fsm)->GetStateCount(nullptr) == 0);
    (*fsm)->SetIntMsgHandleRange(fsm, 1, LONG_MIN, LONG_MAX, never, "");
    (*fsm)->HandleIntMsg(nullptr, item.get(), 1, 0, nullptr);
    (*fsm)->HandleIntMsg(fsm, nullptr, 1, 0, nullptr);
    (*fsm)->HandleStrMsg(fsm, item.get(), nullptr, 0, nullptr);
    (*fsm)->SetStrMsgHandle(fsm, nullptr, 0, never, "");
    (*fsm)->SetIntMsgHandle(nullptr, 1, 0, never, "");
    (*a)->SetStrMsgHandleRange(a, nullptr, 0, 1, never, "");
    (*a)->SetStrMsgHandleDefault(a, nullptr, never, "");
    (*fsm)->EachState(fsm, nullptr);

    static Texts seen;
    (*fsm)->AddState(fsm, "b");
    const auto see_two = [](Tq4_fsm_state s) { return seen.push_back(name_of(s)), static_cast<int>(seen.size() == 2); };
    (*fsm)->EachState(fsm, see_two);
    EXPECT_EQ(seen, (Texts{"()", "(a)"}));
    EXPECT_EQ((*fsm)->GetState(fsm, nullptr), (*fsm)->AddState(fsm, nullptr));

    Tq4_own<Tq4_fsm_state> copy(static_cast<Tq4_fsm_state>(Tq4_fsm_state_oitf->Dup(a)));
    EXPECT_EQ(name_of(copy.get()), "()");
    EXPECT_TRUE(Tq4_fsm_state_oitf->Equal(a, a) && !Tq4_fsm_state_oitf->Equal(a, copy.get()));
    (*fsm)->SetCPPHandler(fsm, [](auto...) { ADD_FAILURE() << "a reset removes the wrapper"; });
    Tq4_fsm_oitf->Reset(fsm);
    EXPECT_TRUE((*fsm)->GetStateCount(fsm) == 1 && !(*fsm)->GetState(fsm, "a"));
    static bool handled;
    (*fsm)->SetIntMsgHandle(
        fsm, 1, 0, [](auto...) { handled = true; }, "");
    (*fsm)->HandleIntMsg(fsm, item.get(), 1, 0, nullptr);
    EXPECT_TRUE(handled);
}

TEST(Fsm, StatesAreMadeAndDeletedByTheHooksOfTheHost) {
    static Texts hooked;
    static const Tq4_new_hook made_before = Tq4_cxx_support->new_state;
    static const Tq4_delete_hook deleted_before = Tq4_cxx_support->delete_obj;
    Tq4_cxx_support->set_new_state([] { return hooked.push_back("new"), made_before(); });
    Tq4_cxx_support->set_delete([](void *handle) {
        if (Tq4_object_itf2object(handle)->oitf == Tq4_fsm_state_oitf)
            hooked.push_back("delete " + name_of(static_cast<Tq4_fsm_state>(handle)));
        deleted_before(handle);
    });
    auto machine = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf);
    for (const char *name : {"a", "a", ""}) (*machine)->AddState(machine.get(), name);
    machine.reset();
    Tq4_cxx_support->set_new_state(made_before);
    Tq4_cxx_support->set_delete(deleted_before);
    EXPECT_EQ(hooked, (Texts{"new", "new", "new", "delete ()", "delete ()", "delete (a)"}));
}

// A machine that a thread drives until it is caught in a handler, with one item inside another's event.
struct Killed {
    Tq4_own<Tq4_fsm> machine = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf);
    Tq4_own<Tq4_fsm_item> inner = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
    Tq4_own<Tq4_fsm_item> outer = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
    std::atomic<bool> caught = false;
    int handled = 0;

    Killed() {
        on("drive the inner one", [](auto, auto *event, auto...) { of(event).give(of(event).inner, "catch"); });
        on("catch", [](auto, auto *event, auto...) {
            of(event).give(of(event).inner, "a text that is longer than what fits into a string without an allocation");
            of(event).caught = true;
            go_deaf();
        });
        on("count", [](auto, auto *event, auto...) { ++of(event).handled; });
    }
    static Killed &of(const Tq4_fsm_msg *event) { return *static_cast<Killed *>(event->params); }
    void on(const char *message, Tq4_fsm_handler handler) {
        (*machine)->SetStrMsgHandleDefault(machine.get(), message, handler, "");
    }
    void give(const Tq4_own<Tq4_fsm_item> &to, const char *message) {
        (*machine)->HandleStrMsg(machine.get(), to.get(), message, 0, this);
    }
    static unsigned long work(void *killed) {
        auto *self = static_cast<Killed *>(killed);
        return self->give(self->outer, "drive the inner one"), 0;
    }
};

TEST(FsmDeathTest, AKillTakesItsThreadInTheHandlerAndTheItemWaitsForReset) {
    in_a_child([] {
        auto k = std::make_unique<Killed>();
        auto thread = Tq4_make<Tq4_thread>(Tq4_thread_oitf, "victim");
        (*thread)->Init(thread.get(), Killed::work, k.get());
        (*thread)->Resume(thread.get());
        while (!k->caught) std::this_thread::yield();
        (*thread)->Kill(thread.get(), 1);
        thread.reset();
        k->give(k->inner, "count"); // its event was never over: this one waits, in vain
        EXPECT_EQ(k->handled, 0);
        Tq4_fsm_item_oitf->Reset(k->inner.get());
        k->outer = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
        for (const auto *item : {&k->inner, &k->outer}) k->give(*item, "count");
        EXPECT_EQ(k->handled, 2);
        Tq4_fsm_oitf->Reset(k->machine.get());
    });
}

} // namespace

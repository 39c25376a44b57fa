// What a machine promises case by case, in its own words: the order of handlers, the lines of its log, what handlers
// may do, and what is left of a thread that is killed in one.
#include "support/test.hpp"

namespace {

enum Message : unsigned long { GO = 1, STOP = 2, LARGE = 0x5000000a };

std::string name_of(Tq4_fsm_state state) { return state ? "(" + std::string((*state)->Name(state)) + ")" : "null"; }

struct FsmTest : testing::Test {
    static inline FsmTest *current = nullptr;
    Temp_dir directory;
    Tq4_own<Tq4_log> log_owner = Tq4_make<Tq4_log>(Tq4_log_oitf);
    Tq4_log log = log_owner.get();
    Tq4_own<Tq4_fsm> machine = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf, log);
    Tq4_fsm fsm = machine.get();
    Tq4_fsm_item item = static_cast<Tq4_fsm_item>(Tq4_fsm_item_oitf->Create(nullptr));
    Texts trace;
    std::function<void(const std::string &who, const Tq4_fsm_msg &)> act = [](auto &, auto &) {};

    FsmTest() {
        current = this;
        (*log)->Init(log, "fsm", -1);
        (*log)->MainDir(log, directory.path().c_str());
    }
    ~FsmTest() override { Tq4_fsm_item_oitf->Delete(item); }

    // A handler for each word: it notes that it was called, and acts.
    static void note(const char *who, Tq4_fsm_item, const Tq4_fsm_msg *message, Tq4_fsm_state previous,
                     Tq4_fsm_state now, Tq4_fsm_state next) {
        current->trace.push_back(std::string(who) + " " + name_of(previous) + name_of(now) + name_of(next));
        current->act(who, *message);
    }
    static constexpr const char *words[] = {"rule", "enter", "exit", "clean", "force"};
    template <int word>
    static void handler(Tq4_fsm_item i, const Tq4_fsm_msg *m, Tq4_fsm_state p, Tq4_fsm_state c, Tq4_fsm_state n) {
        note(words[word], i, m, p, c, n);
    }
    static constexpr Tq4_fsm_handler rule = handler<0>, enter = handler<1>, leave = handler<2>, clean = handler<3>,
                                     force = handler<4>;

    Tq4_fsm_state state(const char *name) {
        const Tq4_fsm_state s = (*fsm)->AddState(fsm, name);
        (*s)->SetStateEnterHandler(s, enter);
        (*s)->SetStateExitHandler(s, leave);
        return s;
    }
    // From each to the next by a force rule.
    void force_chain(std::initializer_list<const char *> names) {
        for (const char *const *name = names.begin(); name + 1 != names.end(); ++name) {
            const Tq4_fsm_state s = state(*name);
            (*s)->SetForceState(s, name[1], force);
        }
        state(names.end()[-1]);
    }
    void give(unsigned long message, long value = 0) { (*fsm)->HandleIntMsg(fsm, item, message, value, nullptr); }
    void give(const char *message, long value = 0) { (*fsm)->HandleStrMsg(fsm, item, message, value, nullptr); }
    Texts traced() { return std::exchange(trace, {}); }
    Texts logged() {
        Texts lines;
        for (const auto &file : fs::recursive_directory_iterator(directory.path())) {
            std::ifstream in(file.path());
            for (std::string line; file.is_regular_file() && std::getline(in, line);)
                lines.push_back(line.substr(line.find("] ") + 2));
        }
        return lines;
    }
};

TEST_F(FsmTest, TheFirstEventEntersTheInitialStateAndIsMatchedThere) {
    const Tq4_fsm_state initial = state(nullptr), next = state("next");
    (*initial)->SetIntMsgHandle(initial, GO, 7, rule, "next");
    (*initial)->SetForceState(initial, "next", force); // not followed at the start, but on the way back
    (*next)->SetIntMsgHandleDefault(next, STOP, rule, nullptr);
    const Tq4_id id{0x12, 0xabcdef01};
    Tq4_object_SetId(item, &id);
    give(GO, 7);
    EXPECT_EQ(traced(), (Texts{"enter null()null", "rule null()(next)", "exit null()(next)", "enter ()(next)(next)"}));
    give("unknown %s%n", -3);
    give(STOP, LONG_MIN);
    EXPECT_EQ(traced(), (Texts{"rule ()(next)()", "exit ()(next)()", "enter (next)()()", "exit (next)()(next)",
                               "force (next)()(next)", "enter ()(next)(next)"}));
    const std::string who = "[0x00000012:abcdef01] ";
    EXPECT_EQ(logged(), (Texts{who + "在状态(),收到事件(0x00000001:7)", who + "状态迁移()---(0x00000001:7)-->(next)",
                               who + "在状态(next),收到事件(unknown %s%n:-3)",
                               who + "在状态(next),收到事件(unknown %s%n:-3),没有对应处理规则，事件被丢弃",
                               who + "在状态(next),收到事件(0x00000002:-9223372036854775808)",
                               who + "状态迁移(next)---(0x00000002:-9223372036854775808)-->()",
                               who + "状态被无条件迁移()----->(next)"}));
}

TEST_F(FsmTest, AFinalInitialStateConsumesTheFirstEvent) {
    const Tq4_fsm_state initial = state(nullptr);
    (*initial)->SetStateCleanHandler(initial, clean);
    (*initial)->SetIntMsgHandleDefault(initial, GO, rule, "");
    give(GO);
    EXPECT_EQ(traced(), (Texts{"enter null()null", "clean null()null"}));
    EXPECT_EQ(logged(), Texts{});
    give(GO);
    EXPECT_EQ(traced(), Texts{"rule null()null"});
}

TEST_F(FsmTest, ForceRulesMoveThreeTimesAndNotOutOfAFinalState) {
    force_chain({"a", "b", "c", "d", "e"});
    (*fsm)->SetIntMsgHandleDefault(fsm, GO, nullptr, "a");
    give(GO);
    EXPECT_EQ(traced().back(), "enter (c)(d)(d)");
    const Tq4_fsm_state b = state("b"), d = state("d");
    (*b)->SetStateCleanHandler(b, clean);
    give(GO);
    EXPECT_EQ(traced().back(), "clean (a)(b)(b)");
    (*d)->SetForceState(d, "nowhere", force);
    (*fsm)->SetStrMsgHandleDefault(fsm, "d", nullptr, "d");
    give("d", 1);
    const Texts lines = logged();
    EXPECT_EQ(lines.end()[-2], "[0x00000000:00000000] 状态迁移(b)---(d:1)--> (d)");
    EXPECT_EQ(lines.back(), "[0x00000000:00000000] 在状态(d)下无条件前转设置错误：没有找到(nowhere)状态");
}

TEST_F(FsmTest, TheStatesUnexpectedEventRuleComesBeforeAllRulesOfTheMachine) {
    const Tq4_fsm_state initial = (*fsm)->AddState(fsm, nullptr);
    (*fsm)->SetIntMsgHandle(fsm, GO, 0, enter, "");
    (*initial)->SetUnExceptEventHandle(initial, rule, "");
    give(GO);
    EXPECT_EQ(traced(), Texts{"rule null()null"});
    (*initial)->SetUnExceptEventHandle(initial, nullptr, "nowhere");
    give(GO);
    EXPECT_EQ(traced(), Texts{"enter null()null"});
}

TEST_F(FsmTest, InspectNamesWhatIsMissingAndWhatNothingLeadsTo) {
    const Tq4_fsm_state s = (*fsm)->AddState(fsm, "s%d");
    (*fsm)->AddState(fsm, "alone");
    (*s)->SetStrMsgHandleRange(s, "t", 3, 4, rule, "m1");
    (*s)->SetIntMsgHandleRange(s, LARGE + (1ul << 40), -1, 1, rule, "m2");
    (*s)->SetIntMsgHandleRange(s, GO, 5, 5, rule, "m3"); // as an exact rule
    (*s)->SetIntMsgHandleRange(s, GO, 2, 1, rule, "m4"); // as a default rule
    (*s)->SetStrMsgHandleDefault(s, "t", rule, "m5");
    (*s)->SetStrMsgHandle(s, "t", -2, rule, "m6");
    (*s)->SetIntMsgHandleDefault(s, GO, rule, "m7");
    (*s)->SetIntMsgHandle(s, GO, 1, rule, "m8"); // replaced, and inspected all the same
    (*s)->SetIntMsgHandle(s, GO, 1, rule, "m9");
    (*s)->SetUnExceptEventHandle(s, rule, "m10");
    (*s)->SetForceState(s, "m11", force);
    (*fsm)->SetIntMsgHandle(fsm, GO, 1, rule, "m12");
    EXPECT_EQ((*fsm)->Inspect(fsm), 3);
    const std::string end = "(该转移状态不存在)", lonely = "定义后未被实际引用，可能是个潜在错误";
    const Texts expected{"s%d ----(t)--->m5" + end,
                         "s%d ----(t:-2)--->m6" + end,
                         "s%d ----(0x1)--->m7" + end,
                         "s%d ----(0x1:1)--->m8" + end,
                         "s%d ----(0x1:1)--->m9" + end,
                         "s%d ----(t:[3,4])--->m1" + end,
                         "s%d ----(0x1005000000a:[-1,1])--->m2" + end,
                         "s%d ----(0x1:5)--->m3" + end,
                         "s%d ----(0x1)--->m4" + end,
                         "s%d ----(无条件转移)--->m11" + end,
                         "s%d ----(UnExceptEvent)--->m10" + end,
                         " ----(0x1:1)--->m12" + end,
                         "s%d" + lonely,
                         "alone" + lonely};
    EXPECT_EQ(logged(), expected);

    // A look that failed is not repeated; a state of a rule that was replaced is not led to.
    (*fsm)->AddState(fsm, "m12");
    (*s)->SetForceState(s, "alone", nullptr);
    EXPECT_EQ((*fsm)->Inspect(fsm), 3);
    EXPECT_EQ(logged().back(), "m12" + lonely);
    (*s)->SetForceState(s, "m12", nullptr);
    EXPECT_EQ((*fsm)->Inspect(fsm), 3);
    EXPECT_EQ(logged().back(), "alone" + lonely);
    Tq4_fsm_state_oitf->Reset(s);
    Tq4_own<Tq4_fsm> fresh(static_cast<Tq4_fsm>(Tq4_fsm_oitf->Dup(fsm)));
    EXPECT_EQ((*fresh)->Inspect(fresh.get()), 0);
    (*fresh)->SetStrMsgHandleDefault(fresh.get(), "t", nullptr, "missing");
    EXPECT_EQ((*fresh)->Inspect(fresh.get()), 1);
    EXPECT_EQ(logged().back(), " ----(t)--->missing" + end) << "a duplicate has the log";
}

TEST_F(FsmTest, LinesShowTheLowHalfOfLargeMessagesButTheReceivedOneAll) {
    const unsigned long large = LARGE + (7ul << 32);
    (*fsm)->SetIntMsgHandle(fsm, large, 1, nullptr, "nowhere");
    give(large, 1);
    give(large, 2);
    const std::string in = "[0x00000000:00000000] 在状态(),收到事件(";
    EXPECT_EQ(logged(), (Texts{in + "0x75000000a:1)", in + "0x5000000a:1),规则错误，没有找到对应的下一状态(nowhere)",
                               in + "0x75000000a:2)", in + "0x5000000a:2),没有对应处理规则，事件被丢弃"}));
}

TEST_F(FsmTest, AnInnerEventLeavesTheOuterMessageAsItWas) {
    const auto other = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
    (*fsm)->SetStrMsgHandleDefault(fsm, "outer", rule, "next");
    (*fsm)->SetIntMsgHandleDefault(fsm, GO, rule, "next");
    state("next");
    act = [&](const std::string &who, const Tq4_fsm_msg &message) {
        if (who != "rule" || !message.sMsg) return;
        (*fsm)->HandleIntMsg(fsm, other.get(), GO, 5, nullptr);
        EXPECT_STREQ(message.sMsg, "outer");
        EXPECT_TRUE(message.iMsg == 0 && message.status == 4 && message.params == this);
    };
    (*fsm)->HandleStrMsg(fsm, item, "outer", 4, this);
    EXPECT_EQ(logged().back(), "[0x00000000:00000000] 状态迁移()---(outer:4)--> (next)");
}

// In whichever handler of an event the item goes, nothing follows, and the machine goes on with others.
TEST_F(FsmTest, AnItemMayBeDeletedInAnyHandlerAndMayBeDrivenAfterAReset) {
    force_chain({"a", "b"});
    const Tq4_fsm_state b = state("b");
    (*b)->SetStateCleanHandler(b, clean);
    (*fsm)->SetIntMsgHandleDefault(fsm, GO, rule, "a");
    (*fsm)->SetStrMsgHandleDefault(fsm, "again", nullptr, "b");
    for (const char *goes_in : {"rule", "enter", "exit", "force", "clean"}) {
        act = [&](const std::string &who, const Tq4_fsm_msg &) {
            if (who != goes_in) return;
            give("lost with the item");
            Tq4_fsm_item_oitf->Delete(item);
            item = static_cast<Tq4_fsm_item>(Tq4_fsm_item_oitf->Create(nullptr));
        };
        give(GO);
        EXPECT_EQ(traced().back().substr(0, std::strlen(goes_in)), goes_in);

        const Tq4_id id{1, 2};
        Tq4_object_SetId(item, &id);
        Tq4_object_SetOwner(item, this);
        act = [&](const std::string &who, const Tq4_fsm_msg &message) {
            if (who != goes_in || message.sMsg) return;
            give("lost with the item");
            Tq4_fsm_item_oitf->Reset(item);
            EXPECT_TRUE(Tq4_object_Id(item)->l == 0 && Tq4_object_Owner(item) == this);
            give("again"); // handled at once: the item is new
        };
        give(GO);
        EXPECT_EQ(traced().back(), "clean ()(b)(b)");
        Tq4_fsm_item_oitf->Reset(item);
    }
}

TEST_F(FsmTest, AHandlerMayReplaceTheRuleItIsCalledFor) {
    force_chain({"a", "b", "c"});
    (*fsm)->SetIntMsgHandleDefault(fsm, STOP, nullptr, "a");
    const Tq4_fsm_state initial = state(nullptr), a = state("a");
    act = [&](const std::string &who, const Tq4_fsm_msg &) {
        if (who == "rule") Tq4_fsm_state_oitf->Reset(initial), (*initial)->SetStateExitHandler(initial, leave);
        if (who == "exit") (*a)->SetForceState(a, "c", clean);
    };
    (*initial)->SetUnExceptEventHandle(initial, rule, "a");
    give(GO);
    EXPECT_EQ(traced(), (Texts{"enter null()null", "rule null()(a)", "exit null()(a)", "enter ()(a)(a)",
                               "exit ()(a)(c)", "clean ()(a)(c)", "enter (a)(c)(c)"}));
}

TEST_F(FsmTest, WithoutALogNothingIsSaidAndALogMayGoInAHandler) {
    (*fsm)->SetIntMsgHandleDefault(fsm, GO, rule, "next");
    state("next");
    act = [&](const std::string &who, const Tq4_fsm_msg &) {
        if (who == "rule") (*fsm)->SetLog(fsm, nullptr), log_owner.reset();
    };
    give(GO);
    EXPECT_EQ(logged(), Texts{"[0x00000000:00000000] 在状态(),收到事件(0x00000001:0)"});
    give(STOP);
    EXPECT_EQ((*fsm)->Inspect(fsm), 0);
    EXPECT_EQ(logged().size(), 1u);
}

Texts hooked;

TEST_F(FsmTest, StatesAreMadeAndDeletedByTheHooksOfTheHost) {
    Tq4_cxx_support->set_new_state([] {
        hooked.push_back("new");
        return Tq4_fsm_state_oitf->Create(nullptr);
    });
    static const Tq4_delete_hook by_itself = Tq4_cxx_support->delete_obj;
    Tq4_cxx_support->set_delete([](void *handle) {
        if (Tq4_object_itf2object(handle)->oitf == Tq4_fsm_state_oitf)
            hooked.push_back("delete " + name_of(static_cast<Tq4_fsm_state>(handle)));
        by_itself(handle);
    });
    auto made = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf);
    (*made)->AddState(made.get(), "a");
    (*made)->AddState(made.get(), "a");
    (*made)->AddState(made.get(), "");
    made.reset();
    Tq4_cxx_support->set_new_state([] { return Tq4_fsm_state_oitf->Create(nullptr); });
    Tq4_cxx_support->set_delete(by_itself);
    EXPECT_EQ(hooked, (Texts{"new", "new", "new", "delete ()", "delete ()", "delete (a)"}));
}

TEST_F(FsmTest, ObjectsAndNullsBehaveAsInEveryModule) {
    const Tq4_fsm_state a = (*fsm)->AddState(fsm, "a");
    EXPECT_EQ((*a)->Name(nullptr), std::string());
    EXPECT_TRUE(!(*fsm)->AddState(fsm, "") && !(*fsm)->GetState(fsm, "") && !(*fsm)->GetState(fsm, "b"));
    EXPECT_EQ((*fsm)->GetState(fsm, nullptr), (*fsm)->AddState(fsm, nullptr));
    EXPECT_TRUE(!(*fsm)->AddState(nullptr, "a") && (*fsm)->Inspect(nullptr) == 0 &&
                (*fsm)->GetStateCount(nullptr) == 0);
    (*fsm)->HandleIntMsg(nullptr, item, GO, 0, nullptr);
    (*fsm)->HandleIntMsg(fsm, nullptr, GO, 0, nullptr);
    (*fsm)->HandleStrMsg(fsm, item, nullptr, 0, nullptr);
    (*fsm)->SetStrMsgHandle(fsm, nullptr, 0, rule, "");
    (*fsm)->SetIntMsgHandle(nullptr, GO, 0, rule, "");
    (*a)->SetStrMsgHandleRange(a, nullptr, 0, 1, rule, "");
    (*a)->SetStrMsgHandleDefault(nullptr, "x", rule, "");
    (*fsm)->EachState(fsm, nullptr);
    EXPECT_EQ(logged(), Texts{});

    static Texts seen;
    (*fsm)->AddState(fsm, "b");
    (*fsm)->EachState(fsm,
                      [](Tq4_fsm_state s) { return seen.push_back(name_of(s)), static_cast<int>(seen.size() == 2); });
    EXPECT_EQ(seen, (Texts{"()", "(a)"}));
    EXPECT_EQ((*fsm)->GetStateCount(fsm), 3u);

    Tq4_own<Tq4_fsm_state> copy(static_cast<Tq4_fsm_state>(Tq4_fsm_state_oitf->Dup(a)));
    EXPECT_EQ(name_of(copy.get()), "()");
    EXPECT_TRUE(Tq4_fsm_state_oitf->Equal(a, a) && !Tq4_fsm_state_oitf->Equal(a, copy.get()));
    Tq4_fsm_state_oitf->Reset(a);
    EXPECT_EQ((*fsm)->GetState(fsm, "a"), a) << "a reset keeps the name";
    Tq4_fsm_oitf->Reset(fsm);
    EXPECT_EQ((*fsm)->GetStateCount(fsm), 1u);
    EXPECT_EQ((*fsm)->GetState(fsm, "a"), nullptr);
}

// Sets the flag and never returns. It has nothing that unwinding would look for: a kill may take it at any instruction.
__attribute__((noinline, no_sanitize("thread"))) void spin(int *caught) {
    __atomic_store_n(caught, 1, __ATOMIC_RELEASE);
    for (;;) asm volatile("" ::: "memory");
}
void (*volatile spinning)(int *) = spin; // its callers are not to know that it throws nothing

// A machine that a thread drives until it is caught in a handler, with one item inside another's event.
struct Killed {
    Tq4_own<Tq4_fsm> machine = Tq4_make<Tq4_fsm>(Tq4_fsm_oitf);
    Tq4_own<Tq4_fsm_item> inner = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
    Tq4_own<Tq4_fsm_item> outer = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
    int caught = 0;
    int handled = 0;

    Killed() {
        on("drive the inner one", [](auto, auto *event, auto...) { of(event).give(of(event).inner, "catch"); });
        on("catch", [](auto, auto *event, auto...) {
            of(event).give(of(event).inner, "a text that is longer than what fits into a string without an allocation");
            spinning(&of(event).caught);
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
    void run_and_kill() {
        const auto thread = Tq4_make<Tq4_thread>(Tq4_thread_oitf, "victim");
        const auto work = +[](void *killed) {
            auto *k = static_cast<Killed *>(killed);
            k->give(k->outer, "drive the inner one");
            return 0ul;
        };
        (*thread)->Init(thread.get(), work, this);
        (*thread)->Resume(thread.get());
        while (!__atomic_load_n(&caught, __ATOMIC_ACQUIRE)) std::this_thread::yield();
        (*thread)->Kill(thread.get(), 1);
    }
};

TEST(FsmDeathTest, AKillTakesItsThreadInTheHandlerAndTheItemWaitsForReset) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto live_and_exit = [] {
        alarm(120);
        auto k = std::make_unique<Killed>();
        k->run_and_kill();
        k->give(k->inner, "count"); // its event was never over: this one waits, in vain
        EXPECT_EQ(k->handled, 0);
        Tq4_fsm_item_oitf->Reset(k->inner.get());
        k->give(k->inner, "count");
        EXPECT_EQ(k->handled, 1);
        k->outer = Tq4_make<Tq4_fsm_item>(Tq4_fsm_item_oitf);
        k->give(k->outer, "count");
        EXPECT_EQ(k->handled, 2);
        k.reset();
        std::exit(testing::Test::HasFailure());
    };
    EXPECT_EXIT(live_and_exit(), testing::ExitedWithCode(0), "");
}

} // namespace

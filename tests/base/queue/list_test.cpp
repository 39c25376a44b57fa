// The place that a list remembers: it is never wrong, and lasts while the changes are beside it or at the ends. And
// what the list's own check finds: every way in which links, count or place can be wrong, near either end.
#include "support/test.hpp"

#include "base/queue/list.hpp"

namespace {

struct List : testing::Test {
    std::vector<Tq4_list_node> nodes = std::vector<Tq4_list_node>(200);
    Tq4_list list;

    List() {
        for (Tq4_list_node &node : nodes) list.Append(&node);
    }
};

TEST_F(List, IsStoppedWhenALinkACountOrThePlaceIsWrong) {
    if (!Tq4_checks) GTEST_SKIP() << "built without TQ4_CHECKS";
    const std::pair<const char *, std::function<void()>> faults[] = {
        {"a node skipped forward", [&] { nodes[2].next = &nodes[4]; }},
        {"a node skipped backward", [&] { nodes[197].prev = &nodes[195]; }},
        {"a link lost", [&] { nodes[3].next = nullptr; }},
        {"a head with something before it", [&] { list.m_head.prev = &nodes[0]; }},
        {"a tail with something behind it", [&] { list.m_tail.next = &nodes[0]; }},
        {"a place that is another node's", [&] { list.At(30), list.m_walker.m_seen_index = 31; }},
        {"a place past the end", [&] { list.At(30), list.m_walker.m_seen_index = 200; }},
    };
    for (const auto &[what, fault] : faults) EXPECT_DEATH((fault(), list.Check()), "list_node") << what;
    while (list.m_count > 3) list.Unlink(list.first());
    for (uint64_t wrong : {0, 2, 4}) EXPECT_DEATH((list.m_count = wrong, list.Check()), "list_node") << wrong;
    EXPECT_DEATH(list.Append(list.first()), "linked") << "a node linked twice";
}

TEST_F(List, KeepsItsPlaceWhileChangesAreBesideItOrAtTheEnds) {
    std::vector<Tq4_list_node *> model, unlinked;
    for (Tq4_list_node &node : nodes) model.push_back(&node);
    std::mt19937 random(1);
    const auto link = [&](uint64_t at) { // before the node at that index
        if (unlinked.empty()) return;
        list.Link(unlinked.back(), at < model.size() ? model[at] : &list.m_tail);
        model.insert(model.begin() + static_cast<long>(at), unlinked.back());
        unlinked.pop_back();
    };
    const auto unlink = [&](uint64_t at) {
        unlinked.push_back(model[at]);
        list.Unlink(model[at]);
        model.erase(model.begin() + static_cast<long>(at));
    };
    for (int step = 0; step < 100000 && !HasFailure(); ++step) {
        if (model.empty()) link(0);
        const uint64_t size = model.size(), at = random() % size;
        ASSERT_EQ(list.At(at), model[at]);
        const std::function<void()> beside[] = {
            [&] { link(at); },
            [&] { link(at + 1); },
            [&] { link(0); },
            [&] { link(size); },
            [&] { unlink(at); },
            [&] { unlink(at - (at > 0)); },
            [&] { unlink(at + (at + 1 < size)); },
            [&] { unlink(0); },
            [&] { unlink(size - 1); },
        };
        beside[random() % std::size(beside)]();
        EXPECT_EQ(list.m_walker.m_seen == nullptr, model.empty()) << "forgotten at " << at << " of " << size;
        if (!model.empty() && random() % 4 == 0)
            random() % 2 ? unlink(random() % model.size()) : link(model.size() / 2);
        const Tq4_list_walker &place = list.m_walker;
        EXPECT_TRUE(!place.m_seen || model[place.m_seen_index] == place.m_seen);
    }
}

} // namespace

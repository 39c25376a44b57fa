// What a list's own check finds: every way in which its links, its count or its remembered place can be wrong, near
// either end. Without checks in the build there is nothing to find.
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

} // namespace

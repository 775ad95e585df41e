// The lock-free stack and the render-notification list built on it.
#include "CAAtomicStack.h"
#include "CAThreadSafeList.h"
#include "RunTogether.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <set>
#include <vector>

namespace {

struct Node
{
    Node* mNext = nullptr;
    int mValue = 0;
};

// Three threads push while two take: a taker keeps one node of each chain it
// takes and pushes the rest back, as a node pool does. Every node must end up
// exactly once either kept by a taker or still on the stack.
TEST(CAAtomicStackTest, ConcurrentPushAndTakeLosesAndDuplicatesNothing)
{
    constexpr int kPerPusher = 5000;
    TAtomicStack<Node> stack;
    std::vector<Node> nodes(3 * kPerPusher);
    for (size_t i = 0; i < nodes.size(); ++i) {
        nodes[i].mValue = static_cast<int>(i);
    }
    std::vector<int> count(nodes.size(), 0);
    RunTogether(5, [&](int inThread) {
        for (int i = 0; i < kPerPusher && inThread < 3; ++i) {
            stack.PushAtomic(&nodes[inThread * kPerPusher + i]);
        }
        for (int i = 0; i < 4000 && inThread >= 3; ++i) {
            if (Node* chain = stack.PopAll()) {
                ++count[chain->mValue]; // each taker counts different nodes
                if (Node* last = chain->mNext) {
                    while (last->mNext != nullptr) {
                        last = last->mNext;
                    }
                    stack.PushChain(chain->mNext, last);
                }
            }
        }
    });
    Node* chain = stack.PopAll();
    for (size_t n = 0; chain != nullptr && n <= nodes.size(); chain = chain->mNext, ++n) {
        ++count[chain->mValue];
    }
    EXPECT_EQ(count, std::vector<int>(nodes.size(), 1));
    // On an empty stack: newest first, a pushed chain keeping its order.
    Node n[3] = {{nullptr, 0}, {&n[2], 1}, {nullptr, 2}};
    stack.PushAtomic(&n[0]);
    stack.PushChain(&n[1], &n[2]);
    EXPECT_EQ(stack.PopAll(), &n[1]);
    EXPECT_EQ(n[2].mNext, &n[0]);
    EXPECT_EQ(stack.PopAll(), nullptr);
}

// Shaped like a render notification: two pointer-sized members.
using Entry = std::array<std::uintptr_t, 2>;
using List = TThreadSafeList<Entry>;

// The active entries in order; stops after 1000, so that a cyclic list fails.
std::vector<Entry> Contents(const List& inList)
{
    std::vector<Entry> out;
    for (auto it = inList.begin(); it != inList.end() && out.size() < 1000; ++it) {
        out.push_back(*it);
    }
    return out;
}

TEST(CAThreadSafeListTest, EventsApplyAtUpdateInQueueOrderWithoutDuplicates)
{
    List list;
    for (Entry entry : {Entry{1, 10}, Entry{2, 20}, Entry{1, 10}, Entry{1, 11}}) {
        list.deferAdd(entry);
    }
    EXPECT_TRUE(Contents(list).empty()) << "nothing changes before update";
    list.update();
    EXPECT_EQ(Contents(list), (std::vector<Entry>{{1, 10}, {2, 20}, {1, 11}}));
    list.deferAdd({3, 30}); // add then remove: the remove sees the add
    list.deferRemove({3, 30});
    list.deferRemove({4, 40}); // remove then add: present afterwards
    list.deferAdd({4, 40});
    list.deferRemove({1, 10}); // added twice, removed once: gone
    list.deferRemove({9, 90}); // never registered
    list.update();
    list.update();
    EXPECT_EQ(Contents(list), (std::vector<Entry>{{2, 20}, {1, 11}, {4, 40}}));
}

// Four registrars add and remove entries while a render thread applies the
// queue and walks the list. The render thread must never see a duplicate or a
// value nobody registered, and the list must end with exactly the survivors.
// Leaks show up under the leak checker of the sanitizer build.
TEST(CAThreadSafeListTest, ConcurrentRegistrationKeepsEveryEntryExactlyOnce)
{
    List list;
    std::atomic<int> registrarsLeft{4};
    std::atomic<int> violations{0};
    RunTogether(5, [&](int inThread) {
        for (bool last = inThread < 4; !last;) {
            last = registrarsLeft.load() == 0;
            list.update();
            std::set<Entry> seen;
            for (const Entry& e : list) {
                const bool known = e[0] >= 1 && e[0] <= 4 && e[1] < 8;
                violations += !known || !seen.insert(e).second ? 1 : 0;
            }
        }
        const std::uintptr_t proc = static_cast<std::uintptr_t>(inThread) + 1;
        for (int round = 0; round < 200 && inThread < 4; ++round) {
            for (std::uintptr_t i = 0; i < 8; ++i) {
                list.deferAdd({proc, i});
                if (i % 3 == 0) {
                    list.deferAdd({proc, i});
                }
            }
            for (std::uintptr_t i = 0; i < 8; ++i) {
                if (round < 199 || i % 2 == 1) {
                    list.deferRemove({proc, i});
                }
            }
        }
        registrarsLeft -= inThread < 4 ? 1 : 0;
    });
    EXPECT_EQ(violations.load(), 0);
    std::vector<Entry> expected;
    for (std::uintptr_t proc = 1; proc <= 4; ++proc) {
        for (std::uintptr_t i = 0; i < 8; i += 2) {
            expected.push_back({proc, i});
        }
    }
    std::vector<Entry> contents = Contents(list);
    std::sort(contents.begin(), contents.end());
    EXPECT_EQ(contents, expected) << "the survivors, each once";
}

} // namespace

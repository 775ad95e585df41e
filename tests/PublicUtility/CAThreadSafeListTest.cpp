#include "CAThreadSafeList.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <set>
#include <thread>
#include <utility>
#include <vector>

namespace {

// Shaped like a render notification: two pointer-sized members.
struct Entry
{
    std::uintptr_t mProc;
    std::uintptr_t mRefCon;
};

bool operator==(const Entry& a, const Entry& b)
{
    return a.mProc == b.mProc && a.mRefCon == b.mRefCon;
}

using List = TThreadSafeList<Entry>;

static_assert(sizeof(List::Node) == 32, "a pointer-pair node is one 32-byte block");
static_assert(offsetof(List::Node, mEventKind) == 8 && offsetof(List::Node, mObject) == 16,
              "node layout: link, kind, value");

// The active entries in order; stops after 1000 so that a corrupted, cyclic
// list fails the test instead of hanging it.
std::vector<std::pair<std::uintptr_t, std::uintptr_t>> Contents(const List& list)
{
    std::vector<std::pair<std::uintptr_t, std::uintptr_t>> out;
    for (auto it = list.begin(); it != list.end() && out.size() < 1000; ++it) {
        out.emplace_back(it->mProc, it->mRefCon);
    }
    return out;
}

using Pairs = std::vector<std::pair<std::uintptr_t, std::uintptr_t>>;

TEST(CAThreadSafeListTest, EventsTakeEffectAtUpdateInQueueOrder)
{
    List list;
    list.deferAdd({1, 10});
    list.deferAdd({2, 20});
    EXPECT_TRUE(Contents(list).empty()) << "nothing changes before update";
    list.update();
    EXPECT_EQ(Contents(list), (Pairs{{1, 10}, {2, 20}}));

    // Add then remove before one update: the remove sees the add.
    list.deferAdd({3, 30});
    list.deferRemove({3, 30});
    // Remove then add: the value ends up present.
    list.deferRemove({4, 40});
    list.deferAdd({4, 40});
    list.update();
    EXPECT_EQ(Contents(list), (Pairs{{1, 10}, {2, 20}, {4, 40}}));

    list.update();
    EXPECT_EQ(Contents(list), (Pairs{{1, 10}, {2, 20}, {4, 40}}))
        << "an empty queue changes nothing";
}

TEST(CAThreadSafeListTest, HoldsNoDuplicatesAndRemovesOnlyMatchingEntries)
{
    List list;
    list.deferAdd({1, 10});
    list.deferAdd({1, 10});
    list.deferAdd({1, 11}); // same proc, other refCon: a different entry
    list.update();
    EXPECT_EQ(Contents(list), (Pairs{{1, 10}, {1, 11}}));

    list.deferRemove({1, 10});
    list.deferRemove({9, 90}); // never registered
    list.update();
    EXPECT_EQ(Contents(list), (Pairs{{1, 11}})) << "registered twice, removed once: none left";

    list.deferRemove({1, 11});
    list.update();
    EXPECT_TRUE(Contents(list).empty());
}

TEST(CAThreadSafeListTest, AppliedNodesAreRecycled)
{
    List list;
    list.deferAdd({1, 10});
    list.update();
    const Entry* value = &*list.begin();
    const auto* entryNode = reinterpret_cast<const List::Node*>(
        reinterpret_cast<const char*>(value) - offsetof(List::Node, mObject));

    // The removed entry and the remove event both go to the free stack.
    list.deferRemove({1, 10});
    list.update();
    List::Node* first = list.AllocNode();
    List::Node* second = list.AllocNode();
    EXPECT_NE(first, second);
    EXPECT_TRUE(first == entryNode || second == entryNode) << "the entry's node is reused";
    std::free(first);
    std::free(second);
}

// Several threads register and remove entries while a render thread applies
// the queue and walks the list. Each registrar ends with a known set of its
// own entries present; the render thread must never see a duplicate or a
// value nobody registered, and the final list must hold exactly the
// survivors. Leaks show up under the leak checker of the sanitizer build.
TEST(CAThreadSafeListTest, ConcurrentRegistrationKeepsEveryEntryExactlyOnce)
{
    constexpr std::uintptr_t kThreads = 4;
    constexpr std::uintptr_t kValues = 8;
    constexpr int kRounds = 200;

    List list;
    std::atomic<bool> registrarsDone{false};
    std::atomic<int> renderViolations{0};
    std::atomic<long> renderPasses{0};
    // All threads start together, so that they really contend.
    std::atomic<bool> go{false};

    std::thread render([&] {
        std::vector<Entry> seen;
        seen.reserve(kThreads * kValues);
        bool last = false;
        while (!last) {
            last = registrarsDone.load();
            list.update();
            seen.clear();
            for (const Entry& e : list) {
                bool known = e.mProc >= 1 && e.mProc <= kThreads && e.mRefCon < kValues;
                bool duplicate = std::find(seen.begin(), seen.end(), e) != seen.end();
                if (!known || duplicate || seen.size() == seen.capacity()) {
                    renderViolations.fetch_add(1);
                    break;
                }
                seen.push_back(e);
            }
            renderPasses.fetch_add(1);
        }
    });

    std::vector<std::thread> registrars;
    for (std::uintptr_t t = 1; t <= kThreads; ++t) {
        registrars.emplace_back([&list, &go, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            for (int round = 0; round < kRounds; ++round) {
                for (std::uintptr_t i = 0; i < kValues; ++i) {
                    list.deferAdd({t, i});
                    if (i % 3 == 0) {
                        list.deferAdd({t, i});
                    }
                }
                bool finalRound = round == kRounds - 1;
                for (std::uintptr_t i = 0; i < kValues; ++i) {
                    if (!finalRound || i % 2 == 1) {
                        list.deferRemove({t, i});
                    }
                }
            }
        });
    }
    go.store(true);
    for (std::thread& r : registrars) {
        r.join();
    }
    registrarsDone.store(true);
    render.join();

    EXPECT_EQ(renderViolations.load(), 0);
    EXPECT_GT(renderPasses.load(), 0);
    std::set<std::pair<std::uintptr_t, std::uintptr_t>> expected;
    for (std::uintptr_t t = 1; t <= kThreads; ++t) {
        for (std::uintptr_t i = 0; i < kValues; i += 2) {
            expected.emplace(t, i);
        }
    }
    Pairs contents = Contents(list);
    std::set<std::pair<std::uintptr_t, std::uintptr_t>> actual(contents.begin(), contents.end());
    EXPECT_EQ(contents.size(), actual.size()) << "no duplicates";
    EXPECT_EQ(actual, expected);
}

} // namespace

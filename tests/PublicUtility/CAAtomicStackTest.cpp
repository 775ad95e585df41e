#include "CAAtomicStack.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

struct Node
{
    Node* mNext = nullptr;
    int mValue = 0;
};

// The values of a chain; stops after `limit` nodes so that a corrupted,
// cyclic chain fails the test instead of hanging it.
std::vector<int> Drain(Node* chain, std::size_t limit = 1000000)
{
    std::vector<int> values;
    for (; chain != nullptr && values.size() < limit; chain = chain->mNext) {
        values.push_back(chain->mValue);
    }
    return values;
}

TEST(CAAtomicStackTest, PopAllTakesEverythingNewestFirstAndChainsStayInOrder)
{
    TAtomicStack<Node> stack;
    EXPECT_EQ(stack.PopAll(), nullptr);

    Node n[4];
    for (int i = 0; i < 4; ++i) {
        n[i].mValue = i;
    }
    stack.PushAtomic(&n[0]);
    stack.PushAtomic(&n[1]);
    n[2].mNext = &n[3];
    stack.PushChain(&n[2], &n[3]);
    EXPECT_EQ(Drain(stack.PopAll()), (std::vector<int>{2, 3, 1, 0}));
    EXPECT_EQ(stack.PopAll(), nullptr) << "PopAll leaves the stack empty";
}

// Pushers and takers race on one stack; takers keep one node of each chain
// they take and push the rest back, as a node pool does. Every node must end
// up exactly once either kept by a taker or still on the stack.
TEST(CAAtomicStackTest, ConcurrentPushAndTakeLosesAndDuplicatesNothing)
{
    constexpr int kPushers = 3;
    constexpr int kPerPusher = 5000;
    constexpr int kTakers = 2;
    constexpr int kTakesPerTaker = 4000;

    TAtomicStack<Node> stack;
    std::vector<Node> nodes(kPushers * kPerPusher);
    for (std::size_t i = 0; i < nodes.size(); ++i) {
        nodes[i].mValue = static_cast<int>(i);
    }
    std::vector<std::vector<int>> kept(kTakers);
    // All threads start together, so that they really contend.
    std::atomic<bool> go{false};

    std::vector<std::thread> threads;
    for (int p = 0; p < kPushers; ++p) {
        threads.emplace_back([&, p] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            for (int i = 0; i < kPerPusher; ++i) {
                stack.PushAtomic(&nodes[p * kPerPusher + i]);
            }
        });
    }
    for (int t = 0; t < kTakers; ++t) {
        threads.emplace_back([&, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            for (int i = 0; i < kTakesPerTaker; ++i) {
                Node* chain = stack.PopAll();
                if (chain == nullptr) {
                    continue;
                }
                kept[t].push_back(chain->mValue);
                if (Node* rest = chain->mNext) {
                    Node* last = rest;
                    while (last->mNext != nullptr) {
                        last = last->mNext;
                    }
                    stack.PushChain(rest, last);
                }
            }
        });
    }
    go.store(true);
    for (std::thread& t : threads) {
        t.join();
    }

    std::vector<int> count(nodes.size(), 0);
    for (int v : Drain(stack.PopAll(), nodes.size())) {
        ++count[v];
    }
    for (const auto& k : kept) {
        for (int v : k) {
            ++count[v];
        }
    }
    for (std::size_t i = 0; i < count.size(); ++i) {
        ASSERT_EQ(count[i], 1) << "node " << i;
    }
}

} // namespace

// Runs inThreads copies of a piece of work at once, released together so that
// they really contend, and waits for all of them.
#ifndef RUNTOGETHER_H
#define RUNTOGETHER_H

#include <atomic>
#include <thread>
#include <vector>

// inWork(t) runs on thread t, 0 <= t < inThreads.
template <class F> void RunTogether(int inThreads, F inWork)
{
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < inThreads; ++t) {
        threads.emplace_back([&go, &inWork, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            inWork(t);
        });
    }
    go = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
}

#endif

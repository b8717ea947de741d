#include "foundation/thread_pool.h"

#include <utility>

namespace quillet::mylib {
ThreadPool::~ThreadPool() {
    Stop();
}

void ThreadPool::Start() {
    {
        std::lock_guard<std::mutex> lock(threadsMutex);
        if (!threads.empty()) return;
        threadCount = 1;
        threads.reserve(threadCount);
        while (threads.size() < threadCount) {
            threads.push_back(platform::StartThread("quillet-pool", [this] { RunWorker(); }));
        }
        SetState(Running);
    }
    wakeUp.notify_all();
}

void ThreadPool::Enqueue(std::function<void()> task) {
    {
        std::lock_guard<std::mutex> lock(tasksMutex);
        tasks.push_back(std::move(task));
    }
    wakeUp.notify_one();
}

void ThreadPool::Stop() {
    std::lock_guard<std::mutex> lock(threadsMutex);
    if (state != Running) return;
    SetState(Stopping);
    wakeUp.notify_all();
    for (platform::Thread& thread : threads) thread.Join();
    SetState(Stopped);
    threads.clear();
}

void ThreadPool::RunWorker() {
    for (;;) {
        std::function<void()> task;
        {
            std::unique_lock<std::mutex> lock(tasksMutex);
            const bool woken = wakeUp.wait_for(
                lock, idleWait, [this] { return (!tasks.empty() && state == Running) || state == Stopping; });
            if (state == Stopping) return;
            if (!woken) continue;
            task = std::move(tasks.front());
            tasks.pop_front();
        }
        ++activeCount;
        try {
            task();
        } catch (...) {  // a task that fails must not end the worker of those behind it
        }
        --activeCount;
    }
}

void ThreadPool::SetState(State newState) {
    std::lock_guard<std::mutex> lock(tasksMutex);
    state = newState;
}

}  // namespace quillet::mylib

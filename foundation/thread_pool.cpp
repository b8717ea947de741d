#include "foundation/thread_pool.h"

namespace quillet::mylib {
namespace {

constexpr size_t kKeptTasks = 1024;

}  // namespace

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
    wakeUp->notify_all();
}

void ThreadPool::Stop() {
    std::lock_guard<std::mutex> lock(threadsMutex);
    if (state != Running) return;
    SetState(Stopping);
    wakeUp->notify_all();
    for (platform::Thread& thread : threads) thread.Join();
    SetState(Stopped);
    threads.clear();
}

void ThreadPool::RunWorker() {
    while (TakeTasks()) {
        while (HasTaken() && state == Running) RunNextTask();
        if (!HasTaken()) EndRound();
    }
}

// Waits for tasks, or for a round without any; false at the end. What a Stop has left of those taken comes first after
// the next Start.
bool ThreadPool::TakeTasks() {
    std::unique_lock<std::mutex> lock(tasksMutex);
    wakeUp->wait_for(lock, idleWait,
                     [this] { return (state == Running && (!tasks.empty() || HasTaken())) || state == Stopping; });
    if (state == Running && !HasTaken()) taken.swap(tasks);
    return state != Stopping;
}

void ThreadPool::RunNextTask() {
    Task& task = taken[nextTaken++];
    ++activeCount;
    try {
        task();
    } catch (...) {  // a task that fails must not end the worker of those behind it
    }
    --activeCount;
    task.Drop();
}

// The list keeps its memory for the next round, but not what a long queue has taken.
void ThreadPool::EndRound() {
    taken.clear();
    nextTaken = 0;
    if (taken.capacity() > kKeptTasks) taken.shrink_to_fit();
}

void ThreadPool::SetState(State newState) {
    std::lock_guard<std::mutex> lock(tasksMutex);
    state = newState;
}

}  // namespace quillet::mylib

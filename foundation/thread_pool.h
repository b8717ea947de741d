// A worker that runs tasks in the order of their arrival.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "foundation/task.h"
#include "platform/process_origin.h"
#include "platform/thread.h"

namespace quillet::mylib {

// All operations may be called from any thread; Stop and the destructor not from a task.
class ThreadPool {
  public:
    // An idle worker looks round so often; nothing depends on it.
    explicit ThreadPool(std::chrono::milliseconds lookRound = std::chrono::seconds(2)) : idleWait(lookRound) {}
    virtual ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Starts the one worker. Throws std::system_error if no thread can be made.
    void Start();

    // Adds a task and wakes the worker; never waits for a task. There is no limit to the queue. An exception
    // out of a task is swallowed.
    template <typename F>
    void Enqueue(F&& task) {
        {
            std::lock_guard<std::mutex> lock(tasksMutex);
            tasks.emplace_back(std::forward<F>(task));
        }
        wakeUp->notify_one();
    }

    // Ends the worker after the task it is running; tasks still queued are not run. Harmless on a stopped
    // pool.
    void Stop();

  private:
    enum State : int32_t { Running = 1, Stopped = 2, Stopping = 3 };

    void RunWorker();
    bool TakeTasks();
    void RunNextTask();
    void EndRound();
    bool HasTaken() const { return nextTaken < taken.size(); }
    void SetState(State newState);

    const std::chrono::milliseconds idleWait;
    // Two lists that change places, so that neither thread asks for memory while they are long enough.
    std::vector<Task> tasks;  // guarded by tasksMutex
    std::vector<Task> taken;  // the worker's alone: what it has taken out of `tasks`, all at once
    size_t nextTaken = 0;     // the worker's alone
    std::mutex tasksMutex;    // also held at each change of `state`, or a wake-up could be lost
    std::mutex threadsMutex;  // guards `threads`
    std::vector<platform::Thread> threads;
    platform::ProcessBound<std::condition_variable> wakeUp;
    std::atomic<uint64_t> threadCount{0};
    std::atomic<uint64_t> activeCount{0};  // tasks being run
    std::atomic<int32_t> state{Stopped};
};

}  // namespace quillet::mylib

// SPDX-License-Identifier: MIT
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

namespace quillet {

// All operations may be called from any thread; Stop and the destructor not from a task.
class ThreadPool {
  public:
    // lookRound: how often an idle worker wakes up. Nothing depends on it; tests make it long.
    explicit ThreadPool(std::chrono::milliseconds lookRound = std::chrono::seconds(2)) : m_IdleWait(lookRound) {}
    ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // Starts the one worker. Throws std::system_error if no thread can be made.
    void Start();

    // Adds a task and wakes the worker; never waits for a task. There is no limit to the queue. An exception
    // out of a task is swallowed.
    template <typename F>
    void Enqueue(F&& task) {
        {
            std::lock_guard<std::mutex> lock(m_TasksMutex);
            m_Tasks.emplace_back(std::forward<F>(task));
        }
        m_WakeUp->notify_one();
    }

    // Ends the worker after the task it is running; tasks still queued are not run. Harmless on a stopped pool.
    void Stop();

  private:
    enum State : int32_t { Running = 1, Stopped = 2, Stopping = 3 };

    void RunWorker();
    bool TakeTasks();
    void RunNextTask();
    void EndRound();
    bool HasTaken() const { return m_NextTaken < m_Taken.size(); }
    void SetState(State newState);

    const std::chrono::milliseconds m_IdleWait;
    // Two lists that change places, so that neither thread asks for memory while they are long enough.
    std::vector<Task> m_Tasks;  // guarded by m_TasksMutex
    std::vector<Task> m_Taken;  // the worker's alone: what it has taken out of m_Tasks, all at once
    size_t m_NextTaken = 0;     // the worker's alone
    std::mutex m_TasksMutex;    // also held at each change of m_State, or a wake-up could be lost
    std::mutex m_WorkerMutex;   // guards m_Worker, and is held while Stop joins it
    platform::Thread m_Worker;
    platform::ProcessBound<std::condition_variable> m_WakeUp;
    std::atomic<int32_t> m_State{Stopped};
};

}  // namespace quillet

// SPDX-License-Identifier: MIT
#include "foundation/thread_pool.h"

namespace quillet {
namespace {

constexpr size_t kKeptTasks = 1024;

}  // namespace

ThreadPool::~ThreadPool() {
    Stop();
}

void ThreadPool::Start() {
    {
        std::lock_guard<std::mutex> lock(m_WorkerMutex);
        if (m_Worker.Joinable()) return;
        m_Worker = platform::StartThread("quillet-pool", [this] { RunWorker(); });
        SetState(Running);
    }
    m_WakeUp->notify_all();
}

void ThreadPool::Stop() {
    std::lock_guard<std::mutex> lock(m_WorkerMutex);
    if (m_State != Running) return;
    SetState(Stopping);
    m_WakeUp->notify_all();
    m_Worker.Join();
    SetState(Stopped);
}

void ThreadPool::RunWorker() {
    while (TakeTasks()) {
        while (HasTaken() && m_State == Running) RunNextTask();
        if (!HasTaken()) EndRound();
    }
}

// Waits for tasks, or for a round without any; false at the end. What a Stop has left of those taken comes first after
// the next Start.
bool ThreadPool::TakeTasks() {
    std::unique_lock<std::mutex> lock(m_TasksMutex);
    m_WakeUp->wait_for(lock, m_IdleWait, [this] {
        return (m_State == Running && (!m_Tasks.empty() || HasTaken())) || m_State == Stopping;
    });
    if (m_State == Running && !HasTaken()) m_Taken.swap(m_Tasks);
    return m_State != Stopping;
}

void ThreadPool::RunNextTask() {
    Task& task = m_Taken[m_NextTaken++];
    try {
        task();
    } catch (...) {  // a task that fails must not end the worker of those behind it
    }
    task.Drop();
}

// The list keeps its memory for the next round, but not what a long queue has taken.
void ThreadPool::EndRound() {
    m_Taken.clear();
    m_NextTaken = 0;
    if (m_Taken.capacity() > kKeptTasks) m_Taken.shrink_to_fit();
}

void ThreadPool::SetState(State newState) {
    std::lock_guard<std::mutex> lock(m_TasksMutex);
    m_State = newState;
}

}  // namespace quillet

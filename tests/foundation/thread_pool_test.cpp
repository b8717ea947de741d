// SPDX-License-Identifier: MIT
#include "foundation/thread_pool.h"

#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "support/process.h"

namespace quillet {
namespace {

TEST(ThreadPool, RunsTheTasksOfEachThreadInItsOrder) {
    constexpr int kThreads = 4;
    constexpr int kTasks = 250;
    ThreadPool pool;
    pool.Start();
    std::latch done(kThreads * kTasks);
    std::vector<std::pair<int, int>> ran;  // touched by the one worker alone
    std::vector<std::thread> producers;
    for (int t = 0; t < kThreads; ++t) {
        producers.emplace_back([&, t] {
            for (int i = 0; i < kTasks; ++i) {
                pool.Enqueue([&, t, i] {
                    ran.emplace_back(t, i);
                    done.count_down();
                });
            }
        });
    }
    for (auto& producer : producers) producer.join();
    done.wait();
    std::vector<int> next(kThreads, 0);
    for (const auto& [thread, task] : ran) EXPECT_EQ(task, next[static_cast<size_t>(thread)]++);
}

TEST(ThreadPool, GoesOnAfterATaskThatThrowsAndTakesTasksFromTasks) {
    ThreadPool pool;
    std::promise<void> reached;
    std::future<void> end = reached.get_future();
    pool.Enqueue([] { throw std::runtime_error("task"); });
    pool.Enqueue([] { throw 5; });
    pool.Enqueue([&] { pool.Enqueue([&] { reached.set_value(); }); });
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(0)), std::future_status::timeout) << "not started yet";
    pool.Start();
    pool.Start();
    EXPECT_EQ(end.wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

// Its queue is never empty, so that a Stop always finds a task waiting.
struct EndlessTask {
    ThreadPool& pool;
    std::shared_ptr<int> runs;
    void operator()() const {
        ++*runs;
        pool.Enqueue(*this);
    }
};

TEST(ThreadPool, StopWaitsForTheRunningTaskAndLeavesTheRest) {
    auto runs = std::make_shared<int>(0);  // a plain number: the join is what makes it safe to read
    {
        ThreadPool pool;
        pool.Stop();
        std::promise<void> started;
        bool finished = false;
        pool.Enqueue([&] {
            started.set_value();
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            finished = true;
        });
        pool.Enqueue(EndlessTask{pool, runs});
        pool.Start();
        started.get_future().wait();
        pool.Stop();
        pool.Stop();
        EXPECT_TRUE(finished);
        EXPECT_EQ(runs.use_count(), 2) << "one task waits, unrun";

        std::promise<void> restarted;
        pool.Enqueue([&] { restarted.set_value(); });
        pool.Start();
        EXPECT_EQ(restarted.get_future().wait_for(std::chrono::seconds(20)), std::future_status::ready);
    }
    EXPECT_EQ(runs.use_count(), 1) << "the end frees what never ran";
}

constexpr int kStops = test::kOnWindows ? 600 : 6000;  // making a thread takes its time there

// The moment of Stop moves through the worker's way into its wait. A lost wake-up hangs.
TEST(ThreadPool, IdleWorkerIsStoppedAndWokenAtOnce) {
    for (int i = 0; i < kStops; ++i) {
        ThreadPool pool(std::chrono::hours(1));
        pool.Start();
        if (i % 10 == 0) {
            std::promise<void> ran;
            pool.Enqueue([&] { ran.set_value(); });
            ran.get_future().wait();
        }
        const auto moment = std::chrono::steady_clock::now() + std::chrono::nanoseconds(i * 60'000 / kStops);
        while (std::chrono::steady_clock::now() < moment) {
        }
        pool.Stop();
    }
}

}  // namespace
}  // namespace quillet

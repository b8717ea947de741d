#include "foundation/sync.h"

#include <gtest/gtest.h>
#include <thread>

namespace quillet {
namespace {

TEST(Sync, EventsResetByTheirType) {
    OsEvent manual(kManualResetEvent);
    OsEvent automatic(2);
    for (OsEvent* event : {&manual, &automatic}) {
        EXPECT_EQ(event->TimedWait(0), OsEventTimedOut);
        EXPECT_EQ(event->Signal(), OsEventSignalled);
        EXPECT_EQ(event->TimedWait(0), OsEventSignalled);
    }
    EXPECT_EQ(manual.TimedWait(0), OsEventSignalled);
    EXPECT_EQ(automatic.TimedWait(0), OsEventTimedOut);
    EXPECT_EQ(manual.Reset(), OsEventSignalled);
    EXPECT_EQ(manual.TimedWait(1), OsEventTimedOut);
}

TEST(Sync, SemaphoreHandsOverWhatWasPosted) {
    OsSemaphore semaphore(1);
    EXPECT_EQ(semaphore.Wait(), 0);
    int written = 0;
    std::thread poster([&] {
        written = 5;
        EXPECT_EQ(semaphore.Post(), 0);
    });
    EXPECT_EQ(semaphore.Wait(), 0);
    EXPECT_EQ(written, 5);
    poster.join();

    OsSemaphore full(0x7FFFFFFF);
    EXPECT_EQ(full.Post(), -1) << "at its limit";
    OsSemaphore impossible(0x80000000);
    EXPECT_EQ(impossible.Post(), -1);
    EXPECT_EQ(impossible.Wait(), -1);
}

}  // namespace
}  // namespace quillet

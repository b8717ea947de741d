// SPDX-License-Identifier: MIT
#include "events/event_queue.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <string>
#include <string_view>
#include <vector>

#include "support/eventually.h"
#include "support/log_reader.h"

namespace quillet::test {
namespace {

using ::testing::ThrowsMessage;

TEST(EventRecordTest, IsReadAsWhatItIsAlone) {
    EventRecord record;
    EXPECT_EQ(record.type, EventNone);
    uint32_t number = 7;
    std::string_view data = "untouched";
    record.SetStatusUpdate(2001);
    EXPECT_THAT([&] { record.GetData(number, data); }, ThrowsMessage<OposEventError>("Invalid Data Event"));
    EXPECT_THAT([&] { record.GetDirectIO(number, data); }, ThrowsMessage<OposEventError>("Invalid DirectIO Event"));
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(data, "untouched");
    record.GetStatusUpdate(number);
    EXPECT_EQ(number, 2001u);
}

TEST(EventQueueTest, RefusesMasksBeyondTheEventTypes) {
    EventQueue queue;
    queue.SetEnabledEvents(EventAll);
    EXPECT_THAT([&] { queue.SetEnabledEvents(32); },
                ThrowsMessage<OposQueueError>("Invalid event type passed to SetEnabledEvents."));
    EXPECT_EQ(queue.GetEnabledEvents(), 31);
    queue.ChangeEnabledEvents(0, EventData);
    EXPECT_EQ(queue.GetEnabledEvents(), 30);
}

TEST(EventQueueTest, EachSettingIsOnePassAsTheLogShows) {
    LogReader log;
    EventQueue queue;
    queue.SetEnabledEvents(EventAll);
    queue.ChangeEnabledEvents(0, 0);  // also one that changes nothing
    ptrdiff_t passes = 0;
    const auto count = [&] {
        const std::vector<std::string> lines = log.Take();
        return passes += std::count(lines.begin(), lines.end(), "LLInfo\t\t:Cache Count All after pop : 0");
    };
    EXPECT_TRUE(Eventually([&] { return count() >= 2; }));
    queue.EndThread();
    EXPECT_EQ(count(), 2);
}

// A wake-up between the making of the thread and its first wait, or at its end, must neither be lost nor hang.
TEST(EventQueueTest, EndsAtAnyMoment) {
    for (int round = 0; round < 200; ++round) {
        EventQueue queue;
        if (round % 2 == 0) queue.SetEnabledEvents(EventAll);
        if (round % 3 == 0) queue.EndThread();
    }
}

}  // namespace
}  // namespace quillet::test

// SPDX-License-Identifier: MIT
#include "events/event_queue.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include "support/eventually.h"
#include "support/log_reader.h"

namespace quillet {
namespace {

template <typename Error, typename Operation>
std::string TextOfError(Operation operation) {
    try {
        operation();
    } catch (const Error& error) {
        EXPECT_EQ(error.Code(), 0u);
        return error.what();
    }
    return "nothing raised";
}

TEST(EventRecordTest, IsReadAsWhatItIsAlone) {
    EventRecord record;
    EXPECT_EQ(record.type, EventNone);
    uint32_t number = 7;
    std::string_view data = "untouched";
    record.SetStatusUpdate(2001);
    EXPECT_EQ(TextOfError<OposEventError>([&] { record.GetData(number, data); }), "Invalid Data Event");
    EXPECT_EQ(TextOfError<OposEventError>([&] { record.GetDirectIO(number, data); }), "Invalid DirectIO Event");
    EXPECT_EQ(number, 7u);
    EXPECT_EQ(data, "untouched");
    record.GetStatusUpdate(number);
    EXPECT_EQ(number, 2001u);
}

TEST(EventQueueTest, RefusesMasksBeyondTheEventTypes) {
    EventQueue queue;
    queue.SetEnabledEvents(EventAll);
    EXPECT_EQ(TextOfError<OposQueueError>([&] { queue.SetEnabledEvents(32); }),
              "Invalid event type passed to SetEnabledEvents.");
    EXPECT_EQ(queue.GetEnabledEvents(), 31);
    queue.ChangeEnabledEvents(0, EventData);
    EXPECT_EQ(queue.GetEnabledEvents(), 30);
}

TEST(EventQueueTest, EachSettingIsOnePassAsTheLogShows) {
    test::LogReader log;
    EventQueue queue;
    queue.SetEnabledEvents(EventAll);
    queue.ChangeEnabledEvents(0, 0);  // also one that changes nothing
    ptrdiff_t passes = 0;
    const auto count = [&] {
        const std::vector<std::string> lines = log.Take();
        return passes += std::count(lines.begin(), lines.end(), "LLInfo\t\t:Cache Count All after pop : 0");
    };
    EXPECT_TRUE(test::Eventually([&] { return count() >= 2; }));
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
}  // namespace quillet

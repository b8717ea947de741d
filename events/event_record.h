// SPDX-License-Identifier: MIT
// One event of the device model.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "events/opos_error.h"

namespace quillet {

// Bits of one mask; a record carries exactly one of them.
enum EventType : uint32_t {
    EventNone = 0,
    EventData = 1,
    EventDirectIO = 2,
    EventError = 4,
    EventOutputComplete = 8,
    EventStatusUpdate = 16,
    EventAll = 31
};

// The getters throw OposEventError for a record of another kind and leave their results as they were. The data that
// they give are the record's own.
struct EventRecord {
    uint32_t type = EventNone;
    uint32_t status = 0;  // of a data or status event
    uint32_t number = 0;  // of a direct-I/O event
    std::string data;     // payload of a data or direct-I/O event

    void SetData(uint32_t newStatus, std::string newData);
    void GetData(uint32_t& outStatus, std::string_view& outData) const;
    void SetDirectIO(uint32_t newNumber, std::string newData);
    void GetDirectIO(uint32_t& outNumber, std::string_view& outData) const;
    void SetStatusUpdate(uint32_t newStatus);
    void GetStatusUpdate(uint32_t& outStatus) const;
};

}  // namespace quillet

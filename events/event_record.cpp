// SPDX-License-Identifier: MIT
#include "events/event_record.h"

#include <utility>

namespace quillet {

void EventRecord::SetData(uint32_t newStatus, std::string newData) {
    type = EventData;
    status = newStatus;
    data = std::move(newData);
}

void EventRecord::GetData(uint32_t& outStatus, std::string_view& outData) const {
    if (type != EventData) throw OposEventError("Invalid Data Event");
    outStatus = status;
    outData = data;
}

void EventRecord::SetDirectIO(uint32_t newNumber, std::string newData) {
    type = EventDirectIO;
    number = newNumber;
    data = std::move(newData);
}

void EventRecord::GetDirectIO(uint32_t& outNumber, std::string_view& outData) const {
    if (type != EventDirectIO) throw OposEventError("Invalid DirectIO Event");
    outNumber = number;
    outData = data;
}

void EventRecord::SetStatusUpdate(uint32_t newStatus) {
    type = EventStatusUpdate;
    status = newStatus;
}

void EventRecord::GetStatusUpdate(uint32_t& outStatus) const {
    if (type != EventStatusUpdate) throw OposEventError("Invalid StatusUpdate Event");
    outStatus = status;
}

}  // namespace quillet

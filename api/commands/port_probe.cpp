// SPDX-License-Identifier: MIT
// The search of all serial ports for scanners.
#include <cstring>
#include <mutex>
#include <string>

#include "api/commands/exchange_calls.h"
#include "api/handle/scanner_object.h"
#include "platform/clock.h"
#include "transport/port_discovery.h"

namespace quillet {
namespace {

// A scanner needs this long after the opening before it answers.
constexpr uint32_t kAnswerDelayMs = 500;

// "COM3,SN:1234||", or nothing if no scanner answers on the port. Ends with the handle closed, if it was opened.
std::string ProbePort(ScannerObject& object, const PortDescriptor& port) {
    const std::string connection =
        "protocol=virtual serial port,model=KX-7102QD,serialport=" + port.portSerial + ",baudrate=115200";
    if (OpenScanner(object, connection.c_str()) != ResultSuccess) return {};
    platform::TheClock().SleepMs(kAnswerDelayMs);
    std::string number;
    const int32_t result = ReadSerialNumber(object.scanner, number);
    CloseScanner(object);
    return result == ResultSuccess ? port.portName + ",SN:" + number + "||" : std::string();
}

std::string ProbeAllPorts(ScannerObject& object) {
    std::lock_guard lock(object.lifecycle);
    std::string text;
    for (const PortDescriptor& port : ListSerialPorts()) {
        if (object.scanner.WaitsAreEnded()) break;  // the handle is about to go
        text += ProbePort(object, port);
    }
    return text;
}

}  // namespace
}  // namespace quillet

using namespace quillet;

ResultCode getSerialPortDevice(ScannerHandle handle, int32_t bufferSize, uint8_t* buffer, int32_t* length) {
    return Guarded(ResultReplyTooLong, [&] {
        std::string text;
        if (handle != nullptr) text = ProbeAllPorts(HandleCall(handle).Object());
        const CallerBuffer out{buffer, buffer != nullptr ? CallerLength(bufferSize) : 0, length};
        if (!out.Fits(text)) {
            if (buffer != nullptr) std::memset(buffer, 0, out.size);
            return ResultReplyTooLong;
        }
        if (buffer != nullptr) {
            out.Fill(text);
        } else if (length != nullptr) {
            *length = 0;
        }
        return ResultSuccess;
    });
}

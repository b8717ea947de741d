// SPDX-License-Identifier: MIT
// Two scanners, one a link, and an application of two threads with two handles.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <quillet/quillet.h>

#include "foundation/thread_pool.h"
#include "support/eventually.h"
#include "support/fake_device_access.h"
#include "support/fake_device_tree.h"
#include "support/fast_clock.h"
#include "support/process.h"
#include "tools/virtual_scanner/frames.h"

namespace quillet::test {

enum Link : size_t { kUsb, kSerial, kLinks };
inline constexpr Link kBothLinks[] = {kUsb, kSerial};

enum OpenForm : size_t { kOpenAny = kLinks, kOpenUnlistedToo, kOpenBadNumber };
inline constexpr const char* kConnections[] = {"protocol=usb", "protocol=virtual serial port,serialport=7", "",
                                               "protocol=serial port,serialport=7",
                                               "protocol=serial port,serialport=x"};
enum ScanForm : size_t { kShort, kLong, kFirstPart, kBareText };
enum TakeForm : size_t { kWhole, kWithoutType, kInto4Bytes };

template <typename Condition>
void Await(const std::string& what, Condition condition) {
    if (!Eventually(condition, std::chrono::seconds(5))) throw std::runtime_error("never seen: " + what);
}

// What one call tells the application: its result, and a barcode or a reply.
struct Told {
    Told(int32_t ofCall = ResultSuccess, int32_t ofBarcode = -1, std::string bytes = {})
        : result(ofCall), type(ofBarcode), text(std::move(bytes)) {}

    int32_t result;
    int32_t type;
    std::string text;

    friend bool operator==(const Told&, const Told&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Told& told) {
        return out << "result " << told.result << ", type " << told.type << ", text '" << told.text << "'";
    }
};

// A call that fills a buffer of 1024 bytes.
template <typename Call>
Told Filled(Call call) {
    Told told;
    uint8_t buffer[1024];
    int32_t length = 0;
    told.result = call(buffer, &length, told.type);
    told.text.assign(buffer, buffer + length);
    return told;
}

inline Told Take(ScannerHandle handle, size_t form, int64_t timeoutMs = 0) {
    return Filled([=](uint8_t* buffer, int32_t* length, int32_t& type) {
        return getBarCode(handle, form == kWithoutType ? nullptr : &type, buffer, form == kInto4Bytes ? 4 : 1024,
                          length, timeoutMs);
    });
}

// Each has a text of its own, which tells its type.
inline Told Barcode(int number, size_t form) {
    Told barcode(ResultSuccess, number % 2 == 0 ? 3 : 11, std::to_string(number) + ' ');
    if (form == kLong) barcode.text.resize(100, 'x');
    if (form == kFirstPart) barcode.text.resize(56, 'x');  // as much as a report holds
    if (form == kBareText) barcode.type = 0;
    return barcode;
}

// At first both scanners are plugged in, and no handle is open.
class World {
  public:
    World() {
        for (const Link link : kBothLinks) tree.Plug(m_Listed[link]);
        for (ThreadPool& thread : m_Threads) thread.Start();
        m_ThreadsBefore = ThreadCount();
        for (ScannerHandle& handle : handles) handle = createScanner();
    }
    ~World() { Destroy(0), Destroy(1); }

    // A call with one of the handles, on a thread.
    std::future<Told> Start(size_t thread, size_t handle, std::function<Told(ScannerHandle)> call) {
        auto task = std::make_shared<std::packaged_task<Told()>>(std::bind(std::move(call), handles[handle]));
        m_Threads[thread].Enqueue([task] { (*task)(); });
        return task->get_future();
    }
    Told Open(size_t thread, size_t handle, size_t form) {
        return Start(thread, handle, [=](auto called) { return openScanner(called, kConnections[form]); }).get();
    }
    // On the thread that opened it.
    Told Destroy(size_t handle) {
        std::future<Told> told = Start(openers[handle], handle, destoryScanner);
        handles[handle] = nullptr;
        return told.get();
    }

    FakeDevice& Device(size_t link) { return *m_Devices[link]; }
    void Plug(size_t link) {
        Device(link)->Plug();
        tree.Plug(m_Listed[link]);
    }
    // The device first: what is written at the loss goes nowhere.
    void Unplug(size_t link) {
        Device(link)->Unplug();
        tree.Unplug(m_Listed[link].id);
    }
    // Out and in again before anybody looks.
    void Flicker(size_t link) {
        Device(link)->Unplug();
        Device(link)->Plug();
    }
    void Scan(size_t link, const Told& barcode, size_t form) {
        const bool part = form == kFirstPart;
        const auto type = static_cast<uint8_t>(barcode.type);
        tools::Pieces pieces{tools::FrameBytes(0xEE, type, (part ? '\0' : '\xFF') + barcode.text)};
        if (link == kUsb) pieces = tools::UsbBarcode(type, barcode.text + (part ? "more" : ""));
        if (link == kUsb && part) pieces.pop_back();
        if (form == kBareText) pieces = {barcode.text};
        for (const std::string& piece : pieces) Device(link)->Deliver(piece);
    }
    // What the scanner has got, without what HID puts around it.
    std::vector<std::string> Packets(size_t link) {
        std::vector<std::string> packets = Device(link)->writes;
        for (std::string& block : packets) {
            if (link == kUsb) block = block.substr(2, static_cast<uint8_t>(block[1]));
        }
        return packets;
    }
    // Until the link's power thread has done what came of a look before; the next one may be under way.
    void AwaitLooks(size_t link) {
        const platform::DeviceClass first = m_Listed[link].deviceClass;
        const int64_t enough = tree.LooksAt(first) + 2;
        Await("looks at the devices", [&] { return tree.LooksAt(first) >= enough; });
    }
    // Of the handles nothing is left then: no thread, no open device, no claim but those told.
    void DestroyAndExpectNothingLeft(std::array<bool, kLinks> claimed) {
        Destroy(0);
        Destroy(1);
        Await("the end of all threads", [this] { return ThreadCount() <= m_ThreadsBefore; });
        for (const Link link : kBothLinks) {
            if (Device(link)->openNow != 0) throw std::runtime_error("a device is still open");
            Unplug(link);
            Plug(link);
            Device(link)->errors.open = 0;
            handles[0] = createScanner();
            const int32_t opened = Open(0, 0, link).result;
            Destroy(0);
            if (opened == (claimed[link] ? ResultClaimed : ResultSuccess)) continue;
            throw std::runtime_error("another handle gets " + std::to_string(opened) + " for " + kConnections[link]);
        }
    }

    FastClock clock{100};
    FakeDeviceTree tree;
    FakeDeviceAccess access;
    std::array<ScannerHandle, 2> handles{};
    std::array<size_t, 2> openers{};  // thread that opened each

  private:
    const std::array<FakeTreeDevice, kLinks> m_Listed{HidDevice("usb-1"), VirtualPortDevice(7)};
    const std::array<FakeDevice*, kLinks> m_Devices{&access.Device("usb-1"), &access.Port(7)};
    std::array<ThreadPool, 2> m_Threads;  // the application's
    size_t m_ThreadsBefore = 0;           // of the process, without the handles'
};

}  // namespace quillet::test

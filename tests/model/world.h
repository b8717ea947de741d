// Two scanners, one a link, and an application of two threads with two handles.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <ostream>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <quillet/quillet.h>

#include "support/eventually.h"
#include "support/fake_device_access.h"
#include "support/fake_device_tree.h"
#include "support/fast_clock.h"
#include "support/process.h"

namespace quillet::test {

enum Link : size_t { kUsb, kSerial, kLinks };
inline constexpr const char* kConnections[] = {"protocol=usb", "protocol=virtual serial port,serialport=7"};

struct Mismatch : std::runtime_error {
    using std::runtime_error::runtime_error;
};

template <typename Condition>
void Await(const std::string& what, Condition condition) {
    if (!Eventually(condition, std::chrono::seconds(5))) throw Mismatch("never seen: " + what);
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

// A thread of the application, for one call at a time.
class Caller {
  public:
    ~Caller() {
        m_Call = {};
        m_Given.release();
    }
    std::future<Told> Start(std::function<Told()> call) {
        m_Call = std::packaged_task<Told()>(std::move(call));
        std::future<Told> told = m_Call.get_future();
        m_Given.release();
        return told;
    }
    static inline thread_local bool isCurrent = false;

  private:
    void Run() {
        isCurrent = true;
        for (m_Given.acquire(); m_Call.valid(); m_Given.acquire()) std::exchange(m_Call, {})();
    }

    std::packaged_task<Told()> m_Call;  // an empty one ends the thread; handed over by m_Given
    std::binary_semaphore m_Given{0};
    std::jthread m_Thread{[this] { Run(); }};
};

// Counts the waits of the application's threads that have no limit.
struct WaitCounter : FastClock {
    using FastClock::FastClock;
    platform::WaitResult Wait(platform::Event& event, uint32_t timeoutMs) override {
        if (timeoutMs == platform::kNoLimitMs && Caller::isCurrent) ++endless;
        return FastClock::Wait(event, timeoutMs);
    }
    std::atomic<int> endless{0};
};

// Counts the looks at each link's first class: a power thread takes one after the other.
struct LookCounter : FakeDeviceTree {
    std::unique_ptr<platform::DeviceSet> OpenSet(platform::DeviceClass deviceClass) override {
        if (deviceClass == platform::DeviceClass::HidInterface) ++looks[kUsb];
        if (deviceClass == platform::DeviceClass::Ports) ++looks[kSerial];
        return FakeDeviceTree::OpenSet(deviceClass);
    }
    std::array<std::atomic<int>, kLinks> looks{};
};

// At first both scanners are plugged in, and no handle is open.
class World {
  public:
    World() {
        for (const Link link : {kUsb, kSerial}) tree.Plug(m_Listed[link]);
        for (ScannerHandle& handle : handles) handle = createScanner();
    }
    ~World() { Destroy(0), Destroy(1); }

    FakeDevice& Device(size_t link) { return *m_Devices[link]; }
    void Plug(size_t link) {
        Device(link).Plug();
        tree.Plug(m_Listed[link]);
    }
    // The device first: what is written at the loss goes nowhere.
    void Unplug(size_t link) {
        Device(link).Unplug();
        tree.Unplug(m_Listed[link].id);
    }
    // Out and in again before anybody looks.
    void Flicker(size_t link) {
        Device(link).Unplug();
        Device(link).Plug();
    }
    // Until the link's power thread has done what came of a look before; the next one may be under way.
    void AwaitLooks(size_t link) {
        const int enough = tree.looks[link] + 2;
        Await("looks at the devices", [&] { return tree.looks[link] >= enough; });
    }
    // What the scanner has got, without what HID puts around it.
    std::vector<std::string> Packets(size_t link) {
        std::vector<std::string> packets = Device(link).Writes();
        for (std::string& block : packets) {
            if (link == kUsb) block = block.substr(2, static_cast<uint8_t>(block[1]));
        }
        return packets;
    }

    std::future<Told> Start(size_t thread, size_t handle, std::function<Told(ScannerHandle)> call) {
        return m_Callers[thread].Start([called = handles[handle], call = std::move(call)] { return call(called); });
    }
    Told Call(size_t thread, size_t handle, std::function<Told(ScannerHandle)> call) {
        return Start(thread, handle, std::move(call)).get();
    }
    // On the thread that opened it.
    Told Destroy(size_t handle) {
        std::future<Told> told = Start(openers[handle], handle, destoryScanner);
        handles[handle] = nullptr;
        return told.get();
    }

    // Of the handles nothing is left once they are destroyed: no thread, no open device, no claim but those told.
    void DestroyAndExpectNothingLeft(std::array<bool, kLinks> claimed) {
        Destroy(0);
        Destroy(1);
        Await("the end of all threads", [this] { return ThreadCount() <= m_Threads; });
        for (const Link link : {kUsb, kSerial}) {
            if (Device(link).OpenNow() != 0) throw Mismatch("a device is still open");
            Unplug(link);
            Plug(link);
            Device(link).FailOpens(0);
            const ScannerHandle other = createScanner();
            const int32_t opened = openScanner(other, kConnections[link]);
            destoryScanner(other);
            if (opened == (claimed[link] ? ResultClaimed : ResultSuccess)) continue;
            throw Mismatch(std::string("another handle gets ") + std::to_string(opened) + " for " + kConnections[link]);
        }
    }

    WaitCounter clock{100};
    LookCounter tree;
    FakeDeviceAccess access;
    std::array<ScannerHandle, 2> handles{};
    std::array<size_t, 2> openers{};  // thread that opened each

  private:
    const std::array<FakeTreeDevice, kLinks> m_Listed{HidDevice("usb-1"), VirtualPortDevice(7)};
    const std::array<FakeDevice*, kLinks> m_Devices{&access.Device("usb-1"), &access.Port(7)};
    std::array<Caller, 2> m_Callers;
    const size_t m_Threads = ThreadCount();
};

}  // namespace quillet::test

// SPDX-License-Identifier: MIT
// A setting call from the service to the link, with a device that takes every write at once and keeps nothing: what the
// library itself costs above the write.
#include <benchmark/benchmark.h>
#include <memory>
#include <string>
#include <unistd.h>

#include "service/property.h"
#include "service/scanner.h"
#include "support/fake_device_tree.h"

namespace {

using namespace quillet;

class NullReader : public platform::DeviceReader {
  public:
    platform::IoStart Start(uint8_t*, uint32_t) override { return {platform::IoState::Pending}; }
    platform::ReadWait Wait(const platform::StopSignal& stop) override {
        stop.Wait(platform::kNoLimitMs);
        return platform::ReadWait::Stopped;
    }
    platform::IoFinish Finish() override { return {}; }
    uint32_t LastError() const override { return 0; }
};

class NullFile : public platform::DeviceFile {
  public:
    uint32_t GetSerialSettings(platform::SerialSettings&) override { return 0; }
    uint32_t SetSerialSettings(const platform::SerialSettings&) override { return 0; }
    uint32_t SetSerialTimeouts(const platform::SerialTimeouts&) override { return 0; }
    std::unique_ptr<platform::DeviceReader> NewReader() override { return std::make_unique<NullReader>(); }
    platform::WriteResult Write(std::string_view bytes, const platform::WriteEnd&) override {
        return {platform::WriteResult::Outcome::Written, static_cast<uint32_t>(bytes.size()), 0};
    }
};

class NullAccess : public platform::DeviceAccess {
  public:
    platform::OpenResult Open(const std::string&, platform::Sharing) override {
        return {std::make_unique<NullFile>(), 0};
    }
};

void BM_SettingToTheLink(benchmark::State& state) {
    test::FakeDeviceTree tree;
    NullAccess access;
    platform::ReplaceDeviceAccess(&access);
    {
        CScanner scanner;
        const std::string port = std::to_string(1 + getpid() % 90);
        if (scanner.Open("protocol=serial port,serialport=" + port) != 0 || scanner.ClaimDevice(1000) != 0 ||
            scanner.SetPropertyNumber(PropDeviceEnabled, 1) != 0) {
            state.SkipWithError("the service can't be enabled");
        }
        for (auto _ : state) {
            CommandPacket packet(0x40, std::string("\x0B\x01", 2));
            benchmark::DoNotOptimize(scanner.SendPacket(packet));
        }
    }
    platform::ReplaceDeviceAccess(nullptr);
}
BENCHMARK(BM_SettingToTheLink);

}  // namespace

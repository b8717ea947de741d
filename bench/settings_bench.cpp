// SPDX-License-Identifier: MIT
// What a setting code and a setting call cost, without the way to a device: a code should stay under 300 ns,
// a call under 5 us.
#include <benchmark/benchmark.h>
#include <cstdint>

#include <quillet/quillet.h>

#include "api/handle_calls.h"

namespace quillet {

int32_t SendOnHandle(void*, CommandPacket& packet) noexcept {
    benchmark::DoNotOptimize(ToHidBlock(ToWireBytes(packet)));
    return ResultSuccess;
}

}  // namespace quillet

namespace {

void BM_SettingCode(benchmark::State& state, int32_t id) {
    const uint8_t value[] = {1, 13};
    uint8_t buffer[64];
    int32_t length = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(getBarCodeCmd(id, value, sizeof buffer, buffer, &length));
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(BM_SettingCode, OneByteNumber, 35);
BENCHMARK_CAPTURE(BM_SettingCode, TwoByteNumber, 30);
BENCHMARK_CAPTURE(BM_SettingCode, ControlCharacter, 148);

void BM_SettingListCode(benchmark::State& state) {
    uint8_t buffer[256];
    int32_t length = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(getQRBarCodeCmd("# \x01,$ \x01,} A B", sizeof buffer, buffer, &length));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_SettingListCode);

void BM_SettingCall(benchmark::State& state) {
    int handle = 0;
    uint8_t on = 0;
    for (auto _ : state) benchmark::DoNotOptimize(setCode39(&handle, on ^= 1));
}
BENCHMARK(BM_SettingCall);

}  // namespace

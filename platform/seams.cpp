// SPDX-License-Identifier: MIT
// The three replaceable services of the system, each one word that tests swap.
#include <atomic>

#include "platform/clock.h"
#include "platform/device_access.h"
#include "platform/device_tree.h"

namespace quillet::platform {
namespace {

std::atomic<Clock*> g_Clock{nullptr};
std::atomic<DeviceAccess*> g_DeviceAccess{nullptr};
std::atomic<DeviceTree*> g_DeviceTree{nullptr};

}  // namespace

Clock& TheClock() noexcept {
    Clock* replaced = g_Clock.load(std::memory_order_acquire);
    return replaced != nullptr ? *replaced : SystemClock();
}

void ReplaceClock(Clock* clock) noexcept {
    g_Clock.store(clock, std::memory_order_release);
}

DeviceAccess& TheDeviceAccess() {
    DeviceAccess* replaced = g_DeviceAccess.load(std::memory_order_acquire);
    return replaced != nullptr ? *replaced : SystemDeviceAccess();
}

void ReplaceDeviceAccess(DeviceAccess* access) noexcept {
    g_DeviceAccess.store(access, std::memory_order_release);
}

DeviceTree& TheDeviceTree() {
    DeviceTree* replaced = g_DeviceTree.load(std::memory_order_acquire);
    return replaced != nullptr ? *replaced : SystemDeviceTree();
}

void ReplaceDeviceTree(DeviceTree* tree) noexcept {
    g_DeviceTree.store(tree, std::memory_order_release);
}

}  // namespace quillet::platform

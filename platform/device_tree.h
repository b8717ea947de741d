// SPDX-License-Identifier: MIT
// The devices that the system shows, by class; replaceable in tests. Looking never opens a device.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace quillet::platform {

// The classes that are searched; the names and identifiers are Windows', where each is a set of its own. Another system
// gives its serial ports in Ports, its HID devices in HidInterface, and empty sets for the rest.
enum class DeviceClass { Ports, Modem, ComPortInterface, ModemInterface, HidInterface };

enum class DeviceProperty { Description, Manufacturer };

// A value of a device's own key.
struct KeyValue {
    enum class Kind { None, Text, Number };
    Kind kind = Kind::None;
    std::string text;
    uint32_t number = 0;
};

enum class InterfaceStep {
    Selected,
    End,    // no interface of this index or any higher one
    Failed  // this index can't be had; the next may
};

// The devices of one class as they were when the set was opened. One device and one interface are selected at
// a time; everything else asks about these. Texts that can't be read are empty. Used by one thread.
class DeviceSet {
  public:
    virtual ~DeviceSet() = default;

    // Selects the device of an index; false at the end of the set.
    virtual bool SelectDevice(size_t index) = 0;
    virtual KeyValue ReadKeyValue(const char* name) = 0;
    virtual std::string ReadProperty(DeviceProperty property) = 0;
    // Instance ID of the selected device and of its parent, in the system's own case.
    virtual std::string DeviceId() = 0;
    virtual std::string ParentId() = 0;

    // Selects the interface of an index, for HID sets.
    virtual InterfaceStep SelectInterface(size_t index) = 0;
    // Path that opens the selected interface; false if the system doesn't tell.
    virtual bool InterfacePath(std::string& path) = 0;
    // Instance ID of the device of the selected interface; false if the system doesn't tell.
    virtual bool InterfaceDeviceId(std::string& id) = 0;
};

// What a look at one device alone told.
struct QuickLook {
    enum class Outcome {
        NotFound,  // only a set tells whether the class has it
        Found,     // a set opened now would have it
        Failed     // no file descriptor or no memory for it: nothing is known
    };
    Outcome outcome = Outcome::NotFound;
    std::string deviceId;  // instance ID of a HID device that was found
};

class DeviceTree {
  public:
    virtual ~DeviceTree() = default;
    // Any thread may call these. Null if the class can't be searched.
    virtual std::unique_ptr<DeviceSet> OpenSet(DeviceClass deviceClass) = 0;
    // Looks at one device of the Ports class, by its port name, or of the HidInterface class, by its interface path,
    // at a small part of a set's cost where the system knows a way, as for who asks ten times a second.
    virtual QuickLook LookFor(DeviceClass /*deviceClass*/, const std::string& /*device*/) { return {}; }
};

// The tree in use: the system's, unless a test has put one of its own in its place. Made on first use:
// std::bad_alloc if there is no memory then, and the next use tries again.
DeviceTree& TheDeviceTree();
// Null puts the system's back. The caller keeps the object alive until then and sees to it that nobody is looking.
void ReplaceDeviceTree(DeviceTree* tree) noexcept;

// Given by the operating system's folder; throws as TheDeviceTree.
DeviceTree& SystemDeviceTree();

}  // namespace quillet::platform

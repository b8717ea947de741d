// SPDX-License-Identifier: MIT
#include "platform/device_tree.h"

#include <fcntl.h>
#include <functional>
#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/device_path.h"
#include "platform/linux/linux_device_access.h"
#include "platform/linux/linux_device_tree.h"
#include "platform/linux/unique_fd.h"
#include "support/linux/no_descriptors.h"
#include "support/temp_tree.h"

namespace quillet::test {
using namespace platform;
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A tree as the kernel lays it: folders of devices, and classes of links into them.
class DeviceTreeTest : public testing::Test {
  protected:
    DeviceTreeTest() { umask(022); }  // what all may write to isn't trusted

    void AddTty(const std::string& name, const std::string& folder, const std::string& type = "") {
        m_Tree.Write("sys/devices/" + folder + "/tty/" + name + "/type", type);
        m_Tree.Link("sys/devices/" + folder + "/tty/" + name + "/device", m_Tree.Path("sys/devices/" + folder));
        m_Tree.Link("sys/class/tty/" + name, "../../devices/" + folder + "/tty/" + name);
    }

    void AddUsb(const std::string& folder, const std::string& product, const std::string& serial) {
        const std::string path = "sys/devices/" + folder + "/";
        m_Tree.Write(path + "idVendor", "18d1\n");
        m_Tree.Write(path + "idProduct", product + "\n");
        m_Tree.Write(path + "busnum", "1\n");
        m_Tree.Write(path + "devpath", "2.4\n");
        m_Tree.Write(path + "product", "Scanner\n");
        m_Tree.Write(path + "manufacturer", "Maker\n");
        if (!serial.empty()) m_Tree.Write(path + "serial", serial + "\n");
    }

    void AddHidraw(const std::string& name, const std::string& id, const std::string& phys, const std::string& uniq) {
        const std::string device = "sys/devices/usb1/1-3/1-3:1.0/" + name + "-device";
        m_Tree.Write(device + "/uevent", "DRIVER=hid-generic\nHID_ID=" + id + "\nHID_NAME=Maker Scanner\nHID_PHYS=" +
                                             phys + "\nHID_UNIQ=" + uniq + "\nMODALIAS=hid:b0003\n");
        m_Tree.Link("sys/class/hidraw/" + name + "/device", m_Tree.Path(device));
    }

    // One line a device: what the set tells of it.
    std::vector<std::string> Lines(DeviceClass deviceClass) {
        const bool ports = deviceClass == DeviceClass::Ports;
        const auto set = m_System.OpenSet(deviceClass);
        std::vector<std::string> lines;
        for (size_t i = 0; set->SelectDevice(i); ++i) {
            const KeyValue name = set->ReadKeyValue("PortName");
            std::string path;
            std::string id;
            EXPECT_EQ(name.kind, ports ? KeyValue::Kind::Text : KeyValue::Kind::None);
            EXPECT_EQ(set->ReadKeyValue("PortNumber").kind, KeyValue::Kind::None);
            EXPECT_EQ(set->SelectInterface(i), ports ? InterfaceStep::End : InterfaceStep::Selected);
            EXPECT_NE(set->InterfacePath(path) && set->InterfaceDeviceId(id), ports);
            EXPECT_EQ(id, ports ? "" : set->DeviceId());
            lines.push_back((ports ? name.text : path) + " " + set->DeviceId() + " " +
                            (ports ? set->ParentId() + " " : "") + set->ReadProperty(DeviceProperty::Description) +
                            "/" + set->ReadProperty(DeviceProperty::Manufacturer));
        }
        EXPECT_EQ(set->SelectInterface(lines.size()), InterfaceStep::End);
        return lines;
    }
    std::vector<std::string> Ports() { return Lines(DeviceClass::Ports); }
    std::vector<std::string> Hids() { return Lines(DeviceClass::HidInterface); }

    std::string Register(const std::string& directory, const std::string& name, const std::string& content) {
        return m_Tree.Write(directory + "/devices/" + name, content);
    }

    std::string FileOf(const std::string& path) { return FileOfDevicePath(m_Roots, path); }

    QuickLook::Outcome Look(DeviceClass deviceClass, const std::string& device) {
        return m_System.LookFor(deviceClass, device).outcome;
    }

    // In place of the lock that an open file had.
    static void Lock(const UniqueFd& file, short type, off_t size = 0) {
        struct flock lock {};
        lock.l_type = F_UNLCK;
        EXPECT_EQ(fcntl(file.Get(), F_OFD_SETLK, &lock), 0);
        lock.l_type = type;
        lock.l_len = size;
        EXPECT_EQ(fcntl(file.Get(), F_OFD_SETLK, &lock), 0);
    }

    const TempTree m_Tree;
    const LinuxRoots m_Roots{
        m_Tree.Path("sys"), m_Tree.Path("dev"), {m_Tree.Path("run/devices"), m_Tree.Path("user/devices")}};
    LinuxDeviceTree m_System{m_Roots};
};

TEST_F(DeviceTreeTest, KernelPortsInOrderOfTheirNumbers) {
    AddUsb("usb1/1-2", "0009", "SN\\1\x01 x");
    AddTty("ttyACM1", "usb1/1-2/1-2:1.0");
    AddUsb("usb1/1-2.4", "00ab", "");
    AddTty("ttyUSB31", "usb1/1-2.4/1-2.4:1.0/ttyUSB31");
    AddTty("ttyS10", "pnp0/00:05", "4\n");
    AddTty("ttyS2", "pnp0/00:04", "4\n");
    AddTty("ttyS3", "platform/serial8250", "0\n");
    for (const char* other : {"ttyS32", "ttyS", "ttyS02", "ttyS1x", "ttyACM99999999999", "tty7", "console", "ptmx"}) {
        AddTty(other, "virtual", "4\n");
    }
    EXPECT_THAT(Ports(), ElementsAre("COM3 ACPI\\PNP0501\\3  /", "COM11 ACPI\\PNP0501\\11  /",
                                     "COM64 USB\\VID_18D1&PID_00AB\\1-2.4 USB\\ROOT_HUB\\1 Scanner/Maker",
                                     "COM66 USB\\VID_18D1&PID_0009\\SN_1_ x USB\\ROOT_HUB\\1 Scanner/Maker"));
}

TEST_F(DeviceTreeTest, KernelHidDevicesAreFoundAgainByIdentityAndPlace) {
    m_Tree.Write("sys/devices/usb1/1-3/manufacturer", "Maker\n");
    const std::string scanner = "0003:000018D1:0000010B";
    AddHidraw("hidraw10", scanner, "usb-0000:00:14.0-3/input0", "SN7");
    AddHidraw("hidraw2", "0005:000018d1:0000010b", "12:34", "aa:bb");
    AddHidraw("hidraw3", "0003:00000001:00000002", "", "");
    AddHidraw("hidraw4", "nonsense", "usb-9", "");
    AddHidraw("hidraw5", scanner, "hub", "SN8");
    AddHidraw("hidraw6", scanner, "hub", "");
    AddHidraw("hidraw7", "0003:00000001:00000002", "hub", "");
    EXPECT_THAT(Hids(), ElementsAre("hid:18D1:010B:uniq:aa:bb HID\\VID_18D1&PID_010B\\aa:bb Maker Scanner/Maker",
                                    "hid:0001:0002:node:hidraw3 HID\\VID_0001&PID_0002\\hidraw3 Maker Scanner/Maker",
                                    "hid:18D1:010B:uniq:SN8 HID\\VID_18D1&PID_010B\\SN8 Maker Scanner/Maker",
                                    "hid:18D1:010B:node:hidraw6 HID\\VID_18D1&PID_010B\\hidraw6 Maker Scanner/Maker",
                                    "hid:0001:0002:phys:hub HID\\VID_0001&PID_0002\\hidraw7 Maker Scanner/Maker",
                                    "hid:18D1:010B:phys:usb-0000:00:14.0-3/input0 "
                                    "HID\\VID_18D1&PID_010B\\SN7 Maker Scanner/Maker"));
    const std::pair<const char*, const char*> files[] = {
        {"hid:18D1:010B:phys:usb-0000:00:14.0-3/input0", "hidraw10"},
        {"hid:18D1:010B:uniq:aa:bb", "hidraw2"},
        {"hid:18D1:010B:phys:hub", "hidraw5"},  // of a time when the place was its own
        {"hid:18D1:010B:node:hidraw5", "hidraw5"},
        {"hid:0001:0002:phys:hub", "hidraw7"},
        {"hid:18D1:0009:phys:hub", nullptr},
        {"hid:18D1:010B:uniq:hub", nullptr},
        {"hid:18D1:010B:node:hidraw7", nullptr},  // another has the place by now
        {"hid:18D1:010B:phys:", nullptr},
        {"hid:18D1:010B:place:hub", nullptr},
        {"hid:hub", nullptr},
        {"hid:", nullptr},
    };
    for (const auto& [path, node] : files) {
        EXPECT_EQ(FileOf(path), node != nullptr ? m_Tree.Path(std::string("dev/") + node) : "") << path;
    }
}

TEST_F(DeviceTreeTest, RegisteredDevicesComeFirstInByteOrderAndHideKernelPorts) {
    AddTty("ttyS0", "pnp0/00:04", "4\n");
    AddTty("ttyS1", "pnp0/00:05", "4\n");
    AddHidraw("hidraw0", "0003:000018D1:0000010B", "usb-1", "");
    Register("user", "a.device", "class=serial\nport=COM98\npath=/dev/pts/98\n");
    Register("run", "b.device", "class=serial\nport=COM1\npath=/dev/pts/1");
    Register("run", "a\xFF.device",
             "# comment\n\nclass=serial\nport=COM97\npath=/dev/pts/97\ninstance=USB\\VID_18D1&PID_0009\\x=y\n"
             "parent=USB\\ROOT_HUB\\1\ndescription=A scanner\nmanufacturer=M\ncolour=red\n#port=COM5\nnonsense\n");
    Register("run", "C.device", "class=hid\npath=/run/scanner\ndescription=H\n");
    EXPECT_THAT(Ports(), ElementsAre("COM97 USB\\VID_18D1&PID_0009\\x=y USB\\ROOT_HUB\\1 A scanner/M",
                                     "COM1 ROOT\\PORTS\\b  /", "COM98 ROOT\\PORTS\\a  /", "COM2 ACPI\\PNP0501\\2  /"));
    const std::string registered = "registered:" + m_Tree.Path("run/devices/C.device");
    EXPECT_THAT(Hids(), ElementsAre(registered + " ROOT\\HID\\C H/",
                                    "hid:18D1:010B:phys:usb-1 HID\\VID_18D1&PID_010B\\hidraw0 Maker Scanner/"));

    EXPECT_EQ(FileOf("\\\\.\\COM1"), "/dev/pts/1");
    EXPECT_EQ(FileOf("\\\\.\\COM2"), m_Tree.Path("dev/ttyS1"));
    EXPECT_EQ(FileOf("\\\\.\\COM40"), m_Tree.Path("dev/ttyUSB7")) << "whether or not it is listed";
    EXPECT_EQ(FileOf("\\\\.\\COM96"), m_Tree.Path("dev/ttyACM31"));
    EXPECT_EQ(FileOf("\\\\.\\COM97"), "/dev/pts/97");
    for (const char* nothing : {"", "\\\\.\\COM99", "\\\\.\\COM0", "\\\\.\\COM", "\\\\.\\COM02", "ttyS0"}) {
        EXPECT_EQ(FileOf(nothing), "") << nothing;
    }
    EXPECT_EQ(FileOf(registered), "/run/scanner");
    std::filesystem::remove(m_Tree.Path("run/devices/C.device"));
    EXPECT_EQ(FileOf(registered), "");
}

TEST_F(DeviceTreeTest, RegistrationsWithALockCountWhileItIsHeld) {
    const std::string path = Register("run", "a.device", "class=serial\nport=COM97\npath=/dev/pts/1\nlock=a.lock\n");
    Register("run", "b.device", "class=hid\npath=/run/scanner\nlock=../devices/a.lock\n");
    const auto counts = [&] {
        const bool listed = !Ports().empty();
        EXPECT_EQ(FileOf("\\\\.\\COM97") == "/dev/pts/1", listed);
        EXPECT_EQ(Look(DeviceClass::Ports, "COM97") == QuickLook::Outcome::Found, listed);
        return listed;
    };
    EXPECT_FALSE(counts()) << "no such file";
    const std::string file = m_Tree.Write("run/devices/a.lock", "");
    EXPECT_FALSE(counts()) << "held by nobody";
    const UniqueFd holder(open(file.c_str(), O_RDWR | O_CLOEXEC));
    Lock(holder, F_WRLCK);
    EXPECT_TRUE(counts());
    EXPECT_THAT(Hids(), IsEmpty()) << "a lock lies beside its registration";
    Lock(holder, F_RDLCK);
    EXPECT_FALSE(counts()) << "held for reading";
    Lock(holder, F_WRLCK, 1);
    EXPECT_FALSE(counts()) << "not on the whole file";
    Lock(holder, F_WRLCK);
    std::filesystem::rename(file, m_Tree.Path("elsewhere.lock"));
    m_Tree.Link("run/devices/a.lock", m_Tree.Path("elsewhere.lock"));
    EXPECT_FALSE(counts()) << "a link";
}

TEST_F(DeviceTreeTest, LooksWithoutADescriptorTellTheLastSet) {
    if (kSanitizerNeedsDescriptors) GTEST_SKIP() << "the sanitizer needs descriptors itself";
    AddTty("ttyACM0", "usb1/1-2/1-2:1.0");
    AddHidraw("hidraw0", "0003:000018D1:0000010B", "usb-1", "");
    Register("run", "a.device", "class=serial\nport=COM97\npath=/dev/pts/1\n");
    LinuxDeviceAccess access(m_Roots);
    {
        const NoDescriptors none;
        EXPECT_THAT(Ports(), IsEmpty());
    }
    EXPECT_EQ(Ports().size(), 2U);
    EXPECT_EQ(Hids().size(), 1U);
    std::filesystem::remove(m_Tree.Path("sys/class/tty/ttyACM0"));
    for (int room = 0; room < 3; ++room) {  // a walk has two open at a time
        const NoDescriptors none(room);
        EXPECT_EQ(Ports().size(), room < 2 ? 2U : 1U) << room;
        EXPECT_EQ(Hids().size(), 1U) << room;
    }
    const NoDescriptors none;
    EXPECT_EQ(Look(DeviceClass::Ports, "COM97"), QuickLook::Outcome::Failed);
    EXPECT_EQ(Look(DeviceClass::HidInterface, "hid:18D1:010B:phys:usb-1"), QuickLook::Outcome::Failed);
    EXPECT_EQ(access.Open("\\\\.\\COM97", Sharing::Exclusive).error, static_cast<uint32_t>(EMFILE));
}

// Each answer is the one that a walk would give.
TEST_F(DeviceTreeTest, QuickLooks) {
    using Outcome = QuickLook::Outcome;
    AddTty("ttyS2", "pnp0/00:04", "4\n");
    AddTty("ttyS3", "platform/serial8250", "0\n");
    AddTty("ttyACM0", "usb1/1-2/1-2:1.0");
    AddHidraw("hidraw0", "0003:000018D1:0000010B", "usb-1", "SN");
    Register("run", "p.device", "class=serial\nport=COM4\npath=/dev/pts/1\n");
    Register("run", "h.device", "class=hid\npath=/run/scanner\ninstance=HID\\VID_18D1&PID_010B\\7\n");
    const std::string kernel = "hid:18D1:010B:phys:usb-1";
    const std::string registered = "registered:" + m_Tree.Path("run/devices/h.device");
    EXPECT_EQ(Look(DeviceClass::Ports, "COM4"), Outcome::NotFound) << "before the first walk";
    Ports();
    Hids();
    for (const char* port : {"COM3", "COM4", "COM65"}) EXPECT_EQ(Look(DeviceClass::Ports, port), Outcome::Found);
    for (const char* port : {"COM2", "COM66", "COM99", ""}) {
        EXPECT_EQ(Look(DeviceClass::Ports, port), Outcome::NotFound);
    }
    EXPECT_EQ(m_System.LookFor(DeviceClass::HidInterface, kernel).deviceId, "HID\\VID_18D1&PID_010B\\SN");
    EXPECT_EQ(m_System.LookFor(DeviceClass::HidInterface, registered).deviceId, "HID\\VID_18D1&PID_010B\\7");
    EXPECT_EQ(Look(DeviceClass::HidInterface, ""), Outcome::NotFound);

    AddTty("ttyACM1", "usb1/1-3/1-3:1.0");
    std::filesystem::remove(m_Tree.Path("sys/class/tty/ttyACM0"));
    Register("run", "p.device", "class=serial\nport=COM5\npath=/dev/pts/1\n");
    Register("run", "h.device", "class=hid\npath=/run/scanner\ninstance=HID\\VID_0001&PID_0002\\7\n");
    std::filesystem::remove(m_Tree.Path("sys/class/hidraw/hidraw0/device"));
    EXPECT_EQ(Look(DeviceClass::Ports, "COM66"), Outcome::Found);
    for (const char* port : {"COM4", "COM65"}) EXPECT_EQ(Look(DeviceClass::Ports, port), Outcome::NotFound);
    EXPECT_EQ(Look(DeviceClass::HidInterface, kernel), Outcome::NotFound);
    EXPECT_EQ(m_System.LookFor(DeviceClass::HidInterface, registered).deviceId, "HID\\VID_0001&PID_0002\\7");
}

TEST_F(DeviceTreeTest, BrokenRegistrationFilesAreLeftOut) {
    const std::string good = "class=serial\nport=COM97\npath=/dev/pts/1\n";
    const std::string filler(4096 - good.size() - 1, '#');
    Register("run", "full.device", good + filler + "\n");
    Register("run", "oversize.device", good + filler + "#\n");
    Register("run", "no-class.device", "port=COM97\npath=/dev/pts/1\n");
    Register("run", "other-class.device", "class=usb\nport=COM97\npath=/dev/pts/1\n");
    Register("run", "no-port.device", "class=serial\npath=/dev/pts/1\n");
    Register("run", "no-path.device", "class=serial\nport=COM97\n");
    Register("run", "relative.device", "class=serial\nport=COM97\npath=pts/1\n");
    Register("run", "zero.device", good + std::string(1, '\0'));
    Register("run", "hid-no-path.device", "class=hid\n");
    Register("run", "name.devices", good);
    m_Tree.Link("run/devices/link.device", m_Tree.Write("elsewhere.device", good));
    std::filesystem::create_directory(m_Tree.Path("run/devices/folder.device"));
    ASSERT_EQ(mkfifo(m_Tree.Path("run/devices/pipe.device").c_str(), 0600), 0);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(Register("run", "foreign.device", good).c_str(), 12345, 12345), 0);
    }
    EXPECT_THAT(Ports(), ElementsAre("COM97 ROOT\\PORTS\\full  /"));
    EXPECT_THAT(Hids(), IsEmpty());
}

TEST_F(DeviceTreeTest, DirectoriesThatOthersCouldHaveFilledAreIgnored) {
    const std::string parent = m_Tree.Path("run");
    const std::string directory = m_Tree.Path("run/devices");
    const auto swapForLink = [](const std::string& path) {
        std::filesystem::rename(path, path + ".real");
        std::filesystem::create_symlink(path + ".real", path);
    };
    std::vector<std::function<void()>> breaks = {
        [&] { chmod(directory.c_str(), 0775); }, [&] { chmod(directory.c_str(), 01757); },
        [&] { chmod(parent.c_str(), 0775); },    [&] { chmod(parent.c_str(), 01777); },
        [&] { swapForLink(directory); },         [&] { swapForLink(parent); },
    };
    if (geteuid() == 0) {
        breaks.push_back([&] { EXPECT_EQ(chown(directory.c_str(), 12345, 0), 0); });
        breaks.push_back([&] { EXPECT_EQ(chown(parent.c_str(), 12345, 0), 0); });
    }
    for (size_t i = 0; i < breaks.size(); ++i) {
        Register("run", "a.device", "class=serial\nport=COM97\npath=/dev/pts/1\n");
        EXPECT_EQ(Ports().size(), 1U) << i;
        breaks[i]();
        EXPECT_THAT(Ports(), IsEmpty()) << i;
        EXPECT_EQ(FileOf("\\\\.\\COM97"), "") << i;
        std::filesystem::remove_all(parent);
        std::filesystem::remove_all(parent + ".real");
    }
}

}  // namespace
}  // namespace quillet::test

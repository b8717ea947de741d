// SPDX-License-Identifier: MIT
// Listing 100 ttys and 100 hidraw nodes, beside libserialport, hidapi and a plain walk that reads the same files. The
// devices are a tree of files, shown to all of them as /sys in a mount namespace of this process.
#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <hidapi/hidapi.h>
#include <libserialport.h>
#include <sched.h>
#include <string>
#include <string_view>
#include <sys/mount.h>
#include <unistd.h>
#include <vector>

#include "platform/linux/linux_device_tree.h"
#include "transport/port_discovery.h"

namespace {

using namespace quillet;

constexpr size_t kTtysOfAKind = 32;  // as many as have a port number
constexpr size_t kKinds = 3;
constexpr int kTerminals = 4;  // ttys that are no ports
constexpr int kHids = 100;
constexpr char kSys[] = "/sys";

// A folder as the kernel lays it: devices, and classes of links into them.
class SysTree {
  public:
    SysTree() : m_Root(std::filesystem::temp_directory_path() / ("quillet-listing-" + std::to_string(::getpid()))) {
        for (int i = 0; i < kTerminals; ++i) AddTty("tty" + std::to_string(i), "devices/virtual", "");
        for (size_t i = 0; i < kTtysOfAKind; ++i) {
            const std::string number = std::to_string(i);
            AddTty("ttyS" + number, "devices/pnp0/00:" + number, "../../../00:" + number);
            Write(std::string("devices/pnp0/00:").append(number).append("/tty/ttyS").append(number).append("/type"),
                  "4\n");
            const std::string acm = AddUsbDevice("0009");
            AddTty("ttyACM" + number, acm, "../../../" + Name(acm));
            const std::string usb = AddUsbDevice("6001") + "/ttyUSB" + number;
            AddTty("ttyUSB" + number, usb, "../../../ttyUSB" + number);
        }
        for (int i = 0; i < kHids; ++i) AddHidraw("hidraw" + std::to_string(i));
    }
    ~SysTree() {
        std::error_code ignored;
        std::filesystem::remove_all(m_Root, ignored);
    }
    SysTree(const SysTree&) = delete;
    SysTree& operator=(const SysTree&) = delete;

    const std::filesystem::path& Root() const { return m_Root; }

  private:
    static std::string Name(const std::string& path) { return path.substr(path.rfind('/') + 1); }

    void Write(const std::string& name, const std::string& content) const {
        std::filesystem::create_directories((m_Root / name).parent_path());
        std::ofstream(m_Root / name) << content;
    }
    void Link(const std::string& name, const std::filesystem::path& target) const {
        const auto folder = (m_Root / name).parent_path();
        std::filesystem::create_directories(folder);
        const auto seen =
            target.is_absolute() ? target.lexically_relative("/" / folder.lexically_relative(m_Root)) : target;
        std::filesystem::create_symlink(seen, m_Root / name);
    }

    // The folder of its one interface.
    std::string AddUsbDevice(const std::string& product) {
        const std::string place = std::to_string(++m_UsbDevices);
        const std::string device = "devices/pci0000:00/usb1/1-" + place;
        const std::string number = "DEVTYPE=usb_device\nPRODUCT=18d1/" + product + "/100\nBUSNUM=001\n";
        for (const auto& [name, value] : std::vector<std::pair<std::string, std::string>>{{"idVendor", "18d1"},
                                                                                          {"idProduct", product},
                                                                                          {"busnum", "1"},
                                                                                          {"devnum", place},
                                                                                          {"devpath", place},
                                                                                          {"bcdDevice", "0100"},
                                                                                          {"product", "Scanner"},
                                                                                          {"manufacturer", "Maker"},
                                                                                          {"serial", "S" + place}}) {
            Write(std::string(device).append("/").append(name), value + "\n");
        }
        Write(device + "/uevent", number);
        Link(device + "/subsystem", "/bus/usb");
        std::string interface = device + "/1-" + place + ":1.0";
        Write(interface + "/uevent", "DEVTYPE=usb_interface\n");
        Write(interface + "/bInterfaceNumber", "00\n");
        Link(interface + "/subsystem", "/bus/usb");
        std::filesystem::create_directories(m_Root / "bus/usb");
        return interface;
    }

    void AddTty(const std::string& name, const std::string& folder, const std::string& device) const {
        const std::string path = folder + "/tty/" + name;
        Write(path + "/uevent", "MAJOR=4\nMINOR=64\nDEVNAME=" + name + "\n");
        Write(path + "/dev", "4:64\n");
        Link(path + "/subsystem", "/class/tty");
        if (!device.empty()) Link(path + "/device", device);
        Link("class/tty/" + name, "/" + path);
    }

    void AddHidraw(const std::string& name) {
        char id[32];
        std::snprintf(id, sizeof id, "0003:18D1:010B.%04X", m_UsbDevices);
        const std::string interface = AddUsbDevice("010b");
        const std::string device = interface + "/" + id;
        Write(device + "/uevent",
              "DRIVER=hid-generic\nHID_ID=0003:000018D1:0000010B\nHID_NAME=Maker Scanner\n"
              "HID_PHYS=usb-0000:00:14.0-" +
                  Name(interface) + "/input0\nHID_UNIQ=S" + std::to_string(m_UsbDevices) +
                  "\nMODALIAS=hid:b0003g0001v000018D1p0000010B\n");
        Write(device + "/report_descriptor", "\x06\xB0\xFF\x09\x01\xA1\x01\xC0");
        Link(device + "/subsystem", "/bus/hid");
        std::filesystem::create_directories(m_Root / "bus/hid");
        const std::string path = device + "/hidraw/" + name;
        Write(path + "/uevent", "MAJOR=241\nMINOR=0\nDEVNAME=" + name + "\n");
        Write(path + "/dev", "241:0\n");
        Link(path + "/subsystem", "/class/hidraw");
        Link(path + "/device", std::string("../../../") + id);
        Link("class/hidraw/" + name, "/" + path);
    }

    const std::filesystem::path m_Root;
    int m_UsbDevices = 0;
};

// False where the system doesn't let this user.
bool ShowAsSys(const std::filesystem::path& root) {
    if (::unshare(CLONE_NEWNS) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
    return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount(root.c_str(), kSys, nullptr, MS_BIND, nullptr) == 0;
}

// The tree in place of the machine's devices, for as long as it lives.
class ShownTree {
  public:
    ShownTree() : m_Tree({kSys, "/dev", {"/run/quillet/devices", "/tmp/quillet-none/devices"}}) {
        platform::ReplaceDeviceTree(&m_Tree);
    }
    ~ShownTree() { platform::ReplaceDeviceTree(nullptr); }
    ShownTree(const ShownTree&) = delete;
    ShownTree& operator=(const ShownTree&) = delete;

  private:
    platform::LinuxDeviceTree m_Tree;
};

void Expect(benchmark::State& state, size_t found, size_t expected) {
    if (found != expected) state.SkipWithError(("found " + std::to_string(found)).c_str());
}

void BM_Ttys_Quillet(benchmark::State& state) {
    const ShownTree tree;
    size_t found = 0;
    for (auto _ : state) found = ListSerialPorts().size();
    Expect(state, found, kKinds * kTtysOfAKind);
}
BENCHMARK(BM_Ttys_Quillet);

void BM_Ttys_libserialport(benchmark::State& state) {
    size_t found = 0;
    for (auto _ : state) {
        sp_port** ports = nullptr;
        found = 0;
        if (sp_list_ports(&ports) != SP_OK) continue;
        while (ports[found] != nullptr) ++found;
        sp_free_port_list(ports);
    }
    Expect(state, found, kKinds * kTtysOfAKind);
}
BENCHMARK(BM_Ttys_libserialport);

void BM_Hids_Quillet(benchmark::State& state) {
    const ShownTree tree;
    size_t found = 0;
    for (auto _ : state) found = ListHidDevices().size();
    Expect(state, found, kHids);
}
BENCHMARK(BM_Hids_Quillet);

void BM_Hids_hidapi(benchmark::State& state) {
    size_t found = 0;
    for (auto _ : state) {
        hid_device_info* const devices = hid_enumerate(0, 0);
        found = 0;
        for (const hid_device_info* device = devices; device != nullptr; device = device->next) ++found;
        hid_free_enumeration(devices);
    }
    Expect(state, found, kHids);
}
BENCHMARK(BM_Hids_hidapi);

// The files that tell of a device, read as a program does that keeps no more than their texts.
std::string ReadText(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return {};
    std::array<char, 4096> text;
    const ssize_t size = ::read(fd, text.data(), text.size());
    ::close(fd);
    return size > 0 ? std::string(text.data(), static_cast<size_t>(size)) : std::string();
}

std::vector<std::string> NamesIn(const std::string& folder, std::string_view prefix) {
    std::vector<std::string> names;
    DIR* const directory = ::opendir(folder.c_str());
    if (directory == nullptr) return names;
    while (const dirent* entry =
               ::readdir(directory)) {  // NOLINT(concurrency-mt-unsafe): a stream of this thread alone
        if (std::string_view(entry->d_name).starts_with(prefix)) names.emplace_back(entry->d_name);
    }
    ::closedir(directory);
    return names;
}

using Texts = std::vector<std::string>;

void WalkTtys(std::vector<Texts>& devices) {
    for (const char* prefix : {"ttyS", "ttyACM", "ttyUSB"}) {
        for (const std::string& name : NamesIn("/sys/class/tty", prefix)) {
            const std::string path = "/sys/class/tty/" + name;
            Texts& texts = devices.emplace_back();
            if (name.starts_with("ttyS")) texts.push_back(ReadText(path + "/type"));
            std::string usb = path + "/device";
            for (int level = 0; level < 3 && (texts.empty() || texts.back().size() < 4); ++level) {
                texts.push_back(ReadText((usb += "/..") + "/idVendor"));
            }
            if (texts.back().empty()) continue;
            for (const char* file : {"/busnum", "/idProduct", "/serial", "/product", "/manufacturer"}) {
                texts.push_back(ReadText(usb + file));
            }
        }
    }
}

void WalkHids(std::vector<Texts>& devices) {
    for (const std::string& name : NamesIn("/sys/class/hidraw", "hidraw")) {
        const std::string path = "/sys/class/hidraw/" + name + "/device";
        devices.push_back({ReadText(path + "/uevent"), ReadText(path + "/../../manufacturer")});
    }
}

void BM_Walk(benchmark::State& state, void (*walk)(std::vector<Texts>&), size_t expected) {
    size_t found = 0;
    for (auto _ : state) {
        std::vector<Texts> devices;
        walk(devices);
        found = devices.size();
    }
    Expect(state, found, expected);
}
BENCHMARK_CAPTURE(BM_Walk, Ttys, WalkTtys, kKinds* kTtysOfAKind);
BENCHMARK_CAPTURE(BM_Walk, Hids, WalkHids, kHids);

// What the power thread of a link asks, about ten times a second.
void BM_OnePort_Quillet(benchmark::State& state) {
    const ShownTree tree;
    size_t found = 0;
    for (auto _ : state) found = FindSerialPort(70).size();
    Expect(state, found, 1);
}
BENCHMARK(BM_OnePort_Quillet);

}  // namespace

int main(int argc, char** argv) {
    // libudev believes in no /sys that isn't the kernel's, unless told to.
    ::setenv("SYSTEMD_DEVICE_VERIFY_SYSFS", "0", 1);  // NOLINT(concurrency-mt-unsafe): there is no other thread yet
    const SysTree tree;
    if (!ShowAsSys(tree.Root())) {
        std::fprintf(stderr, "skipped: this user may not make a mount namespace\n");
        return 77;
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}

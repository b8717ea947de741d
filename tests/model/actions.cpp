#include "model/actions.h"

#include <algorithm>
#include <utility>

#include "support/hex.h"
#include "tools/virtual_scanner/frames.h"

namespace quillet::test {
namespace {

const std::string kFramesOff = FromHex("04 EE 04 00 00 09");  // at each connecting and disconnecting
const std::string kAskVersion = FromHex("04 7E 04 00 00 79");
const std::string kAskCode39 = FromHex("05 D1 04 00 40 0B DA");

bool Exists(const Model& before, const Step& step) {
    return before.handles[step.handle].exists;
}
bool LinkIsConnected(const Model& before, const Step& step) {
    return before.IsConnected(step.link);
}

// A call that fills a buffer.
template <typename Call>
Told Filled(Call call) {
    Told told;
    uint8_t buffer[1024];
    int32_t length = 0;
    told.result = call(buffer, &length, told.type);
    told.text.assign(buffer, buffer + length);
    return told;
}

// ---- Opening and closing

constexpr const char* kOpenings[] = {kConnections[kUsb], kConnections[kSerial], "", "protocol=serial port,serialport=7",
                                     "protocol=serial port,serialport=x"};
enum OpenForm : size_t { kAnyScanner = 2, kUnlistedToo, kBadNumber };

const Action kOpen{{"openScanner usb", "openScanner virtual serial", "openScanner any", "openScanner serial",
                    "openScanner bad number"},
                   Exists,
                   [](Model& model, const Step& step) -> Told {
                       HandleModel& handle = model.handles[step.handle];
                       if (handle.connected) return {};
                       handle = HandleModel(true, step.thread);  // a lost scanner is given up first
                       if (step.form == kBadNumber) return {ResultOpenException};
                       const bool usb = step.form == kUsb || (step.form == kAnyScanner && model.links[kUsb].plugged);
                       const size_t number = usb ? kUsb : kSerial;
                       LinkModel& link = model.links[number];
                       if (!link.plugged && step.form != kUnlistedToo) return {ResultNoHardware};
                       if (link.claimLeft || model.Holder(number) != nullptr) return {ResultClaimed};
                       if (!link.plugged || link.denied) return {ResultNoHardware};
                       handle.link = number;
                       handle.connected = true;
                       link.packets.push_back(kFramesOff);
                       return {};
                   },
                   [](World& world, const Model& before, const Step& step) {
                       if (!before.handles[step.handle].connected) world.openers[step.handle] = step.thread;
                       return world.Call(step.thread, step.handle, [=](ScannerHandle handle) {
                           return openScanner(handle, kOpenings[step.form]);
                       });
                   },
                   {ResultSuccess, ResultClaimed, ResultDisabled, ResultNoHardware, ResultOpenException},
                   true};

const Action kClose{{"closeScanner"},
                    Exists,
                    [](Model& model, const Step& step) -> Told {
                        HandleModel& handle = model.handles[step.handle];
                        if (handle.link == kLinks) return {ResultClosed};
                        if (handle.connected) model.links[handle.link].packets.push_back(kFramesOff);
                        handle.Close();
                        return {};
                    },
                    [](World& world, const Model& before, const Step& step) {
                        return world.Call(before.handles[step.handle].opener, step.handle, closeScanner);
                    },
                    {ResultSuccess, ResultClosed},
                    true};

// On another thread than the opener's: the claim stays with that one.
const Action kCloseElsewhere{{"closeScanner elsewhere"},
                             Exists,
                             [](Model& model, const Step& step) {
                                 const size_t link = model.handles[step.handle].link;
                                 if (link != kLinks) model.links[link].claimLeft = true;
                                 return kClose.expect(model, step);
                             },
                             [](World& world, const Model& before, const Step& step) {
                                 return world.Call(1 - before.handles[step.handle].opener, step.handle, closeScanner);
                             },
                             {}};

const Action kDestroy{{"destoryScanner"},
                      Exists,
                      [](Model& model, const Step& step) {
                          kClose.expect(model, step);
                          model.handles[step.handle].exists = false;
                          return Told();
                      },
                      [](World& world, const Model&, const Step& step) { return world.Destroy(step.handle); },
                      {}};

const Action kCreate{{"createScanner"},
                     [](const Model& before, const Step& step) { return !Exists(before, step); },
                     [](Model& model, const Step& step) {
                         model.handles[step.handle].exists = true;
                         return Told();
                     },
                     [](World& world, const Model&, const Step& step) {
                         world.handles[step.handle] = createScanner();
                         return Told(world.handles[step.handle] == nullptr ? ResultFailure : ResultSuccess);
                     },
                     {}};

// ---- Barcodes

enum ScanForm : size_t { kShort, kLong, kFirstPart, kBareText };

// Each has a text of its own, which tells its type.
Told Barcode(int number, size_t form) {
    Told barcode(ResultSuccess, number % 2 == 0 ? 3 : 11, std::to_string(number) + ' ');
    if (form == kLong) barcode.text.resize(100, 'x');
    if (form == kFirstPart) barcode.text.resize(56, 'x');  // as much as a report holds
    if (form == kBareText) barcode.type = 0;
    return barcode;
}

tools::Pieces Pieces(const Told& barcode, const Step& step) {
    const auto type = static_cast<uint8_t>(barcode.type);
    if (step.form == kBareText) return {barcode.text};
    if (step.link == kUsb && step.form == kFirstPart) return {tools::UsbBarcode(type, barcode.text + "more")[0]};
    if (step.link == kUsb) return tools::UsbBarcode(type, barcode.text);
    return {tools::FrameBytes(0xEE, type, (step.form == kFirstPart ? '\0' : '\xFF') + barcode.text)};
}

const Action kScan{{"scan short", "scan long", "scan first part", "scan bare text"},
                   LinkIsConnected,
                   [](Model& model, const Step& step) {
                       HandleModel& handle = *model.Holder(step.link);
                       Told barcode = Barcode(model.scans++, step.form);
                       if (step.form != kBareText) barcode.text.insert(0, std::exchange(handle.part, {}));
                       if (step.form == kFirstPart) {
                           handle.part = barcode.text;
                       } else {
                           handle.waiting.push_back(barcode);
                       }
                       return Told();
                   },
                   [](World& world, const Model& before, const Step& step) {
                       for (const std::string& piece : Pieces(Barcode(before.scans, step.form), step)) {
                           world.Device(step.link).Deliver(piece);
                       }
                       return Told();
                   },
                   {ResultSuccess}};

enum TakeForm : size_t { kWhole, kWithoutType, kInto4Bytes };

Told Take(ScannerHandle handle, size_t form, int64_t timeoutMs) {
    return Filled([=](uint8_t* buffer, int32_t* length, int32_t& type) {
        return getBarCode(handle, form == kWithoutType ? nullptr : &type, buffer, form == kInto4Bytes ? 4 : 1024,
                          length, timeoutMs);
    });
}

const Action kTake{{"getBarCode", "getBarCode without type", "getBarCode into 4 bytes"},
                   Exists,
                   [](Model& model, const Step& step) -> Told {
                       std::deque<Told>& waiting = model.handles[step.handle].waiting;
                       if (waiting.empty()) return {ResultTimeout};
                       Told told = std::move(waiting.front());
                       waiting.pop_front();
                       if (step.form == kInto4Bytes && told.text.size() > 4) return {ResultBufferTooSmall, told.type};
                       if (step.form == kWithoutType) told.type = -1;
                       return told;
                   },
                   [](World& world, const Model&, const Step& step) {
                       return world.Call(step.thread, step.handle,
                                         [=](ScannerHandle handle) { return Take(handle, step.form, 0); });
                   },
                   {ResultSuccess, ResultBufferTooSmall, ResultTimeout}};

// ---- Settings and exchanges

const struct {
    int32_t (*call)(ScannerHandle handle);
    std::string packet;
    int32_t lost;  // results
    int32_t closed;
} kSettings[] = {
    {[](ScannerHandle handle) { return setCode39(handle, 1); }, FromHex("05 40 04 00 0B 01 AA"), 0, ResultNoExist},
    {[](ScannerHandle handle) { return setScannerPattern(handle, 1); }, FromHex("04 EE 04 00 01 08"), ResultDisabled,
     ResultDisabled},
    {[](ScannerHandle handle) { return CommandInteraction(handle, "AA BB"); }, FromHex("AA BB"), 0, 0},
};

const Action kSet{{"setCode39", "setScannerPattern", "CommandInteraction"},
                  Exists,
                  [](Model& model, const Step& step) -> Told {
                      const HandleModel& handle = model.handles[step.handle];
                      const auto& setting = kSettings[step.form];
                      if (!handle.connected) return {handle.link == kLinks ? setting.closed : setting.lost};
                      model.links[handle.link].packets.push_back(setting.packet);
                      return {};
                  },
                  [](World& world, const Model&, const Step& step) {
                      return world.Call(step.thread, step.handle, kSettings[step.form].call);
                  },
                  {ResultSuccess, ResultNoExist, ResultDisabled}};

// The first ones are directIO, the others QueryCommandSetting.
const struct {
    std::string reply;  // frame, if any comes
    Told told;
} kExchanges[] = {
    {"", {ResultTimeout}},
    {tools::FrameBytes(0x7E, 0x80, std::string("\0SN", 3)), {ResultSuccess, -1, "SN"}},
    {tools::FrameBytes(0xEE, 3, "\xFFlost"), {ResultSuccess, -1, "raw"}},  // a barcode
    {"", {ResultNoExist}},
    {tools::FrameBytes(0xE8, 0x80, "\x40on"), {ResultSuccess, -1, "on"}},
    {tools::FrameBytes(0xE8, 0x80, "\x41on"), {ResultFailure}},  // of another setting
};
constexpr size_t kFirstQuery = 3;

std::string ReplyBytes(size_t form, size_t link) {
    const std::string& frame = kExchanges[form].reply;
    return frame.empty() || link != kUsb ? frame : tools::UsbFrame(frame, 0)[0];
}

Told DirectIO(ScannerHandle handle, int64_t timeoutMs) {
    return Filled([=](uint8_t* buffer, int32_t* length, int32_t&) {
        return directIO(handle, reinterpret_cast<const uint8_t*>(kAskVersion.data()),
                        static_cast<int32_t>(kAskVersion.size()), buffer, 1024, length, timeoutMs);
    });
}

Told Query(ScannerHandle handle) {
    return Filled([=](uint8_t* buffer, int32_t* length, int32_t&) {
        return QueryCommandSetting(handle, 35, 1024, buffer, length);
    });
}

const Action kExchange{
    {"directIO silent", "directIO", "directIO interrupted by a barcode", "QueryCommandSetting silent",
     "QueryCommandSetting", "QueryCommandSetting answered wrong"},
    Exists,
    [](Model& model, const Step& step) -> Told {
        HandleModel& handle = model.handles[step.handle];
        const bool query = step.form >= kFirstQuery;
        if (!handle.connected) return {query ? ResultNoExist : ResultIllegal};
        model.links[handle.link].packets.push_back(query ? kAskCode39 : kAskVersion);
        handle.part.clear();
        Told told = kExchanges[step.form].told;
        if (told.text == "raw") told.text = ReplyBytes(step.form, handle.link);
        return told;
    },
    [](World& world, const Model& before, const Step& step) {
        const HandleModel& model = before.handles[step.handle];
        const std::string reply = model.connected ? ReplyBytes(step.form, model.link) : "";
        world.clock.patient = !reply.empty();
        std::future<Told> told = world.Start(step.thread, step.handle, [&](ScannerHandle handle) {
            return step.form >= kFirstQuery ? Query(handle) : DirectIO(handle, reply.empty() ? 100 : 2000);
        });
        if (!reply.empty()) {
            const size_t packets = before.links[model.link].packets.size();
            Await("an exchange's packet", [&] { return world.Packets(model.link).size() > packets; });
            world.Device(model.link).Deliver(reply);
        }
        told.wait();
        world.clock.patient = false;
        return told.get();
    },
    {ResultSuccess, ResultIllegal, ResultNoExist, ResultFailure, ResultTimeout}};

// ---- The scanner's comings and goings

// A handle that waits for it gets it back.
Told MayReturn(Model& model, size_t number) {
    LinkModel& link = model.links[number];
    HandleModel* holder = model.Holder(number);
    if (holder == nullptr || holder->connected || !link.plugged || link.denied) return {};
    holder->connected = true;
    link.packets.push_back(kFramesOff);
    return {};
}

const Action kPlug{{"plug"},
                   [](const Model& before, const Step& step) { return !before.links[step.link].plugged; },
                   [](Model& model, const Step& step) {
                       model.links[step.link].plugged = true;
                       return MayReturn(model, step.link);
                   },
                   [](World& world, const Model&, const Step& step) { return world.Plug(step.link), Told(); },
                   {ResultSuccess}};

const Action kUnplug{{"unplug"},
                     [](const Model& before, const Step& step) { return before.links[step.link].plugged; },
                     [](Model& model, const Step& step) {
                         model.links[step.link].plugged = false;
                         if (HandleModel* holder = model.Holder(step.link)) holder->connected = false;
                         return Told();
                     },
                     [](World& world, const Model&, const Step& step) { return world.Unplug(step.link), Told(); },
                     {ResultSuccess}};

// Out and in again before anybody looks: the state stays.
const Action kFlicker{{"flicker"},
                      [](const Model& before, const Step& step) {
                          return LinkIsConnected(before, step) && !before.links[step.link].denied;
                      },
                      [](Model& model, const Step& step) {
                          model.links[step.link].packets.push_back(kFramesOff);
                          return Told();
                      },
                      [](World& world, const Model&, const Step& step) { return world.Flicker(step.link), Told(); },
                      {ResultSuccess}};

// The rights on a device.
const Action kRights{
    {"deny", "allow", "allow"},
    [](const Model& before, const Step& step) { return before.links[step.link].denied == (step.form != 0); },
    [](Model& model, const Step& step) {
        model.links[step.link].denied = step.form == 0;
        return MayReturn(model, step.link);
    },
    [](World& world, const Model&, const Step& step) {
        return world.Device(step.link).FailOpens(step.form == 0 ? 13 : 0), Told();
    },
    {ResultSuccess}};

// ---- Calls that wait for ever, until something ends them on the thread that opened the handle

// The action that ends the call of a step.
Step EndOf(const Model& before, const Step& step, const Action& action) {
    const HandleModel& handle = before.handles[step.handle];
    return {&action, 0, step.handle, handle.opener, handle.link};
}

// On the other thread.
std::future<Told> StartEndless(World& world, const Step& end, std::function<Told(ScannerHandle)> call) {
    const int waits = world.clock.endless;
    std::future<Told> told = world.Start(1 - end.thread, end.handle, std::move(call));
    Await("an endless wait", [&] { return world.clock.endless > waits; });
    return told;
}

const Action* const kExchangeEnds[] = {&kClose, &kDestroy, &kUnplug, &kFlicker};

const Action kEndlessExchange{
    {"directIO, then closeScanner", "directIO, then destoryScanner", "directIO, then unplug", "directIO, then flicker"},
    [](const Model& before, const Step& step) {
        const Step end = EndOf(before, step, *kExchangeEnds[step.form]);
        return before.handles[step.handle].connected && end.action->allowed(before, end);
    },
    [](Model& model, const Step& step) -> Told {
        const Step end = EndOf(model, step, *kExchangeEnds[step.form]);
        model.handles[step.handle].part.clear();
        model.links[end.link].packets.push_back(kAskVersion);
        end.action->expect(model, end);
        return {ResultTimeout};
    },
    [](World& world, const Model& before, const Step& step) {
        const Step end = EndOf(before, step, *kExchangeEnds[step.form]);
        std::future<Told> told = StartEndless(world, end, [](ScannerHandle handle) { return DirectIO(handle, -1); });
        const Told second =
            world.Call(end.thread, end.handle, [](ScannerHandle handle) { return DirectIO(handle, 100); });
        end.action->run(world, before, end);
        if (second.result != ResultIllegal) throw Mismatch("two exchanges at a time");
        return told.get();
    },
    {}};

const Action* const kTakeEnds[] = {&kScan, &kDestroy};

const Action kEndlessTake{
    {"getBarCode, then a barcode", "getBarCode, then destoryScanner"},
    [](const Model& before, const Step& step) {
        const HandleModel& handle = before.handles[step.handle];
        return handle.exists && handle.waiting.empty() && (handle.connected || kTakeEnds[step.form] == &kDestroy);
    },
    [](Model& model, const Step& step) {
        const Step end = EndOf(model, step, *kTakeEnds[step.form]);
        end.action->expect(model, end);
        return kTake.expect(model, end);
    },
    [](World& world, const Model& before, const Step& step) {
        const Step end = EndOf(before, step, *kTakeEnds[step.form]);
        std::future<Told> told =
            StartEndless(world, end, [](ScannerHandle handle) { return Take(handle, kWhole, -1); });
        end.action->run(world, before, end);
        return told.get();
    },
    {}};

int32_t Number(ResultCode (*call)(ScannerHandle, int32_t*), ScannerHandle handle) {
    int32_t number = -1;
    call(handle, &number);
    return number;
}

}  // namespace

HandleModel* Model::Holder(size_t link) {
    for (HandleModel& handle : handles) {
        if (handle.link == link) return &handle;
    }
    return nullptr;
}

bool Model::IsConnected(size_t link) const {
    return std::any_of(handles.begin(), handles.end(),
                       [=](const HandleModel& handle) { return handle.link == link && handle.connected; });
}

void AwaitSame(const Model& model, World& world) {
    for (size_t i = 0; i < model.handles.size(); ++i) {
        const HandleModel& handle = model.handles[i];
        if (!handle.exists) continue;
        const int32_t open = handle.connected ? ScannerStateEnabled : ScannerStateOpen;
        const int32_t state = handle.link == kLinks ? int32_t{ScannerStateClosed} : open;
        const auto count = static_cast<int32_t>(handle.waiting.size());
        const std::string name = " of handle " + std::to_string(i);
        Await("state " + std::to_string(state) + name,
              [&] { return Number(getScannnerState, world.handles[i]) == state; });
        Await(std::to_string(count) + " barcodes" + name,
              [&] { return Number(getBarCodeCacheCount, world.handles[i]) == count; });
    }
    for (const Link link : {kUsb, kSerial}) {
        const int open = model.IsConnected(link) ? 1 : 0;
        Await("opened and closed devices", [&] { return world.Device(link).OpenNow() == open; });
        Await("packets and their order", [&] { return world.Packets(link) == model.links[link].packets; });
        Await("the end of reading", [&] { return world.Device(link).ReadsUsedUp(); });
    }
}

std::ostream& operator<<(std::ostream& out, const Step& step) {
    return out << step.action->forms[step.form] << " (handle " << step.handle << ", thread " << step.thread
               << (step.link == kUsb ? ", usb)" : ", serial)");
}

const std::vector<const Action*>& Actions() {
    static const std::vector<const Action*> actions = {&kOpen,
                                                       &kOpen,
                                                       &kOpen,
                                                       &kOpen,
                                                       &kOpen,
                                                       &kOpen,
                                                       &kOpen,
                                                       &kClose,
                                                       &kCloseElsewhere,
                                                       &kDestroy,
                                                       &kCreate,
                                                       &kCreate,
                                                       &kCreate,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kScan,
                                                       &kTake,
                                                       &kTake,
                                                       &kTake,
                                                       &kSet,
                                                       &kSet,
                                                       &kPlug,
                                                       &kPlug,
                                                       &kPlug,
                                                       &kPlug,
                                                       &kUnplug,
                                                       &kFlicker,
                                                       &kFlicker,
                                                       &kRights,
                                                       &kRights,
                                                       &kExchange,
                                                       &kExchange,
                                                       &kExchange,
                                                       &kExchange,
                                                       &kEndlessExchange,
                                                       &kEndlessExchange,
                                                       &kEndlessTake};
    return actions;
}

}  // namespace quillet::test

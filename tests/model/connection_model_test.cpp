// SPDX-License-Identifier: MIT
// Random sequences of what an application and its user do, held against a model. A failure is shrunk to the shortest
// sequence that shows it. RC_PARAMS gives another seed, more sequences or longer ones, and what a failure says to give:
//   RC_PARAMS="seed=7 max_success=5000 max_size=200" connection_model_test
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <future>
#include <gtest/gtest.h>
#include <mutex>
#include <rapidcheck/gtest.h>
#include <set>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "foundation/text.h"
#include "model/world.h"

namespace quillet::test {
namespace {

using tools::FrameBytes;

// ---- Commands

const std::string kFramesOff = ParseHexText("04 EE 04 00 00 09");  // at each connecting and disconnecting
const std::string kVersion = ParseHexText("04 7E 04 00 00 79");
const std::string kCode39 = ParseHexText("05 D1 04 00 40 0B DA");

template <int64_t TimeoutMs = 2000>
Told AskVersion(ScannerHandle handle) {
    return Filled([=](uint8_t* buffer, int32_t* length, int32_t&) {
        return directIO(handle, reinterpret_cast<const uint8_t*>(kVersion.data()),
                        static_cast<int32_t>(kVersion.size()), buffer, 1024, length, TimeoutMs);
    });
}
Told AskCode39(ScannerHandle handle) {
    return Filled([=](uint8_t* buffer, int32_t* length, int32_t&) {
        return QueryCommandSetting(handle, 35, 1024, buffer, length);
    });
}

const struct {
    Told (*call)(ScannerHandle handle);
    int32_t closed;  // results
    int32_t lost;
    Told told;
    std::string packet;
    std::string reply;  // frame, if any comes
} kCommands[] = {
    {[](auto handle) { return Told(setCode39(handle, 1)); },
     ResultNoExist,
     0,
     {},
     ParseHexText("05 40 04 00 0B 01 AA"),
     ""},
    {[](auto handle) { return Told(setScannerPattern(handle, 1)); },
     ResultDisabled,
     ResultDisabled,
     {},
     ParseHexText("04 EE 04 00 01 08"),
     ""},
    {[](auto handle) { return Told(CommandInteraction(handle, "AA BB")); }, 0, 0, {}, ParseHexText("AA BB"), ""},
    {AskVersion<>, ResultIllegal, ResultIllegal, {ResultTimeout}, kVersion, ""},
    {AskVersion<>, ResultIllegal, ResultIllegal, {0, -1, "SN"}, kVersion, FrameBytes(0x7E, 0x80, {"\0SN", 3})},
    {AskVersion<>, ResultIllegal, ResultIllegal, {0, -1, "raw"}, kVersion, FrameBytes(0xEE, 3, "\xFFlost")},
    {AskCode39, ResultNoExist, ResultNoExist, {ResultNoExist}, kCode39, ""},
    {AskCode39, ResultNoExist, ResultNoExist, {0, -1, "on"}, kCode39, FrameBytes(0xE8, 0x80, "\x40on")},
    {AskCode39, ResultNoExist, ResultNoExist, {ResultFailure}, kCode39, FrameBytes(0xE8, 0x80, "\x41on")},
};
constexpr size_t kFirstExchange = 3;

// ---- Steps

class Life;

struct Action {
    size_t weight;
    void (Life::*make)(const struct Step& step);
    std::vector<const char*> forms;
};

// An action has no use for some of it. The thread is the one that makes the call.
struct Step {
    const Action* action;
    size_t form;
    size_t handle;
    size_t thread;
    size_t link;
};

std::ostream& operator<<(std::ostream& out, const Step& step) {
    return out << step.action->forms[step.form] << " (handle " << step.handle << ", thread " << step.thread
               << (step.link == kUsb ? ", usb)" : ", serial)");
}

struct HandleModel {
    size_t link = kLinks;  // that it is open on
    bool connected = false;
    std::deque<Told> waiting;  // barcodes
    std::string part;          // of a barcode whose end hasn't come
};

struct LinkModel {
    bool plugged = true;
    bool denied = false;               // the system refuses to open it
    bool claimLeft = false;            // by a close on another thread than the opener's
    std::vector<std::string> packets;  // that the scanner has got
};

// The application's calls and its user's doings, each made in the model and in the world. One that makes no sense does
// nothing.
class Life {
  public:
    void Make(const Step& step) try {
        (this->*step.action->make)(step);
        AwaitSame();
    } catch (const std::exception& error) {
        throw std::runtime_error(rc::toString(step) + ": " + error.what());
    }
    void End() { m_World.DestroyAndExpectNothingLeft({m_Links[kUsb].claimLeft, m_Links[kSerial].claimLeft}); }

    void Open(const Step& step) {
        HandleModel& handle = m_Handles[step.handle];
        if (!handle.connected) m_World.openers[step.handle] = step.thread;
        const int32_t expected = handle.connected ? ResultSuccess : OpenAnew(handle, step.form);
        Expect(expected, m_World.Open(step.thread, step.handle, step.form));
        AwaitLooks(handle.link);
    }
    // On another thread than the opener's the claim stays with that one.
    void Close(const Step& step) {
        const bool elsewhere = step.form == 1;
        const size_t link = m_Handles[step.handle].link;
        if (elsewhere && link != kLinks) m_Links[link].claimLeft = true;
        const size_t thread = elsewhere ? 1 - Opener(step) : Opener(step);
        Expect(CloseModel(step.handle), m_World.Start(thread, step.handle, closeScanner).get());
    }
    // Another one takes its place.
    void Destroy(const Step& step) {
        CloseModel(step.handle);
        Expect({}, m_World.Destroy(step.handle));
        m_World.handles[step.handle] = createScanner();
    }

    void Scan(const Step& step) {
        if (!IsConnected(step.link)) return;
        HandleModel& handle = *Holder(step.link);
        Told barcode = Barcode(m_Scans++, step.form);
        m_World.Scan(step.link, barcode, step.form);
        if (step.form != kBareText) barcode.text.insert(0, std::exchange(handle.part, {}));
        if (step.form == kFirstPart) {
            handle.part = barcode.text;
        } else {
            handle.waiting.push_back(barcode);
        }
    }
    void TakeBarcode(const Step& step) {
        const auto take = [&](ScannerHandle handle) { return Take(handle, step.form); };
        Expect(TakeFirst(step.handle, step.form), m_World.Start(step.thread, step.handle, take).get());
    }
    // Ended on the thread that opened the handle.
    void EndlessTake(const Step& step) {
        const HandleModel& handle = m_Handles[step.handle];
        const bool destroy = step.form == 1;
        if (!handle.waiting.empty() || (!handle.connected && !destroy)) return;
        std::future<Told> told = StartEndless(step, [](ScannerHandle called) { return Take(called, kWhole, -1); });
        destroy ? Destroy(step) : Scan({step.action, kShort, step.handle, 0, handle.link});
        Expect(TakeFirst(step.handle, kWhole), told.get());
    }

    void Command(const Step& step) {
        HandleModel& handle = m_Handles[step.handle];
        const auto& command = kCommands[step.form];
        if (!handle.connected) {
            const int32_t expected = handle.link == kLinks ? command.closed : command.lost;
            return Expect(expected, m_World.Start(step.thread, step.handle, command.call).get());
        }
        LinkModel& link = m_Links[handle.link];
        link.packets.push_back(command.packet);
        std::string reply = command.reply;
        if (!reply.empty() && handle.link == kUsb) reply = tools::UsbFrame(reply, 0)[0];
        m_World.clock.patient = !reply.empty();
        std::future<Told> told = m_World.Start(step.thread, step.handle, command.call);
        Await("a command's packet", [&] { return m_World.Packets(handle.link) == link.packets; });
        if (!reply.empty()) m_World.Device(handle.link)->Deliver(reply);
        told.wait();
        m_World.clock.patient = false;
        if (step.form >= kFirstExchange) handle.part.clear();
        Expect(command.told.text == "raw" ? Told(0, -1, reply) : command.told, told.get());
    }
    void EndlessExchange(const Step& step) {
        HandleModel& handle = m_Handles[step.handle];
        constexpr void (Life::*kEnds[])(const Step&) = {&Life::Close, &Life::Destroy, &Life::Unplug, &Life::Flicker};
        if (!handle.connected || m_Links[handle.link].denied) return;
        std::future<Told> told = StartEndless(step, AskVersion<-1>);
        m_Links[handle.link].packets.push_back(kVersion);
        handle.part.clear();
        Expect(ResultIllegal, m_World.Start(Opener(step), step.handle, AskVersion<>).get());  // one at a time
        (this->*kEnds[step.form])({step.action, 0, step.handle, step.thread, handle.link});
        Expect(ResultTimeout, told.get());
    }

    void Plug(const Step& step) {
        if (std::exchange(m_Links[step.link].plugged, true)) return;
        m_World.Plug(step.link);
        MayConnect(step.link);
        AwaitLooks(step.link);
    }
    void Unplug(const Step& step) {
        if (!std::exchange(m_Links[step.link].plugged, false)) return;
        m_World.Unplug(step.link);
        if (HandleModel* holder = Holder(step.link)) holder->connected = false;
        AwaitLooks(step.link);
    }
    // The state stays.
    void Flicker(const Step& step) {
        if (!IsConnected(step.link) || m_Links[step.link].denied) return;
        m_World.Flicker(step.link);
        m_Links[step.link].packets.push_back(kFramesOff);
    }
    // Whether the system refuses to open the device.
    void Deny(const Step& step) {
        const bool deny = m_Links[step.link].denied = step.form == 1;
        m_World.Device(step.link)->errors.open = deny ? 13 : 0;
        MayConnect(step.link);
        AwaitLooks(step.link);
    }

  private:
    static void Expect(const Told& expected, const Told& told) {
        if (told != expected) throw std::runtime_error(rc::toString(told) + " instead of " + rc::toString(expected));
    }
    size_t Opener(const Step& step) const { return m_World.openers[step.handle]; }
    // The handle that is open on it, perhaps without its scanner; null if there is none.
    HandleModel* Holder(size_t link) {
        if (m_Handles[0].link == link) return &m_Handles[0];
        return m_Handles[1].link == link ? &m_Handles[1] : nullptr;
    }
    bool IsConnected(size_t link) { return Holder(link) != nullptr && Holder(link)->connected; }
    // From the second look on a loss is noticed; and what mustn't happen would have.
    void AwaitLooks(size_t link) {
        if (link != kLinks && Holder(link) != nullptr) m_World.AwaitLooks(link);
    }

    // If a handle waits for the scanner.
    void MayConnect(size_t link) {
        HandleModel* holder = Holder(link);
        if (holder == nullptr || holder->connected || !m_Links[link].plugged || m_Links[link].denied) return;
        holder->connected = true;
        m_Links[link].packets.push_back(kFramesOff);
    }
    int32_t OpenAnew(HandleModel& handle, size_t form) {
        handle = {};  // a lost scanner is given up first
        if (form == kOpenBadNumber) return ResultOpenException;
        const size_t number = form == kUsb || (form == kOpenAny && m_Links[kUsb].plugged) ? kUsb : kSerial;
        const LinkModel& link = m_Links[number];
        if (!link.plugged && form != kOpenUnlistedToo) return ResultNoHardware;
        if (link.claimLeft || Holder(number) != nullptr) return ResultClaimed;
        if (!link.plugged || link.denied) return ResultNoHardware;
        handle.link = number;
        MayConnect(number);
        return ResultSuccess;
    }
    int32_t CloseModel(size_t number) {
        const HandleModel handle = std::exchange(m_Handles[number], {});
        if (handle.connected) m_Links[handle.link].packets.push_back(kFramesOff);
        return handle.link == kLinks ? ResultClosed : ResultSuccess;
    }
    Told TakeFirst(size_t handle, size_t form) {
        std::deque<Told>& waiting = m_Handles[handle].waiting;
        if (waiting.empty()) return ResultTimeout;
        Told told = std::move(waiting.front());
        waiting.pop_front();
        if (form == kInto4Bytes && told.text.size() > 4) return {ResultBufferTooSmall, told.type};
        if (form == kWithoutType) told.type = -1;
        return told;
    }
    // On another thread than the opener's; it waits when this returns.
    std::future<Told> StartEndless(const Step& step, std::function<Told(ScannerHandle)> call) {
        const int waits = m_World.clock.endlessWaits;
        std::future<Told> told = m_World.Start(1 - Opener(step), step.handle, std::move(call));
        Await("an endless wait", [&] { return m_World.clock.endlessWaits > waits; });
        return told;
    }
    int32_t Number(size_t handle, ResultCode (*call)(ScannerHandle, int32_t*)) {
        int32_t number = -1;
        call(m_World.handles[handle], &number);
        return number;
    }
    // Until everything that can be seen from outside is as in the model.
    void AwaitSame() {
        for (size_t i = 0; i < m_Handles.size(); ++i) {
            const int32_t open = m_Handles[i].connected ? ScannerStateEnabled : ScannerStateOpen;
            const int32_t state = m_Handles[i].link == kLinks ? int32_t{ScannerStateClosed} : open;
            const auto count = static_cast<int32_t>(m_Handles[i].waiting.size());
            Await("state " + std::to_string(state), [&] { return Number(i, getScannnerState) == state; });
            Await(std::to_string(count) + " barcodes", [&] { return Number(i, getBarCodeCacheCount) == count; });
        }
        for (const Link link : kBothLinks) {
            FakeDevice& device = m_World.Device(link);
            Await("opened and closed devices", [&] { return device->openNow == (IsConnected(link) ? 1 : 0); });
            Await("packets and their order", [&] { return m_World.Packets(link) == m_Links[link].packets; });
            Await("the end of reading", [&] { return device->reads.empty(); });
        }
    }

    World m_World;
    std::array<HandleModel, 2> m_Handles;
    std::array<LinkModel, kLinks> m_Links;
    int m_Scans = 0;
};

const Action kActions[] = {
    {7, &Life::Open, {"open usb", "open virtual serial", "open any", "open serial", "open bad number"}},
    {2, &Life::Close, {"close", "close elsewhere"}},
    {1, &Life::Destroy, {"destroy"}},
    {10, &Life::Scan, {"scan short", "scan long", "scan first part", "scan bare text"}},
    {3, &Life::TakeBarcode, {"getBarCode", "getBarCode without type", "getBarCode into 4 bytes"}},
    {1, &Life::EndlessTake, {"getBarCode, then a barcode", "getBarCode, then destroy"}},
    {6,
     &Life::Command,
     {"setCode39", "setScannerPattern", "CommandInteraction", "directIO in vain", "directIO", "directIO amid scan",
      "query in vain", "query", "query answered wrong"}},
    {2,
     &Life::EndlessExchange,
     {"directIO, then close", "directIO, then destroy", "directIO, then unplug", "directIO, then flicker"}},
    {4, &Life::Plug, {"plug"}},
    {1, &Life::Unplug, {"unplug"}},
    {2, &Life::Flicker, {"flicker"}},
    {2, &Life::Deny, {"allow", "deny", "allow"}},
};

// ---- Random sequences

[[maybe_unused]] const int kParametersOfAllRuns = setenv("RC_PARAMS", "seed=1 max_success=150 max_size=100", 0);

// Runs the body in a process of its own, so that a run leaves nothing to the next: no claim, no thread, no lock. Fails
// with what the body threw, and after a crash or if it was still running after half a minute.
template <typename Body>
void RunInOwnProcess(Body body) {
    std::FILE* const failure = std::tmpfile();
    std::fflush(nullptr);  // or both would write it
    const pid_t child = fork();
    if (child == 0) {
        alarm(30);
        try {
            body();
            std::exit(0);  // with all that the library does at the end of a process
        } catch (const std::exception& error) {
            std::fputs(error.what(), failure);
            std::fflush(failure);
            _exit(1);
        }
    }
    int status = 0;
    waitpid(child, &status, 0);
    char text[1024] = "it crashed or hung";
    std::rewind(failure);
    const bool told = std::fgets(text, sizeof text, failure) != nullptr;
    std::fclose(failure);
    if (told || status != 0) RC_FAIL(std::string(text));
}

using Program = std::vector<Step>;

// Of any size: a short sequence has all of the steps too.
rc::Gen<Program> AnyProgram() {
    std::vector<const Action*> actions;
    for (const Action& action : kActions) actions.insert(actions.end(), action.weight, &action);
    const auto below = [](size_t limit) { return rc::gen::resize(100, rc::gen::inRange<size_t>(0, limit)); };
    const auto step = [actions](size_t number, size_t form, size_t handle, size_t thread, size_t link) {
        const Action* action = actions[number];
        return Step{action, form % action->forms.size(), handle, thread, link};
    };
    return rc::gen::container<Program>(
        rc::gen::noShrink(rc::gen::apply(step, below(actions.size()), below(180), below(2), below(2), below(kLinks))));
}

RC_GTEST_PROP(ConnectionModelTest, AnApplicationIsToldWhatTheModelTells, ()) {
    const Program program = *AnyProgram();
    RunInOwnProcess([&] {
        Life life;
        for (const Step& step : program) life.Make(step);
        life.End();
    });
}

// What a number stands for, done by a thread: a call with its own handle or with any, or its user's doing.
Told DoAnything(size_t thread, size_t number, World& world, std::atomic<int>& scans) {
    const size_t link = number & 1;
    const size_t handle = number >> 1 & 1;
    const size_t form = number >> 5;
    switch (number >> 2 & 7) {
        case 0: return world.Open(thread, thread, form % std::size(kConnections));
        case 1: return world.Start(thread, thread, closeScanner).get();
        case 2: return world.Start(thread, handle, kCommands[form % std::size(kCommands)].call).get();
        case 3: return world.Start(thread, handle, [](ScannerHandle called) { return Take(called, kWhole); }).get();
        case 4: return world.Scan(link, Barcode(scans++, form % 4), form % 4), Told();
        case 5: return world.Unplug(link), Told();
        case 6: return world.Flicker(link), Told();
        default: return world.Plug(link), Told();
    }
}

RC_GTEST_PROP(ConnectionModelTest, TwoThreadsGetInNobodysWay, ()) {
    using Numbers = std::vector<size_t>;
    const auto any = rc::gen::noShrink(rc::gen::resize(100, rc::gen::inRange<size_t>(0, 1 << 12)));
    const auto numbers = rc::gen::container<Numbers>(any);
    const std::array<Numbers, 2> programs = {*rc::gen::scale(0.5, numbers), *rc::gen::scale(0.5, numbers)};
    RunInOwnProcess([&] {
        World world;
        world.openers = {0, 1};
        std::atomic<int> scans{0};
        std::mutex mutex;  // guards taken
        std::set<std::string> taken;
        const auto run = [&](size_t thread) {
            for (const size_t number : programs[thread]) {
                const Told told = DoAnything(thread, number, world, scans);
                const std::lock_guard lock(mutex);
                if (told.type == -1 || taken.insert(told.text).second) continue;
                throw std::runtime_error("a barcode came twice: " + told.text);
            }
        };
        auto other = std::async(std::launch::async, run, 1);
        run(0);
        other.get();
        world.DestroyAndExpectNothingLeft({false, false});
    });
}

}  // namespace
}  // namespace quillet::test

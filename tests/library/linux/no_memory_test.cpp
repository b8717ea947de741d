// SPDX-License-Identifier: MIT
// No memory: one allocation fails, at each place in turn. Whatever thread it hits, the host lives on, the call gives a
// result that is told for it, and what comes next works.
#include <array>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <gmock/gmock.h>
#include <memory>
#include <new>
#include <string>
#include <sys/prctl.h>
#include <vector>

#include "library/library_test.h"
#include "support/fast_clock.h"

namespace {

// Counted on threads of one name alone, or the library's threads would shift each other's places. The test's own thread
// counts only in the calls of the library that it makes, and the virtual scanner's has always memory.
constexpr const char* kCalls = "calls";
std::atomic<const char*> g_FailingThread{nullptr};
std::atomic<int> g_Countdown{0};  // 1: the next allocation there fails
thread_local bool t_InCall = false;

bool IsFailingThread() {
    const char* wanted = g_FailingThread.load();
    if (wanted == nullptr || wanted == kCalls) return wanted != nullptr && t_InCall;
    thread_local std::array<char, 16> name{};
    if (name[0] == '\0') prctl(PR_GET_NAME, name.data());
    return std::strcmp(name.data(), wanted) == 0;
}

}  // namespace

// Not inlined: GCC would see memory of new go to free.
[[gnu::noinline]] void* operator new(size_t size) {
    const bool fails = IsFailingThread() && g_Countdown.fetch_sub(1) == 1;
    void* memory = fails ? nullptr : std::malloc(size);
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

namespace quillet::test {
namespace {

constexpr std::array kThreads = {kCalls, "quillet-read", "QuilletEvents", "quillet-pool", "quillet-power"};
constexpr int kTooManyPlaces = 5000;
constexpr uint8_t kType = 3;
constexpr uint8_t kMarkerType = 11;

struct Road {
    ScannerLink link;
    bool logged;
};

void PrintTo(const Road& road, std::ostream* out) {
    *out << ::testing::PrintToString(road.link) << (road.logged ? "Logged" : "");
}

struct Step {
    const char* name;
    std::function<void()> prepare;
    std::function<void()> run;
    std::function<void()> judge;  // what has to work afterwards
    bool polled = false;          // the power thread has a part in it, besides its polls
    int stride = 1;               // above 1 for a step that takes long and is made of others
};

class NoMemoryTest : public ::testing::TestWithParam<Road> {
  protected:
    // Runs the step with its first allocation failing, then with its second, and so on to the end, for each thread.
    void TryAllPlaces(const Step& step, const char* thread) {
        for (int place = 1; place < kTooManyPlaces; place += step.stride) {
            SCOPED_TRACE(std::string(step.name) + ", " + thread + ", allocation " + std::to_string(place));
            step.prepare();
            if (GetParam().logged) setLogLevel(0);  // a handle that was destroyed has ended it
            g_Countdown = place;
            g_FailingThread = thread;
            step.run();
            g_FailingThread = nullptr;
            const bool failed = g_Countdown <= 0;
            step.judge();
            if (!failed || HasFailure()) return;
        }
        ADD_FAILURE() << step.name << " allocates without an end";
    }

    // A call of the library, with one of the results that are told for it.
    template <typename Call>
    ResultCode Tell(const std::vector<ResultCode>& told, Call call) {
        t_InCall = true;
        const ResultCode result = call();
        t_InCall = false;
        EXPECT_THAT(told, ::testing::Contains(result));
        return result;
    }

    template <typename Call>
    std::function<void()> Telling(std::vector<ResultCode> told, Call call) {
        return [=, this] { Tell(told, call); };
    }

    ResultCode Open(const Handle& handle) { return openScanner(handle, m_Connection.c_str()); }
    void ExpectState(const Handle& handle, int32_t state) {
        EXPECT_TRUE(Eventually([&] { return handle.State() == state; })) << handle.State();
    }
    void Return(const Handle& handle) {
        m_Scanner->Plug();
        ExpectState(handle, ScannerStateEnabled);
    }
    // Gone and back so soon that it may pass unseen. Ends when a link has been opened, or in vain.
    void Flicker() {
        m_Scanner->Unplug();
        m_Scanner->ClearPackets();
        m_Scanner->Plug();
        m_Scanner->WaitForPackets(1, std::chrono::milliseconds(200));
    }
    // Neither claim nor link of another handle is left.
    void ExpectFree() {
        Handle other;
        EXPECT_EQ(Open(other), ResultSuccess);
        EXPECT_EQ(closeScanner(other), ResultSuccess);
    }
    // No barcode comes with another's type, or in part.
    void ExpectWhole(const Barcode& barcode) {
        EXPECT_TRUE(barcode.text == kText || barcode.text.starts_with("marker ")) << barcode.text;
        EXPECT_EQ(barcode.type, barcode.text == kText ? kType : kMarkerType);
    }
    // A barcode arrives. Some of those before it may be lost.
    void ExpectBarcodes(const Handle& handle) {
        const Barcode marker{ResultSuccess, kMarkerType, "marker " + std::to_string(++m_Markers)};
        const auto arrives = [&] {
            m_Scanner->Scan(kMarkerType, marker.text);
            for (Barcode barcode = handle.Take(2000); barcode.result == ResultSuccess; barcode = handle.Take(0)) {
                ExpectWhole(barcode);
                if (barcode == marker) return true;
            }
            return false;
        };
        EXPECT_TRUE(Eventually(arrives));
        ExpectState(handle, ScannerStateEnabled);
    }

    static inline const std::string kText = std::string(150, 'x');  // several reports over USB
    static constexpr int32_t kSize = 1024;

    FastClock m_Clock{50};
    const std::string m_Connection = ConnectionOf(GetParam().link);
    const std::unique_ptr<VirtualScanner> m_Scanner = NewScanner(GetParam().link);
    uint8_t m_Buffer[kSize] = {};
    int32_t m_Length = 0;
    int m_Markers = 0;
};
INSTANTIATE_TEST_SUITE_P(Links, NoMemoryTest,
                         ::testing::Values(Road{ScannerLink::Usb, false}, Road{ScannerLink::VirtualSerial, false},
                                           Road{ScannerLink::Usb, true}),
                         ::testing::PrintToStringParamName());

TEST_P(NoMemoryTest, OneFailedAllocationDoesNoHarm) {
    auto handle = std::make_unique<Handle>();
    const size_t threads = ThreadCount();
    const auto nothing = [] {};
    const auto free = [&] { ExpectFree(); };
    const auto open = [&] { EXPECT_EQ(Open(*handle), ResultSuccess); };
    const auto fresh = [&] { handle = nullptr, handle = std::make_unique<Handle>(), open(); };
    const auto usable = [&] { ExpectBarcodes(*handle); };
    // One that goes before the first look at the devices isn't missed, and comes back in silence; then once more.
    const auto lost = [&] {
        open();
        EXPECT_TRUE(Eventually([&] {
            m_Scanner->Plug();
            usable();
            m_Scanner->Unplug();
            return Eventually([&] { return handle->State() == ScannerStateOpen; }, std::chrono::milliseconds(100));
        }));
    };
    const auto close = Telling({ResultSuccess, ResultFailure}, [&] { return closeScanner(*handle); });
    const auto closed = [&] {
        closeScanner(*handle);
        ExpectState(*handle, ScannerStateClosed);
        m_Scanner->Plug();
        ExpectFree();
    };
    const auto destroy = [&] {
        Tell({ResultSuccess}, [&] { return destoryScanner(*handle); });
        handle->Forget();
    };
    const auto take = [&](int64_t timeoutMs) {
        int32_t type = -1;
        const ResultCode result = Tell({ResultSuccess, ResultFailure, ResultTimeout}, [&] {
            return getBarCode(*handle, &type, m_Buffer, kSize, &m_Length, timeoutMs);
        });
        if (result == ResultSuccess) ExpectWhole({result, type, std::string(m_Buffer, m_Buffer + m_Length)});
    };
    const auto query = [&] { return QueryCommandSetting(*handle, 35, kSize, m_Buffer, &m_Length); };
    const auto version = [&] { return getScannerVersion(*handle, m_Buffer, kSize, &m_Length); };
    const auto probe = [&] { return getSerialPortDevice(*handle, kSize, m_Buffer, &m_Length); };
    // A late answer to an earlier call is taken for the query's own.
    const auto answers = [&](auto call) {
        return [call] { EXPECT_TRUE(Eventually([&] { return call() == ResultSuccess; })); };
    };

    const Step steps[] = {
        // First of all, while the process has made nothing yet that it keeps. Without memory for the link itself the
        // handle is connected to nothing: then settings fail, and it has to be closed and opened.
        {"open", nothing, Telling({ResultSuccess, ResultOpenException}, [&] { return Open(*handle); }),
         [&] {
             if (handle->State() == ScannerStateEnabled && setCode39(*handle, 1) == ResultSuccess) usable();
             closed();
         },
         true},
        {"log", nothing, Telling({ResultSuccess}, [] { return setLogLevel(0); }), [] { setLogLevel(9); }},
        {"create", nothing,
         [&] {
             ScannerHandle made = nullptr;
             Tell({ResultSuccess}, [&] { return made = createScanner(), ResultSuccess; });
             if (made != nullptr) destoryScanner(made);
         },
         free},
        // The calls that it is made of are tried one by one.
        {"probe", nothing, Telling({ResultSuccess, ResultReplyTooLong}, probe), free, false, 13},
        {"barcode", fresh, [&] { m_Scanner->Scan(kType, kText), take(5000); }, usable},
        {"wait in vain", nothing, [&] { take(0); }, usable, true},
        {"set", nothing, Telling({ResultSuccess, ResultFailure}, [&] { return setCode39(*handle, 1); }),
         [&] { EXPECT_EQ(setCode39(*handle, 1), ResultSuccess); }},
        {"query", answers(query), Telling({ResultSuccess, ResultNoExist}, query), answers(query)},
        {"version", answers(version), Telling({ResultSuccess, ResultNoExist}, version), answers(version)},
        {"lose", nothing, [&] { m_Scanner->Unplug(), ExpectState(*handle, ScannerStateOpen); },
         [&] { Return(*handle), usable(); }, true},
        {"return", lost, [&] { Return(*handle); }, usable, true},
        {"flicker", nothing, [&] { Flicker(); }, usable, true},
        {"close", open, close, closed, true},
        {"close a lost one", lost, close, closed, true},
        {"open a lost one", lost, Telling({ResultNoHardware, ResultOpenException}, [&] { return Open(*handle); }),
         closed, true},
        {"destroy", fresh, destroy, free, true},
        {"destroy a lost one", [&] { fresh(), lost(); }, destroy, [&] { m_Scanner->Plug(), free(); }, true},
    };
    for (const Step& step : steps) {
        for (const char* thread : kThreads) {
            if (!HasFailure() && (step.polled || thread != kThreads.back())) TryAllPlaces(step, thread);
        }
    }
    EXPECT_LT(SettledThreadCount(), threads);  // without the handle's own
}

}  // namespace
}  // namespace quillet::test

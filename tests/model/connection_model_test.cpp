// Random sequences of what an application and its user do, held against a model. A failure is shrunk to the shortest
// sequence that shows it. RC_PARAMS gives another seed, more sequences or longer ones, and what a failure says to give:
//   RC_PARAMS="seed=7 max_success=5000 max_size=80" connection_model_test
#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <rapidcheck/gtest.h>
#include <rapidcheck/state.h>
#include <set>
#include <string>
#include <vector>

#include "model/actions.h"
#include "model/own_process.h"
#include "support/temp_tree.h"

namespace quillet::test {
namespace {

// Made before both variables are read, which happens once. With a folder of its own for claims no other process is in
// the way.
class Surroundings {
  public:
    Surroundings() {
        setenv("RC_PARAMS", "seed=1 max_success=150 max_size=60", 0);
        m_Tree.Write("quillet/locks/made", "");
        for (const char* folder : {"quillet", "quillet/locks"}) {
            std::filesystem::permissions(m_Tree.Path(folder), std::filesystem::perms::owner_all);
        }
        setenv("XDG_RUNTIME_DIR", m_Tree.Path("").c_str(), 1);
    }

  private:
    const TempTree m_Tree;
};
const Surroundings g_Surroundings;

// Of any size: a short sequence has all of the actions too.
rc::Gen<Step> AnyStep() {
    const auto below = [](size_t limit) { return rc::gen::resize(100, rc::gen::inRange<size_t>(0, limit)); };
    const auto step = [](size_t action, size_t form, size_t handle, size_t thread, size_t link) {
        const Action& chosen = *Actions()[action];
        return Step{&chosen, form % chosen.forms.size(), handle, thread, link};
    };
    return rc::gen::apply(step, below(Actions().size()), below(60), below(2), below(2), below(kLinks));
}

using Command = rc::state::Command<Model, World>;

class StepCommand : public Command {
  public:
    explicit StepCommand(const Step& step) : m_Step(step) {}
    void checkPreconditions(const Model& before) const override { RC_PRE(m_Step.action->allowed(before, m_Step)); }
    void apply(Model& model) const override { m_Step.action->expect(model, m_Step); }
    void run(const Model& before, World& world) const override try {
        Model after = before;
        const Told expected = m_Step.action->expect(after, m_Step);
        const Told told = m_Step.action->run(world, before, m_Step);
        if (told != expected) throw Mismatch(rc::toString(told) + " instead of " + rc::toString(expected));
        for (const Link link : {kUsb, kSerial}) {
            // From the second look on a loss is noticed; and what mustn't happen would have.
            const bool changed = after.IsConnected(link) != before.IsConnected(link) ||
                                 after.links[link].plugged != before.links[link].plugged;
            if (changed && after.Holder(link) != nullptr) world.AwaitLooks(link);
        }
        AwaitSame(after, world);
    } catch (const std::exception& error) {
        throw Mismatch(rc::toString(m_Step) + ": " + error.what());
    }
    void show(std::ostream& out) const override { out << m_Step; }

  private:
    const Step m_Step;
};

RC_GTEST_PROP(ConnectionModelTest, AnApplicationIsToldWhatTheModelTells, ()) {
    const auto commands = *rc::state::gen::commands(Model(), [](const Model&) {
        return rc::gen::map(AnyStep(),
                            [](const Step& step) { return std::shared_ptr<const Command>(new StepCommand(step)); });
    });
    const std::string failure = RunInOwnProcess([&] {
        World world;
        Model model;
        rc::state::runAll(commands, model, world);
        rc::state::applyAll(commands, model);
        world.DestroyAndExpectNothingLeft({model.links[kUsb].claimLeft, model.links[kSerial].claimLeft});
    });
    if (!failure.empty()) RC_FAIL(failure);
}

using Program = std::vector<Step>;

// A thread opens and closes its own handle, and does everything else with both.
rc::Gen<Program> ProgramOf(size_t thread) {
    const auto mine = [thread](Step step) {
        step.thread = thread;
        if (step.action->opensOrCloses) step.handle = thread;
        return step;
    };
    // Half as long: a thread doesn't wait for what comes of a step.
    return rc::gen::scale(
        0.5, rc::gen::container<Program>(rc::gen::map(
                 rc::gen::suchThat(AnyStep(), [](const Step& step) { return !step.action->results.empty(); }), mine)));
}

// What both threads have taken.
class TakenBarcodes {
  public:
    // The text has the numbers of all the barcodes that it is made of.
    void Add(const std::string& text) {
        std::lock_guard lock(m_Mutex);
        std::string digits;
        for (const char character : text + ' ') {
            if (character >= '0' && character <= '9') {
                digits += character;
            } else if (!digits.empty() && !m_Numbers.insert(std::exchange(digits, {})).second) {
                throw Mismatch("a barcode came twice: " + text);
            }
        }
    }

  private:
    std::mutex m_Mutex;  // guards m_Numbers
    std::set<std::string> m_Numbers;
};

void Run(const Program& program, World& world, std::atomic<int>& scans, TakenBarcodes& taken) {
    Model unknown;  // as if nothing were connected
    unknown.handles[1].opener = 1;
    for (const Step& step : program) {
        unknown.scans = scans++;
        const Told told = step.action->run(world, unknown, step);
        const std::vector<int32_t>& results = step.action->results;
        if (std::find(results.begin(), results.end(), told.result) == results.end()) {
            throw Mismatch(rc::toString(step) + ": " + rc::toString(told));
        }
        if (told.type != -1) taken.Add(told.text);
    }
}

RC_GTEST_PROP(ConnectionModelTest, TwoThreadsGetInNobodysWay, ()) {
    const Program programs[] = {*ProgramOf(0), *ProgramOf(1)};
    const std::string failure = RunInOwnProcess([&] {
        World world;
        world.openers = {0, 1};
        std::atomic<int> scans{0};
        TakenBarcodes taken;
        auto other = std::async(std::launch::async, [&] { Run(programs[1], world, scans, taken); });
        Run(programs[0], world, scans, taken);
        other.get();
        world.DestroyAndExpectNothingLeft({false, false});
    });
    if (!failure.empty()) RC_FAIL(failure);
}

}  // namespace
}  // namespace quillet::test

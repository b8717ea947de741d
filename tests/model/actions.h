// What an application and its user can do, and a model of what the application is told then.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <ostream>
#include <string>
#include <vector>

#include "model/world.h"

namespace quillet::test {

struct HandleModel {
    bool exists = true;
    size_t opener = 0;     // thread
    size_t link = kLinks;  // that it is open on
    bool connected = false;
    std::deque<Told> waiting;  // barcodes
    std::string part;          // of a barcode whose end hasn't come

    void Close() { *this = HandleModel(exists, opener); }
    explicit HandleModel(bool isThere = true, size_t thread = 0) : exists(isThere), opener(thread) {}
};

struct LinkModel {
    bool plugged = true;
    bool denied = false;               // the system refuses to open it
    bool claimLeft = false;            // by a close on another thread than the opener's
    std::vector<std::string> packets;  // that the scanner has got
};

struct Model {
    std::array<HandleModel, 2> handles;
    std::array<LinkModel, kLinks> links;
    int scans = 0;

    HandleModel* Holder(size_t link);  // null if no handle is open on it
    bool IsConnected(size_t link) const;
};

// Waits until everything that can be seen from outside is as in the model.
void AwaitSame(const Model& model, World& world);

struct Action;

// An action has no use for some of it. The thread is the one that makes the call.
struct Step {
    const Action* action;
    size_t form;  // of the action's
    size_t handle;
    size_t thread;
    size_t link;
};
std::ostream& operator<<(std::ostream& out, const Step& step);

struct Action {
    std::vector<const char*> forms;
    bool (*allowed)(const Model& before, const Step& step);
    Told (*expect)(Model& model, const Step& step);  // changes the model
    Told (*run)(World& world, const Model& before, const Step& step);
    // What may be told while other threads do anything; empty for an action that needs to know what they do.
    std::vector<int32_t> results;
    bool opensOrCloses = false;
};

// Those that are wanted often stand there several times.
const std::vector<const Action*>& Actions();

}  // namespace quillet::test

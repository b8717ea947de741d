// SPDX-License-Identifier: MIT
// Names its thread, for a debugger to see.
#include "platform/thread.h"

int main() {
    quillet::platform::SetCurrentThreadName("a name for the debugger");
    return 0;
}

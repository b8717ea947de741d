// SPDX-License-Identifier: MIT
// Storage for process-wide objects, for the layers above.
#pragma once

#include "platform/no_destroy.h"

namespace quillet {

using platform::NoDestroy;

}  // namespace quillet

// SPDX-License-Identifier: MIT
// Failures of the event model.
#pragma once

#include "foundation/errors.h"

namespace quillet {

class OposError : public QuilletError {
  public:
    using QuilletError::QuilletError;
};

// A mask that holds more than the event types.
class OposQueueError : public OposError {
  public:
    using OposError::OposError;
};

// A record read as another kind than it is.
class OposEventError : public OposError {
  public:
    using OposError::OposError;
};

}  // namespace quillet

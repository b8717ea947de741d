// Failures of links.
#pragma once

#include "foundation/errors.h"

namespace quillet {

class CommError : public ZelmarError {
  public:
    using ZelmarError::ZelmarError;
};

class SerialCommError : public CommError {
  public:
    using CommError::CommError;
};

class IbmUsbCommError : public CommError {
  public:
    using CommError::CommError;
};

}  // namespace quillet

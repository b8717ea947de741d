// Failures of links.
#pragma once

#include "foundation/errors.h"

namespace quillet {

class CommError : public QuilletError {
  public:
    using QuilletError::QuilletError;
};

class SerialLinkError : public CommError {
  public:
    using CommError::CommError;
};

class HidLinkError : public CommError {
  public:
    using CommError::CommError;
};

}  // namespace quillet

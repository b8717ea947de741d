// SPDX-License-Identifier: MIT
// Failures of links.
#pragma once

#include "foundation/errors.h"

namespace quillet {

class LinkError : public QuilletError {
  public:
    using QuilletError::QuilletError;
};

class SerialLinkError : public LinkError {
  public:
    using LinkError::LinkError;
};

class HidLinkError : public LinkError {
  public:
    using LinkError::LinkError;
};

}  // namespace quillet

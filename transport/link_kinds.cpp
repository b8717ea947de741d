// SPDX-License-Identifier: MIT
#include "transport/link_kinds.h"

#include "transport/hid_link.h"
#include "transport/serial_link.h"

namespace quillet {
namespace {

// The first stands for the link types that have no row.
constexpr const LinkKind* kKinds[] = {&kHidLinkKind, &kVirtualSerialLinkKind, &kSerialLinkKind};

}  // namespace

const LinkKind& KindOf(uint32_t linkType) {
    for (const LinkKind* kind : kKinds) {
        if (kind->linkType == linkType) return *kind;
    }
    return *kKinds[0];
}

const LinkKind* FindKind(std::string_view name) {
    for (const LinkKind* kind : kKinds) {
        if (kind->name == name) return kind;
    }
    return nullptr;
}

int32_t LinkKey::Number() const {
    return KindOf(linkType).number(*this);
}

}  // namespace quillet

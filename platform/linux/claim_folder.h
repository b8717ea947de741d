// SPDX-License-Identifier: MIT
// Where the files of claims lie.
#pragma once

#include "platform/linux/linux_roots.h"
#include "platform/linux/unique_fd.h"

namespace quillet::platform {

// The first folder that is there, of:
// - quillet/locks of the user's runtime folder, if nobody else can write to it: claims that exclude only programs with
//   the same runtime folder, such as those of one job on a build machine;
// - quillet in the folder of locks, if root owns it: one that an administrator has made for a group. Whoever isn't in
//   the group gets no claim; a claim in another folder wouldn't exclude the group's;
// - the folder of locks, or the temporary one where the process can't write to the first.
// None of them is ever made here. Good for openat alone; not open if there is none. Throws LookFailed: a folder
// that merely couldn't be opened must not lead on to another.
UniqueFd OpenClaimFolder(const ClaimRoots& roots);

}  // namespace quillet::platform

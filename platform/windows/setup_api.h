// The headers of the device installation functions, which need windows.h before them.
#pragma once

// clang-format off
#include <windows.h>
#include <setupapi.h>
#include <cfgmgr32.h>
// clang-format on

# SPDX-License-Identifier: MIT
# 64-bit Windows by MinGW-w64, with the thread model whose runtime can be linked in.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_FIND_ROOT_PATH /usr/x86_64-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# Recursive mutexes are made by a call, and so destroyed by one, as plain ones are: a statically initialised one keeps the
# memory and the event that its first lock and its first contention have made.
set(CMAKE_CXX_FLAGS_INIT "-D_GTHREAD_USE_RECURSIVE_MUTEX_INIT_FUNC=1")
# The compiler's runtime goes into each binary, so that the library needs nothing but the system.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-static")
set(CMAKE_SHARED_LINKER_FLAGS_INIT "-static")

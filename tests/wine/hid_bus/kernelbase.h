/* Wine runs drivers in a process of their own, which may call what any program may. Windows' header for programs and
   that for drivers can't be included together. */
#ifndef QUILLET_HID_BUS_KERNELBASE_H
#define QUILLET_HID_BUS_KERNELBASE_H

#include <ntddk.h>

#define INVALID_PIPE ((HANDLE)(LONG_PTR)-1)
#define PIPE_DUPLEX 3
#define PIPE_OF_MESSAGES (4 | 2)
#define ERROR_PIPE_HAD_CLIENT 232
#define ERROR_PIPE_HAS_CLIENT 535

HANDLE CreateNamedPipeW(const WCHAR* name, ULONG access, ULONG mode, ULONG instances, ULONG outSize, ULONG inSize,
                        ULONG timeoutMs, void* security);
int ConnectNamedPipe(HANDLE pipe, void* overlapped);
int DisconnectNamedPipe(HANDLE pipe);
int ReadFile(HANDLE file, void* buffer, ULONG size, ULONG* count, void* overlapped);
int WriteFile(HANDLE file, const void* buffer, ULONG size, ULONG* count, void* overlapped);
ULONG GetLastError(void);
HANDLE CreateThread(void* security, SIZE_T stackSize, ULONG (*body)(void*), void* argument, ULONG flags, ULONG* id);

#endif

/* Wine runs drivers in a process of their own, which may call what any program may. Windows' header for programs and
   that for drivers can't be included together. */
#ifndef QUILLET_HID_BUS_KERNELBASE_H
#define QUILLET_HID_BUS_KERNELBASE_H

#include <ntddk.h>

#define INVALID_PIPE ((HANDLE)(LONG_PTR)-1)
#define PIPE_DUPLEX 3
#define PIPE_OF_MESSAGES (4 | 2)
#define ERROR_PIPE_HAS_CLIENT 535

__declspec(dllimport) HANDLE NTAPI CreateNamedPipeW(const WCHAR* name, ULONG access, ULONG mode, ULONG instances,
                                                    ULONG outSize, ULONG inSize, ULONG timeoutMs, void* security);
__declspec(dllimport) int NTAPI ConnectNamedPipe(HANDLE pipe, void* overlapped);
__declspec(dllimport) int NTAPI DisconnectNamedPipe(HANDLE pipe);
__declspec(dllimport) int NTAPI
    PeekNamedPipe(HANDLE pipe, void* buffer, ULONG size, ULONG* count, ULONG* available, ULONG* left);
__declspec(dllimport) int NTAPI ReadFile(HANDLE file, void* buffer, ULONG size, ULONG* count, void* overlapped);
__declspec(dllimport) int NTAPI WriteFile(HANDLE file, const void* buffer, ULONG size, ULONG* count, void* overlapped);
__declspec(dllimport) ULONG NTAPI GetLastError(void);
__declspec(dllimport) HANDLE NTAPI
    CreateThread(void* security, SIZE_T stackSize, ULONG(NTAPI* body)(void*), void* argument, ULONG flags, ULONG* id);

#endif

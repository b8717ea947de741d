/* The threads of the two pipes, one client each at a time. A pipe is made once and serves one client after the other:
   its handle stays valid for a write that comes as the client goes. */
#include "hid_bus.h"
#include "kernelbase.h"

#define PIPE_BUFFER 65536

typedef void (*ServeClient)(HANDLE pipe);

static char Obey(char request) {
    switch (request) {
        case QUILLET_HID_PLUG_REQUEST: return PlugDevice() ? QUILLET_HID_DONE : QUILLET_HID_FAILED;
        case QUILLET_HID_UNPLUG_REQUEST: UnplugDevice(); return QUILLET_HID_DONE;
        default: return QUILLET_HID_FAILED;
    }
}

static void ServePlugging(HANDLE pipe) {
    char request;
    ULONG count = 0;
    while (ReadFile(pipe, &request, 1, &count, NULL)) {
        const char answer = Obey(request);
        WriteFile(pipe, &answer, 1, &count, NULL);
    }
    UnplugDevice();
}

static HANDLE MakePipe(const WCHAR* name) {
    return CreateNamedPipeW(name, PIPE_DUPLEX, PIPE_OF_MESSAGES, 1, PIPE_BUFFER, PIPE_BUFFER, 0, NULL);
}

static void ServeClients(HANDLE pipe, ServeClient serve) {
    for (;;) {
        if (!ConnectNamedPipe(pipe, NULL) && GetLastError() != ERROR_PIPE_HAS_CLIENT) return;
        serve(pipe);
        DisconnectNamedPipe(pipe);
    }
}

static ULONG NTAPI PlugThread(void* pipe) {
    ServeClients(pipe, ServePlugging);
    return 0;
}

static ULONG NTAPI ReportThread(void* pipe) {
    ServeClients(pipe, ServeReports);
    return 0;
}

BOOLEAN StartPipeServers(void) {
    const HANDLE reports = MakePipe(L"" QUILLET_HID_REPORT_PIPE);
    const HANDLE plugging = MakePipe(L"" QUILLET_HID_PLUG_PIPE);
    if (reports == INVALID_PIPE || plugging == INVALID_PIPE) return FALSE;
    SetReportPipe(reports);
    return CreateThread(NULL, 0, ReportThread, reports, 0, NULL) != NULL &&
           CreateThread(NULL, 0, PlugThread, plugging, 0, NULL) != NULL;
}

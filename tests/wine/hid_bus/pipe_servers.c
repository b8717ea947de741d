/* The threads of the two pipes, one client each at a time. A pipe is made once and serves one client after the other:
   its handle stays valid for a write that comes as the client goes. */
#include "hid_bus.h"
#include "kernelbase.h"

/* For the host's reports, which wait here while the client is busy. The other way the client waits, so that hardly any
   report is still on its way once it is sent. */
#define BUFFER_TO_CLIENT 65536
#define BUFFER_FROM_CLIENT QUILLET_HID_REPORT_SIZE

typedef void (*ServeClient)(HANDLE pipe);

static char Obey(char request) {
    BOOLEAN done = FALSE;
    if (request == QUILLET_HID_PLUG_REQUEST) done = PlugDevice();
    if (request == QUILLET_HID_UNPLUG_REQUEST) done = UnplugDevice();
    return done ? QUILLET_HID_DONE : QUILLET_HID_FAILED;
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
    return CreateNamedPipeW(name, PIPE_DUPLEX, PIPE_OF_MESSAGES, 1, BUFFER_TO_CLIENT, BUFFER_FROM_CLIENT, 0, NULL);
}

/* A client that came before the call, and one that is even gone again. */
static BOOLEAN HadClient(ULONG error) {
    return error == ERROR_PIPE_HAS_CLIENT || error == ERROR_PIPE_HAD_CLIENT;
}

static void ServeClients(HANDLE pipe, ServeClient serve) {
    for (;;) {
        if (!ConnectNamedPipe(pipe, NULL) && !HadClient(GetLastError())) return;
        serve(pipe);
        DisconnectNamedPipe(pipe);
    }
}

static ULONG PlugThread(void* pipe) {
    ServeClients(pipe, ServePlugging);
    return 0;
}

static ULONG ReportThread(void* pipe) {
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

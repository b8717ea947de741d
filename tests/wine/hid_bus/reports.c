/* Reports both ways. A report from the pipe goes straight into a read of the class driver and waits in the pipe while
   there is none, so that no report is lost on this road and a fast device is held up. */
#include "hid_bus.h"
#include "kernelbase.h"

/* Between any two reports, as by the polls of a USB host. The class driver reads at once and keeps 31 reports for a host
   that is slower; of more it loses some and mixes up the others. A busy machine holds a host up for 100 ms, so leave it
   more than twice that. */
#define REPORT_INTERVAL_MS 8

static KSPIN_LOCK lock;              /* guards the next two */
static LIST_ENTRY reads;             /* of the class driver, that wait for a report */
static PDEVICE_OBJECT presentDevice; /* the device that reads may come from */
static KEVENT changed;               /* set with each change of the two; wakes the report pipe's thread */
static KEVENT readFrom;              /* set from the device's first read on */
static HANDLE reportPipe;            /* set before the first device is plugged in, and never closed */

void InitReports(void) {
    KeInitializeSpinLock(&lock);
    InitializeListHead(&reads);
    KeInitializeEvent(&changed, SynchronizationEvent, FALSE);
    KeInitializeEvent(&readFrom, NotificationEvent, FALSE);
}

void SetReportPipe(HANDLE pipe) {
    reportPipe = pipe;
}

/* ---- Reads of the class driver */

/* A cancel routine that is already on its way to a read takes it out itself, which it also can once it's on no list. */
static PIRP TakeRead(void) {
    KIRQL irql;
    PIRP irp = NULL;
    KeAcquireSpinLock(&lock, &irql);
    while (irp == NULL && !IsListEmpty(&reads)) {
        LIST_ENTRY* entry = RemoveHeadList(&reads);
        irp = CONTAINING_RECORD(entry, IRP, Tail.Overlay.ListEntry);
        if (IoSetCancelRoutine(irp, NULL) == NULL) {
            InitializeListHead(entry);
            irp = NULL;
        }
    }
    KeReleaseSpinLock(&lock, irql);
    return irp;
}

static void NTAPI CancelRead(PDEVICE_OBJECT device, PIRP irp) {
    KIRQL irql;
    (void)device;
    IoReleaseCancelSpinLock(irp->CancelIrql);
    KeAcquireSpinLock(&lock, &irql);
    RemoveEntryList(&irp->Tail.Overlay.ListEntry);
    KeReleaseSpinLock(&lock, irql);
    CompleteIrp(irp, STATUS_CANCELLED, 0);
}

/* Under the lock. A status other than pending leaves the read to the caller. */
static NTSTATUS QueueReadLocked(PDEVICE_OBJECT device, PIRP irp) {
    if (device != presentDevice) return STATUS_DELETE_PENDING;
    IoSetCancelRoutine(irp, CancelRead);
    if (irp->Cancel && IoSetCancelRoutine(irp, NULL) != NULL) return STATUS_CANCELLED;
    IoMarkIrpPending(irp);
    InsertTailList(&reads, &irp->Tail.Overlay.ListEntry);
    return STATUS_PENDING;
}

NTSTATUS QueueRead(PDEVICE_OBJECT device, PIRP irp) {
    KIRQL irql;
    NTSTATUS status;
    const IO_STACK_LOCATION* request = IoGetCurrentIrpStackLocation(irp);
    if (request->Parameters.DeviceIoControl.OutputBufferLength < QUILLET_HID_REPORT_SIZE) {
        return CompleteIrp(irp, STATUS_BUFFER_TOO_SMALL, 0);
    }
    KeAcquireSpinLock(&lock, &irql);
    status = QueueReadLocked(device, irp);
    KeReleaseSpinLock(&lock, irql);
    if (status != STATUS_PENDING) return CompleteIrp(irp, status, 0);
    KeSetEvent(&changed, IO_NO_INCREMENT, FALSE);
    KeSetEvent(&readFrom, IO_NO_INCREMENT, FALSE);
    return STATUS_PENDING;
}

PKEVENT SetPresentDevice(PDEVICE_OBJECT device) {
    KIRQL irql;
    PIRP irp;
    KeClearEvent(&readFrom);
    KeAcquireSpinLock(&lock, &irql);
    presentDevice = device;
    KeReleaseSpinLock(&lock, irql);
    KeSetEvent(&changed, IO_NO_INCREMENT, FALSE);
    while (device == NULL && (irp = TakeRead()) != NULL) CompleteIrp(irp, STATUS_DELETE_PENDING, 0);
    return &readFrom;
}

BOOLEAN IsPresent(PDEVICE_OBJECT device) {
    KIRQL irql;
    BOOLEAN present;
    KeAcquireSpinLock(&lock, &irql);
    present = device == presentDevice;
    KeReleaseSpinLock(&lock, irql);
    return present;
}

/* ---- The pipe */

/* Wine's class driver takes a byte off the count that it hands to the host, for the id. */
NTSTATUS SendOutput(PIRP irp) {
    const HidTransferPacket* packet = irp->UserBuffer;
    ULONG written = 0;
    if (!WriteFile(reportPipe, packet->buffer, packet->length, &written, NULL)) {
        return CompleteIrp(irp, STATUS_DEVICE_NOT_CONNECTED, 0);
    }
    return CompleteIrp(irp, STATUS_SUCCESS, packet->length + 1);
}

static BOOLEAN IsPlugged(void) {
    return !IsPresent(NULL);
}

/* NULL while the device isn't plugged in. */
static PIRP WaitForRead(void) {
    PIRP irp;
    while ((irp = TakeRead()) == NULL && IsPlugged()) {
        KeWaitForSingleObject(&changed, Executive, KernelMode, FALSE, NULL);
    }
    return irp;
}

/* Until the client goes. What it sends while the device isn't plugged in goes nowhere. */
void ServeReports(HANDLE pipe) {
    UCHAR report[QUILLET_HID_REPORT_SIZE];
    ULONG size = 0;
    LARGE_INTEGER interval;
    interval.QuadPart = -(LONGLONG)REPORT_INTERVAL_MS * TICKS_PER_MS;
    while (ReadFile(pipe, report, sizeof(report), &size, NULL)) {
        const PIRP irp = WaitForRead();
        if (irp == NULL) continue;
        RtlCopyMemory(irp->UserBuffer, report, size);
        CompleteIrp(irp, STATUS_SUCCESS, size);
        KeDelayExecutionThread(KernelMode, FALSE, &interval);
    }
}

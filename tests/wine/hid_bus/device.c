/* The device: what it says of itself, and where its requests go. */
#include "hid_bus.h"

static const UCHAR kReportDescriptor[] = {
    0x06, 0x00,
    0xFF,       /* usage page: vendor's own */
    0x09, 0x01, /* usage 1 */
    0xA1, 0x01, /* application collection */
    0x85, 0x04, /*   report id 4 */
    0x15, 0x00, /*   values from 0 */
    0x26, 0xFF,
    0x00,                              /*   to 255 */
    0x75, 0x08,                        /*   of 8 bits */
    0x95, QUILLET_HID_REPORT_SIZE - 1, /*   as many as fit behind the id */
    0x09, 0x02,                        /*   usage 2 */
    0x81, 0x02,                        /*   input */
    0x95, QUILLET_HID_REPORT_SIZE - 1,
    0x09, 3,    /*   the same with usage 3 */
    0x91, 0x02, /*   output */
    0xC0        /* end */
};

static const HidDescriptor kDescriptor = {sizeof(HidDescriptor), 0x21, 0x0110, 0, 1, 0x22, sizeof(kReportDescriptor)};

static const HidDeviceAttributes kAttributes = {sizeof(HidDeviceAttributes), 0x18D1, 0x010B, 0x0100, {0}};

/* The two lists end with an empty text of their own. The compatible id makes Wine put its class driver on top. */
static const WCHAR kDeviceId[] = L"QUILLETBUS\\VID_18D1&PID_010B";
static const WCHAR kInstanceId[] = L"1234567890";
static const WCHAR kHardwareIds[] = L"QUILLETBUS\\VID_18D1&PID_010B\0";
static const WCHAR kCompatibleIds[] = L"WINEBUS\\WINE_COMP_HID\0";

static const WCHAR kManufacturer[] = L"Quillet";
static const WCHAR kProduct[] = L"Virtual barcode scanner";

/* ---- Plug and play */

static NTSTATUS AnswerId(PIRP irp, const WCHAR* text, SIZE_T size) {
    WCHAR* copy = ExAllocatePool(PagedPool, size);
    if (copy == NULL) return CompleteIrp(irp, STATUS_INSUFFICIENT_RESOURCES, 0);
    RtlCopyMemory(copy, text, size);
    return CompleteIrp(irp, STATUS_SUCCESS, (ULONG_PTR)copy);
}

static NTSTATUS QueryId(PIRP irp, BUS_QUERY_ID_TYPE type) {
    switch (type) {
        case BusQueryDeviceID: return AnswerId(irp, kDeviceId, sizeof(kDeviceId));
        case BusQueryInstanceID: return AnswerId(irp, kInstanceId, sizeof(kInstanceId));
        case BusQueryHardwareIDs: return AnswerId(irp, kHardwareIds, sizeof(kHardwareIds));
        case BusQueryCompatibleIDs: return AnswerId(irp, kCompatibleIds, sizeof(kCompatibleIds));
        default: return CompleteIrp(irp, irp->IoStatus.Status, irp->IoStatus.Information);
    }
}

static NTSTATUS Remove(PDEVICE_OBJECT device, PIRP irp) {
    CompleteIrp(irp, STATUS_SUCCESS, 0);
    IoDeleteDevice(device);
    DeviceIsRemoved();
    return STATUS_SUCCESS;
}

NTSTATUS DevicePnp(PDEVICE_OBJECT device, PIRP irp) {
    const IO_STACK_LOCATION* request = IoGetCurrentIrpStackLocation(irp);
    switch (request->MinorFunction) {
        case IRP_MN_QUERY_ID: return QueryId(irp, request->Parameters.QueryId.IdType);
        case IRP_MN_REMOVE_DEVICE: return Remove(device, irp);
        case IRP_MN_QUERY_CAPABILITIES:
            request->Parameters.DeviceCapabilities.Capabilities->UniqueID = TRUE;
            return CompleteIrp(irp, STATUS_SUCCESS, 0);
        case IRP_MN_START_DEVICE:
        case IRP_MN_SURPRISE_REMOVAL: return CompleteIrp(irp, STATUS_SUCCESS, 0);
        default: return CompleteIrp(irp, irp->IoStatus.Status, irp->IoStatus.Information);
    }
}

/* ---- Requests of the class driver */

static NTSTATUS Answer(PIRP irp, const void* bytes, ULONG size) {
    const IO_STACK_LOCATION* request = IoGetCurrentIrpStackLocation(irp);
    if (request->Parameters.DeviceIoControl.OutputBufferLength < size) {
        return CompleteIrp(irp, STATUS_BUFFER_TOO_SMALL, 0);
    }
    RtlCopyMemory(irp->UserBuffer, bytes, size);
    return CompleteIrp(irp, STATUS_SUCCESS, size);
}

static NTSTATUS AnswerString(PIRP irp, ULONG id) {
    switch (id & 0xFFFF) { /* a language stands above */
        case HidStringManufacturer: return Answer(irp, kManufacturer, sizeof(kManufacturer));
        case HidStringProduct: return Answer(irp, kProduct, sizeof(kProduct));
        case HidStringSerialNumber: return Answer(irp, kInstanceId, sizeof(kInstanceId));
        default: return CompleteIrp(irp, STATUS_NOT_SUPPORTED, 0);
    }
}

NTSTATUS DeviceControl(PDEVICE_OBJECT device, PIRP irp) {
    const IO_STACK_LOCATION* request = IoGetCurrentIrpStackLocation(irp);
    if (!IsPresent(device)) return CompleteIrp(irp, STATUS_DELETE_PENDING, 0);
    switch (request->Parameters.DeviceIoControl.IoControlCode) {
        case HidGetDeviceDescriptor: return Answer(irp, &kDescriptor, sizeof(kDescriptor));
        case HidGetReportDescriptor: return Answer(irp, kReportDescriptor, sizeof(kReportDescriptor));
        case HidGetDeviceAttributes: return Answer(irp, &kAttributes, sizeof(kAttributes));
        case HidGetString:
            return AnswerString(irp, (ULONG)(ULONG_PTR)request->Parameters.DeviceIoControl.Type3InputBuffer);
        case HidReadReport: return QueueRead(device, irp);
        case HidWriteReport:
        case HidSetOutputReport: return SendOutput(irp);
        case HidActivateDevice:
        case HidDeactivateDevice: return CompleteIrp(irp, STATUS_SUCCESS, 0);
        default: return CompleteIrp(irp, STATUS_NOT_SUPPORTED, 0);
    }
}

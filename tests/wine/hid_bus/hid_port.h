// SPDX-License-Identifier: MIT
/* What a HID minidriver shares with the class driver, and what else MinGW's headers lack or have wrong. */
#ifndef QUILLET_HID_PORT_H
#define QUILLET_HID_PORT_H

#include <ntddk.h>

NTSTATUS NTAPI ZwCreateEvent(PHANDLE event, ACCESS_MASK access, POBJECT_ATTRIBUTES attributes, EVENT_TYPE type,
                             BOOLEAN state);
NTSTATUS NTAPI ZwWaitForSingleObject(HANDLE object, BOOLEAN alertable, PLARGE_INTEGER timeout);

#define HID_PORT_CODE(id) CTL_CODE(FILE_DEVICE_KEYBOARD, (id), METHOD_NEITHER, FILE_ANY_ACCESS)

enum HidPortCode {
    HidGetDeviceDescriptor = HID_PORT_CODE(0),
    HidGetReportDescriptor = HID_PORT_CODE(1),
    HidReadReport = HID_PORT_CODE(2),
    HidWriteReport = HID_PORT_CODE(3),
    HidGetDeviceAttributes = HID_PORT_CODE(9),
    HidSetOutputReport = CTL_CODE(FILE_DEVICE_KEYBOARD, 101, METHOD_IN_DIRECT, FILE_ANY_ACCESS)
};

typedef struct {
    ULONG size;
    USHORT vendorId;
    USHORT productId;
    USHORT versionNumber;
    USHORT reserved[11];
} HidDeviceAttributes;

#pragma pack(push, 1)
typedef struct {
    UCHAR length;
    UCHAR type;
    USHORT hidVersion;
    UCHAR country;
    UCHAR descriptorCount;
    UCHAR reportType;
    USHORT reportLength;
} HidDescriptor;
#pragma pack(pop)

/* A report that the host sends. */
typedef struct {
    UCHAR* buffer;
    ULONG length;
    UCHAR reportId;
} HidTransferPacket;

#endif

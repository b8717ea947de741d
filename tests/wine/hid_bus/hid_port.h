/* What a HID minidriver shares with the class driver; MinGW's headers lack it or have it wrong. */
#ifndef QUILLET_HID_PORT_H
#define QUILLET_HID_PORT_H

#include <ntddk.h>

#define HID_PORT_CODE(id) CTL_CODE(FILE_DEVICE_KEYBOARD, (id), METHOD_NEITHER, FILE_ANY_ACCESS)

enum HidPortCode {
    HidGetDeviceDescriptor = HID_PORT_CODE(0),
    HidGetReportDescriptor = HID_PORT_CODE(1),
    HidReadReport = HID_PORT_CODE(2),
    HidWriteReport = HID_PORT_CODE(3),
    HidGetString = HID_PORT_CODE(4),
    HidActivateDevice = HID_PORT_CODE(7),
    HidDeactivateDevice = HID_PORT_CODE(8),
    HidGetDeviceAttributes = HID_PORT_CODE(9),
    HidSetOutputReport = CTL_CODE(FILE_DEVICE_KEYBOARD, 101, METHOD_IN_DIRECT, FILE_ANY_ACCESS)
};

enum HidStringId { HidStringManufacturer = 14, HidStringProduct = 15, HidStringSerialNumber = 16 };

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

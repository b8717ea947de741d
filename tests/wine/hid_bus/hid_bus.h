/* The parts of the driver. The bus has room for one device. */
#ifndef QUILLET_HID_BUS_H
#define QUILLET_HID_BUS_H

#include "hid_pipes.h"
#include "hid_port.h"

#define TICKS_PER_MS 10000 /* of kernel time */

/* ---- driver.c: the bus */

NTSTATUS CompleteIrp(PIRP irp, NTSTATUS status, ULONG_PTR information);
/* Both belong to one thread. They return once the class driver reads from the device, or has let go of it; false if it
   doesn't in time. */
BOOLEAN PlugDevice(void);
BOOLEAN UnplugDevice(void);
void DeviceIsRemoved(void);

/* ---- device.c: requests to the device */

NTSTATUS DevicePnp(PDEVICE_OBJECT device, PIRP irp);
NTSTATUS DeviceControl(PDEVICE_OBJECT device, PIRP irp);

/* ---- reports.c: reports both ways */

void InitReports(void);
/* The device that is plugged in, or NULL: requests to any other fail, and those that wait are ended. Gives the event that
   is set as soon as the device is read from. */
PKEVENT SetPresentDevice(PDEVICE_OBJECT device);
BOOLEAN IsPresent(PDEVICE_OBJECT device);
/* The class driver's read: takes the next report, and waits for it. */
NTSTATUS QueueRead(PDEVICE_OBJECT device, PIRP irp);
/* A report of the host. Waits while the pipe's client reads nothing and the pipe is full. */
NTSTATUS SendOutput(PIRP irp);
void ServeReports(HANDLE pipe);
void SetReportPipe(HANDLE pipe);

/* ---- pipe_servers.c */

/* A thread each for the plug pipe and the report pipe. */
BOOLEAN StartPipeServers(void);

#endif

/* The parts of the driver. The bus has room for one device. */
#ifndef QUILLET_HID_BUS_H
#define QUILLET_HID_BUS_H

#include "hid_port.h"
#include "pipes.h"

/* ---- driver.c: the bus. Plugging and unplugging belong to one thread; they return once the system has listed the
   device, or has taken it off its list. */

NTSTATUS CompleteIrp(PIRP irp, NTSTATUS status, ULONG_PTR information);
BOOLEAN PlugDevice(void);
void UnplugDevice(void);

/* ---- device.c: requests to the device */

NTSTATUS DevicePnp(PDEVICE_OBJECT device, PIRP irp);
NTSTATUS DeviceControl(PDEVICE_OBJECT device, PIRP irp);

/* ---- reports.c: reports both ways */

void InitReports(void);
/* The device that is plugged in, or NULL: requests to any other fail, and those that wait are ended. */
void SetPresentDevice(PDEVICE_OBJECT device);
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

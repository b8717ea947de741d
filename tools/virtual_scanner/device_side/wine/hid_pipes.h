/* The pipes by which a program plays the device of this bus; each has one client at a time. */
#ifndef QUILLET_HID_BUS_PIPES_H
#define QUILLET_HID_BUS_PIPES_H

/* Requests of one byte, each answered by one byte once it is done: the device is listed, or no longer. When the client
   goes away, the device is unplugged. */
#define QUILLET_HID_PLUG_PIPE "\\\\.\\pipe\\quillet-hid-plug"
#define QUILLET_HID_PLUG_REQUEST 'P'
#define QUILLET_HID_UNPLUG_REQUEST 'U'
#define QUILLET_HID_DONE 'D'
#define QUILLET_HID_FAILED 'F'

/* Messages, one a report: to the host what is written, from the host what is read. */
#define QUILLET_HID_REPORT_PIPE "\\\\.\\pipe\\quillet-hid-reports"

/* Report id included. */
#define QUILLET_HID_REPORT_SIZE 64

#endif

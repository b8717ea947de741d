/*
 * Quillet: a library for barcode scanners on USB HID, serial and virtual serial ports.
 *
 * Conventions, by number; the comments below refer to them.
 *
 *  1. Handles. A ScannerHandle stands for one scanner connection. The application owns it from createScanner to
 *     destoryScanner. A null handle is refused with ResultBadArgument by every call; a stale or foreign one is the
 *     caller's fault and isn't noticed.
 *  2. Results. Calls return a ResultCode unless said otherwise. There is no last error besides it and no text of an
 *     error; the log (setLogLevel) tells more.
 *  3. Null pointers and lengths. A pointer that may be null is marked so; any other null pointer gives
 *     ResultBadArgument before anything is opened or sent. A length below 0 counts as 0.
 *  4. Buffers. The caller owns every buffer. A result that fits is copied to its start and the rest of the whole
 *     buffer is zero; its length goes to the length pointer. A result as long as the buffer has no terminating zero,
 *     and results may hold zeros themselves, so the length is what counts. A result that doesn't fit gives
 *     ResultBufferTooSmall or ResultReplyTooLong, as the call tells, and isn't cut.
 *  5. Lengths are in bytes, times in milliseconds, texts 8-bit and zero-terminated unless a length goes with them.
 *  6. Threads. Any call may be made from any thread. Opening, closing and destroying one handle exclude each other
 *     and wait for each other. A scanner must be closed on the thread that opened it: the claim of its port belongs
 *     to that thread, and a close elsewhere ends the connection but keeps the port claimed until the process ends.
 *     A call that is waiting on a handle when another thread destroys it ends with ResultTimeout; no call may be
 *     begun on it any more. One consumer of barcodes a handle is the supported use; more are safe and share them.
 *  7. Blocking. A call says so if it waits. Sending waits until the system has taken the bytes, for all handles
 *     together, so a device that takes none holds up every sending call until it goes on or is unplugged.
 *  8. The library starts threads of its own with all signals blocked, never writes to the standard streams, installs
 *     no signal handler, lets no exception out, and passes no file descriptor on to child processes.
 */
#ifndef QUILLET_QUILLET_H
#define QUILLET_QUILLET_H

#include <stdint.h>

#if defined(QUILLET_BUILDING_LIBRARY)
#if defined(_WIN32)
#define QUILLET_API /* the module definition file exports the names */
#else
#define QUILLET_API __attribute__((visibility("default")))
#endif
#elif defined(_WIN32)
#define QUILLET_API __declspec(dllimport)
#else
#define QUILLET_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One scanner connection; null is no handle. */
typedef void* ScannerHandle;

typedef int32_t ResultCode;

enum {
    ResultSuccess = 0,
    ResultBadArgument = 10,     /* null handle or pointer, or a value outside the call's range; nothing was done */
    ResultBufferTooSmall = 11,  /* the result is longer than the caller's buffer */
    ResultClosed = 101,         /* the scanner isn't open */
    ResultClaimed = 102,        /* another handle or process holds the port */
    ResultNotClaimed = 103,
    ResultDisabled = 105,       /* the scanner isn't connected at present */
    ResultIllegal = 106,        /* not allowed now: not connected, or another exchange is running */
    ResultNoHardware = 107,     /* no scanner was found, or it could not be opened */
    ResultNoExist = 109,        /* no link for this handle, or a query's exchange failed */
    ResultFailure = 111,        /* a reply wasn't the one expected */
    ResultTimeout = 112,
    ResultBusy = 113,           /* used inside the library alone */
    ResultReplyTooLong = 115,   /* as ResultBufferTooSmall, from the calls that say so */
    ResultOpenException = 403   /* opening met an unexpected failure */
};

/* States that getScannnerState tells. */
enum {
    ScannerStateClosed = 1,
    ScannerStateOpen = 2,    /* open and without a link: the scanner is unplugged, or just being set up */
    ScannerStateEnabled = 3  /* connected; barcodes arrive */
};

/* ---- Connection ------------------------------------------------------------------------------------------------ */

/* A new handle in state 1, or null if there is no memory or no thread to be had. Touches no device. */
QUILLET_API ScannerHandle createScanner(void);

/*
 * Ends a handle in any state, closing it first. Waits for calls that other threads have under way on it, which it
 * makes end soon. Destroying any handle also stops the log, for the whole process, until the next setLogLevel.
 * Results: 0, 10.
 */
QUILLET_API ResultCode destoryScanner(ScannerHandle handle);

/*
 * Finds a scanner, claims its port against other handles and processes, and connects. Blocks for some 100 ms, for up
 * to 1 s more if the port is claimed elsewhere.
 *
 * connection: "key=value,key=value", case ignored, no blanks around. Keys:
 *   protocol    "usb", "virtual serial port", "serial port"; anything else, or nothing, chooses by what is plugged in,
 *               USB before virtual serial
 *   serialport  number of the COM port, for the serial protocols
 *   baudrate    bits per second, 9600 by default
 *   bytesize    data bits, 8 by default
 *   parity      0 none (default), 1 odd, 2 even, 3 mark, 4 space
 *   stopbits    0 one (default), 1 one and a half, 2 two
 *   module      a text for the device's name in the log
 * An empty text is a good choice where there is one scanner.
 *
 * From then on the scanner comes back by itself after it was unplugged, and getScannnerState tells whether it is
 * there. On a handle in state 3 the call returns 0 and doesn't look at the text. After a failure the handle is closed
 * and nothing is held.
 * Results: 0, 10, 101, 102, 103, 105, 106, 107, 403.
 */
QUILLET_API ResultCode openScanner(ScannerHandle handle, const char* connection);

/*
 * Disconnects and gives up the port; barcodes that wait are dropped. An exchange under way on another thread ends with
 * 112. Results: 0, 10, 101 if the handle isn't open.
 */
QUILLET_API ResultCode closeScanner(ScannerHandle handle);

/*
 * Stores the state, 1 to 3. The state is stored whatever the result: that is the number left by the handle's operation
 * before, 101 on a new handle.
 */
QUILLET_API ResultCode getScannnerState(ScannerHandle handle, int32_t* state);

/*
 * Asks the scanner to send barcodes with (1) or without (0) their symbology; each connecting starts with 0. The
 * library takes both forms at any time. Results: 0, 10 for another pattern, 105 if not connected.
 */
QUILLET_API ResultCode setScannerPattern(ScannerHandle handle, int32_t pattern);

/*
 * Starts or stops the log, one file for all handles of the process, in the directory log/<program> beside the
 * program's executable. It takes no handle. level: 0 to 8 keeps lines of that level and above (1 debug, 2 warnings,
 * 3 errors, 4 failures, 6 and 7 entry and exit of operations, 8 details; the order is the filter's, so 2 keeps all but
 * debug lines and 8 keeps details alone), 9 and above stops the log. Results: 0, also if the file can't be written,
 * 10 for a level below 0.
 */
QUILLET_API ResultCode setLogLevel(int32_t level);

/* ---- Barcodes -------------------------------------------------------------------------------------------------- */

/*
 * Takes the oldest waiting barcode; waits for one if there is none. Barcodes wait in the order of their scanning, from
 * the moment of connecting until closeScanner, also while the scanner is unplugged.
 *
 * codeType:  receives the number of the symbology, 0 if unknown; may be null
 * buffer:    receives the barcode, any bytes (convention 4)
 * length:    receives its length
 * timeoutMs: below 0 waits for ever. The time is looked at every 100 ms, so a call can end up to 100 ms late; with 0
 *            it ends after 100 ms at the latest. A barcode ends the wait at once.
 *
 * Results: 0; 10; 11 if the barcode is longer than the buffer, and then it is lost, with buffer and length as they
 * were; 112 if none came in time.
 */
QUILLET_API ResultCode getBarCode(ScannerHandle handle, int32_t* codeType, uint8_t* buffer, int32_t bufferSize,
                                  int32_t* length, int64_t timeoutMs);

/*
 * Stores the number of waiting barcodes. The count is stored whatever the result: that is the number left by the
 * handle's operation before, as with getScannnerState.
 */
QUILLET_API ResultCode getBarCodeCacheCount(ScannerHandle handle, int32_t* count);

#ifdef __cplusplus
}
#endif

#endif /* QUILLET_QUILLET_H */

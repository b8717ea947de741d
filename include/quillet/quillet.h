/* SPDX-License-Identifier: MIT */
/*
 * Quillet: a library for barcode scanners on USB HID, serial and virtual serial ports.
 *
 * Conventions, by number; the comments below refer to them.
 *
 *  1. Handles. A ScannerHandle stands for one scanner connection. The application owns it from createScanner to
 *     destoryScanner. A null handle gives ResultBadArgument, but from QueryCommandSetting (ResultNoExist),
 *     getSerialPortDevice (an empty text) and the os_ calls, whose handles are others. What happens with a handle that
 *     was destroyed, or that createScanner didn't give, is undefined.
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
 *     to that thread. A close elsewhere ends the connection but leaves the port claimed by this process until it ends:
 *     its handles get ResultClaimed for that port, while other processes can have it. When a handle is destroyed, what
 *     other threads have under way on it ends soon: getBarCode and directIO with ResultTimeout, a directIO that hasn't
 *     sent yet with ResultIllegal, QueryCommandSetting and getScannerVersion with ResultNoExist, getSerialPortDevice
 *     after the port that it is at, with what it has found; the others as ever. No call may be begun on it any more.
 *     One consumer of barcodes a handle is the supported use; more are safe and share them.
 *  7. Blocking. A call says so if it waits. Sending waits until the system has taken the bytes, for all handles
 *     together, so a device that takes none holds up every sending call, until it goes on, is unplugged, or its own
 *     handle is closed or destroyed: what is being written then has 2 s left and fails (one HID report on Linux when
 *     the kernel gives it up, after 5 s).
 *  8. The library starts threads of its own (on Linux with all signals blocked), never writes to the standard streams,
 *     installs no signal handler, lets no exception out, and passes no file descriptor or handle on to programs that
 *     the process starts. On Linux a thread isn't cancelled (pthread_cancel) inside a call, but after it.
 *  9. Unloading. The library may be unloaded and the process may end with handles open. On Linux the unloading ends the
 *     library's threads and gives up its devices and claims; on Windows the library stays loaded until they have ended,
 *     so destroy all handles and stop the log (setLogLevel with 9) for it to go at once. No call may be under way or
 *     begun from then on. On Windows closing and destroying handles, and stopping the log, wait for threads: never do
 *     them in DllMain, nor in destructors of a DLL's global objects, which run there.
 * 10. Forking (Linux). In a child of fork call nothing but exec or _exit: the library's threads aren't there, and a
 *     call of the library may wait for ever. Whatever the child does, the parent's scanners aren't harmed.
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
    ResultBadArgument = 10,    /* null handle or pointer, or a value that isn't accepted; nothing was done */
    ResultBufferTooSmall = 11, /* the result is longer than the caller's buffer */
    ResultClosed = 101,        /* the scanner isn't open */
    ResultClaimed = 102,       /* another handle or process holds the port */
    ResultNotClaimed = 103,
    ResultDisabled = 105,   /* the scanner isn't connected at present */
    ResultIllegal = 106,    /* not allowed now: not connected, another exchange is running, or no claim can be made */
    ResultNoHardware = 107, /* no scanner was found, or it could not be opened */
    ResultNoExist = 109,    /* no link for this handle, or a query's exchange failed */
    ResultFailure = 111,    /* a reply wasn't the one expected */
    ResultTimeout = 112,
    ResultBusy = 113,         /* used inside the library alone */
    ResultReplyTooLong = 115, /* as ResultBufferTooSmall, from the calls that say so */
    ResultOpenException = 403 /* most often a value of the connection text that should be a number */
};

/* States that getScannnerState tells. */
enum {
    ScannerStateClosed = 1,
    ScannerStateOpen = 2,   /* open and without a link: the scanner is unplugged, or just being set up */
    ScannerStateEnabled = 3 /* connected; barcodes arrive */
};

/* ---- Connection ------------------------------------------------------------------------------------------------ */

/* A new handle in state 1, or null if there is no memory or no thread to be had. Touches no device. */
QUILLET_API ScannerHandle createScanner(void);

/*
 * Ends a handle in any state, closing it first. Waits for calls that other threads have under way on it, which it
 * makes end soon (convention 6). Destroying any handle also stops the log, for the whole process, until the next
 * setLogLevel; lines that aren't in the file yet are lost.
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
 *   serialport  number of the COM port; counts only beside one of the two serial protocols
 *   baudrate    bits per second, 9600 by default
 *   bytesize    data bits, 8 by default
 *   parity      0 none (default), 1 odd, 2 even, 3 mark, 4 space
 *   stopbits    0 one (default), 1 one and a half, 2 two
 *   module      accepted, without a visible effect
 * An empty text is a good choice where there is one scanner. README.md tells which scanners are found, and
 * docs/troubleshooting.md what each result can come from.
 *
 * From then on the scanner comes back by itself after it was unplugged, and getScannnerState tells whether it is
 * there. On a handle in state 3 the call returns 0 and doesn't look at the text. In state 2 it closes and opens anew:
 * barcodes that wait are dropped, and if the scanner is still away the call fails and the handle, closed now, waits for
 * it no more. So wait for state 3 instead. After a failure the handle is closed and nothing is held.
 * Results: 0, 10, 101, 102, 103, 105, 106, 107, 403.
 */
QUILLET_API ResultCode openScanner(ScannerHandle handle, const char* connection);

/*
 * Disconnects and gives up the port; barcodes that wait are dropped. An exchange under way on another thread ends with
 * 112. A getBarCode that is waiting isn't ended. Waits up to 2 s for a device that takes nothing (convention 7), and
 * for a getSerialPortDevice on the handle. Results: 0, 10, 101 if the handle isn't open.
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
 * 10 for a level below 0. README.md tells where the file lies and what stands in it.
 */
QUILLET_API ResultCode setLogLevel(int32_t level);

/* ---- Barcodes -------------------------------------------------------------------------------------------------- */

/*
 * Takes the oldest waiting barcode; waits for one if there is none. A time-out of 0 waits, too: up to 100 ms. Barcodes
 * wait in the order of their scanning, from the moment of connecting until closeScanner, also while the scanner is
 * unplugged. The longest barcode that is kept has 1 MiB; a longer one is dropped whole.
 *
 * codeType:  receives the number of the symbology (docs/symbologies.md), 0 if unknown; may be null
 * buffer:    receives the barcode, any bytes (convention 4); 8192 bytes hold any single symbol
 * length:    receives its length
 * timeoutMs: below 0 waits for ever. The time is looked at every 100 ms, so a call can end up to 100 ms late. A
 *            barcode ends the wait at once. On a handle that isn't open the call waits as well, and closeScanner
 *            doesn't end it, only destoryScanner does; so a limit is the better choice.
 *
 * Results: 0; 10; 11 if the barcode is longer than the buffer, and then it is lost, with codeType written, buffer and
 * length as they were; 112 if none came in time.
 */
QUILLET_API ResultCode getBarCode(ScannerHandle handle, int32_t* codeType, uint8_t* buffer, int32_t bufferSize,
                                  int32_t* length, int64_t timeoutMs);

/*
 * Stores the number of waiting barcodes. The count is stored whatever the result: that is the number left by the
 * handle's operation before, as with getScannnerState.
 */
QUILLET_API ResultCode getBarCodeCacheCount(ScannerHandle handle, int32_t* count);

/* ---- Settings -------------------------------------------------------------------------------------------------- */

/*
 * Each call sends one setting to the scanner, which keeps it; the library keeps no record of settings. No call waits
 * for the scanner's answer or tells it: QueryCommandSetting reads back what the scanner made of a setting. Sending
 * blocks as convention 7 tells. Calls from several threads are sent one after the other, each packet whole.
 *
 * Arguments:
 *   on     0 switches off, every other value switches on.
 *   value  a number; what is accepted stands with the call, everything else is refused. What a number without a
 *          meaning told here stands for is told by the scanner's manual.
 *   Characters are single bytes of any value; int8_t where the bytes from 0x80 up count as negative.
 *
 * Results, unless a call says otherwise:
 *   0    handed to the connection. That includes a write that failed there (the log has it) and a scanner that is
 *        away at present (state 2): the setting is lost then
 *   10   null handle or a refused value; nothing was sent
 *   109  the handle has no connection; nothing was sent. Ports above COM132 have none for sending
 *
 * docs/setting-codes.md lists the settings with the numbers that QueryCommandSetting, getBarCodeCmd and
 * getQRBarCodeCmd know them by.
 */

/* Reading: all codes, or kinds of codes, at once. */
QUILLET_API ResultCode setReadAllBarcodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setBarcode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setQRcode(ScannerHandle handle, uint8_t on); /* not setQRCode, the symbology alone */
QUILLET_API ResultCode setReadOnlyNumericBarcodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setOneDimensionalInverseCode(ScannerHandle handle, uint8_t on);

/* Linear symbologies and what belongs to one: check digits, their transmission, conversion. */
QUILLET_API ResultCode setCode11(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode11CheckBit(ScannerHandle handle, int32_t value); /* 0 to 2 */
QUILLET_API ResultCode setCode11TransmitCheckBit(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode128(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode128FNC1(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode128FNC4(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setISBT128(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode39(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode39CheckBit(ScannerHandle handle, int32_t value); /* 0, 1 */
QUILLET_API ResultCode setCode39TransmitCheckBit(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode39FullASCIIConversion(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode39ToCode32(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode32Prefix(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCode93(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCodabar(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCodabarCLSIEditing(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCodabarNOTISEditing(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setInterleaved2Of5(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setInterleaved2Of5CheckBit(ScannerHandle handle, int32_t value);         /* 0 to 2 */
QUILLET_API ResultCode setInterleaved2Of5TransmitCheckBit(ScannerHandle handle, int32_t value); /* 0 off, 1 on */
QUILLET_API ResultCode setITFCropBits(ScannerHandle handle, int32_t value);                     /* 0 to 50 */
QUILLET_API ResultCode setMatrix2Of5(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setMatrix2Of5CheckBit(ScannerHandle handle, int32_t value);         /* 0, 1 */
QUILLET_API ResultCode setMatrix2Of5TransmitCheckBit(ScannerHandle handle, int32_t value); /* 0 off, 1 on */
QUILLET_API ResultCode setIndustrial2Of5(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setStandard2Of5(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setMSI(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setMSICheckBit(ScannerHandle handle, int32_t value);          /* 0, 1 */
QUILLET_API ResultCode setMSICheckBitAlgorithm(ScannerHandle handle, int32_t value); /* 0, 1 */
QUILLET_API ResultCode setMSITransmitCheckBit(ScannerHandle handle, uint8_t on);

/*
 * UPC, EAN and the book and periodical numbers in them. "Tow" and "Five" are the supplements of two and five digits,
 * "2_5 required" demands one of them.
 */
QUILLET_API ResultCode setUPC_A(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_ACheckBit(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_APreamble(ScannerHandle handle, int32_t value); /* 0 to 2 */
QUILLET_API ResultCode setUPC_ATowExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_AFiveExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_A2_5DigitsRequired(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_E(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_ECheckBit(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_EPreamble(ScannerHandle handle, int32_t value); /* 0 to 2 */
QUILLET_API ResultCode setUPC_ETowExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_EFiveExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPC_E2_5DigitsRequired(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setConvertUPC_ETo_A(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_13(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_13TowExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_13FiveExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_13DigitsRequired2_5(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_13_Trim_Last_Position(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_8(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_8TowExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_8FiveExtensionCodes(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_8DigitsRequired2_5(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setEAN_8_Trim_Last_Position(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setConvertEAN_8ToEAN_13(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setISBN(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setISBNFormat(ScannerHandle handle, int32_t value); /* 0, 1 */
QUILLET_API ResultCode setISSN(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setPriceField(ScannerHandle handle, uint8_t on);

/* GS1 symbologies, composite codes and the output of group separators. */
QUILLET_API ResultCode setGS1_128(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUCC_EANImitateGS1_128(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setGS1Databar(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setGS1DataBarLimitedExpanded(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setGS1Expandend(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setConvertGS1DataBarToUPC_EAN(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCompositeCode(ScannerHandle handle, int32_t value); /* 0 to 3 */
QUILLET_API ResultCode setCodeGroupSignToBlank(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setCodeGroupSignTo29F(ScannerHandle handle, uint8_t on);

/* Two-dimensional symbologies. "Inverse" reads light codes on dark ground. */
QUILLET_API ResultCode setPDF417(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setMicroPDF417(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setQRCode(ScannerHandle handle, uint8_t on); /* not setQRcode, a kind of codes */
QUILLET_API ResultCode setQRCodeInverse(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setMicroQRCode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setDataMatrix(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setDataMatrixInverse(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setDataMatrixMirrorImages(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setDMCodeHorizontalBarToEnter(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setAztecCode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setAztecCodeInverse(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setHanXin(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setHanXinInverse(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setMaxiCode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setGMCode(ScannerHandle handle, uint8_t on);

/*
 * Printed characters. setOCRPassportInverse and setOCRPassportTranslateInverse are one setting to the scanner, and so
 * are setOCRPassportTranslate and setReadOnlyNumericBarcodes.
 */
QUILLET_API ResultCode setOCRPassport(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setOCRPassportInverse(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setOCRPassportTranslate(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setOCRPassportTranslateInverse(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setOCRISBN(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setMICR_E_13B(ScannerHandle handle, uint8_t on);

/* Postal codes, and the Brazilian rule for filling up a barcode. */
QUILLET_API ResultCode setUSPostnet(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUSPlanet(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUSPS4CB(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUPUFICSPostal(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUKPostal(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setJapanPostal(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setAustraliaPost(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setNetherlandsKIXCode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setChinaPost(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setKoreanPost(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setBrazilianBarcodeRuleFill(ScannerHandle handle, uint8_t on);

/* Unique device identification (UDI) of medical products. */
QUILLET_API ResultCode setReadUDI(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUDIDataFormat(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setUDIFullDataOutput(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setInterceptUDIData(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setInterceptAndOutputUDI(ScannerHandle handle, uint8_t on);

/* What the scanner does to a barcode's text before it sends it. */
QUILLET_API ResultCode setToggleCaseFunction(ScannerHandle handle, int32_t value);   /* 0 to 2 */
QUILLET_API ResultCode setRemoveOrReduceSpaces(ScannerHandle handle, int32_t value); /* 0 to 2 */
QUILLET_API ResultCode setRemoveBarcodeZeroData(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setSkipBarcodeHeadData(ScannerHandle handle, int32_t value);    /* 0 to 49 */
QUILLET_API ResultCode setSkipBarcodeTailData(ScannerHandle handle, int32_t value);    /* 0 to 49 */
QUILLET_API ResultCode setControlCharacterOutput(ScannerHandle handle, int32_t value); /* 0, 2 */
QUILLET_API ResultCode setControlCharacterVisibleOutput(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setTowSignToTab(ScannerHandle handle, uint8_t on);

/* The range of a barcode that is sent: two numbers from 0 to 255. */
QUILLET_API ResultCode setGetSpecifiedRangeBarcodeData(ScannerHandle handle, int32_t first, int32_t second);

/* Two characters before or behind each barcode. A space goes out as 0x7F, which the scanner takes for one. */
QUILLET_API ResultCode setCodeDataPrefix(ScannerHandle handle, uint8_t first, uint8_t second);
QUILLET_API ResultCode setCodeDataSuffix(ScannerHandle handle, uint8_t first, uint8_t second);

/* A suffix by kind: 0 line feed, 1 carriage return, 2 tab, 3 line feed and carriage return, in this order. */
QUILLET_API ResultCode setCodeDataEndSuffix(ScannerHandle handle, int32_t kind);

/*
 * Replaces characters of a barcode. Sends a packet for each of a, b, c and d; a space as c leaves
 * out c and d. A failed packet doesn't stop the others, another thread's packet may come between them, and the result
 * is that of the last.
 */
QUILLET_API ResultCode setAnyCharacterReplacement(ScannerHandle handle, uint8_t a, uint8_t b, uint8_t c, uint8_t d);

/* Inserts a character; `value` goes to the scanner as it is. */
QUILLET_API ResultCode setInsertCharacter(ScannerHandle handle, int8_t character, uint8_t value);

/*
 * The control character before or behind each barcode over HID, in a form from 0 to 7.
 * Results: 0 for every accepted form, also without a connection; 10.
 */
QUILLET_API ResultCode setHIDLeadingControlCharacterForm(ScannerHandle handle, int32_t form, int8_t character);
QUILLET_API ResultCode setHIDPostControlCharacterForm(ScannerHandle handle, int32_t form, int8_t character);

/* When and how the scanner reads. */
QUILLET_API ResultCode setTriggerMode(ScannerHandle handle, int32_t value); /* 0 to 2 */
/* Milliseconds, 500 to 9900, rounded down to a tenth of a second. */
QUILLET_API ResultCode setDecodeTimeOut(ScannerHandle handle, int32_t value);
/* Milliseconds, 0 to 9900, rounded down to a tenth of a second. */
QUILLET_API ResultCode setMultiTimeOut(ScannerHandle handle, int32_t value);
/* These two are one setting to the scanner: the later call decides. setMultiSensitivity sends its value less 1. */
QUILLET_API ResultCode setScanMulti(ScannerHandle handle, int32_t value);           /* 0, 2 to 7 */
QUILLET_API ResultCode setMultiSensitivity(ScannerHandle handle, int32_t value);    /* 1 to 9 */
QUILLET_API ResultCode setReactionSensitivity(ScannerHandle handle, int32_t value); /* 0 to 255 */
QUILLET_API ResultCode setScreenScanning(ScannerHandle handle, int32_t value);      /* 0 off, 1 on */
QUILLET_API ResultCode setAimAtPrasing(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setSighting(ScannerHandle handle, int32_t value); /* 0, 1, 3; 3 goes out as 2 */

/* Sound, light, vibration and rest. */
QUILLET_API ResultCode setBuzzerEnable(ScannerHandle handle, int32_t value); /* 0 to 3 */
QUILLET_API ResultCode setBuzzerTone(ScannerHandle handle, int32_t value);   /* 1, 2, 4 */
QUILLET_API ResultCode setBuzzerVolume(ScannerHandle handle, int32_t value); /* 1, 2, 4 */
QUILLET_API ResultCode setVibrator(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setLEDLevel(ScannerHandle handle, int32_t value);         /* 0 to 10 */
QUILLET_API ResultCode setLEDColor(ScannerHandle handle, int32_t value);         /* 0 to 3 */
QUILLET_API ResultCode setDeviceHangupTime(ScannerHandle handle, int32_t value); /* 0 to 5 */

/* The scanner's link to the host. */
QUILLET_API ResultCode setHostMode(ScannerHandle handle, int32_t value);              /* 1 to 5 */
QUILLET_API ResultCode setVirtualSerialChecksum(ScannerHandle handle, int32_t value); /* 0 to 2 */
/* 0 to 6. Results: 0 for every accepted value, also without a connection; 10. */
QUILLET_API ResultCode setRS232BaudRate(ScannerHandle handle, int32_t value);
QUILLET_API ResultCode setNationalKeyboardLayout(ScannerHandle handle, int32_t value); /* 1 to 99 */
/* 1 to 256; 0 is the same as 256. */
QUILLET_API ResultCode setOutputCharacterDelayTime(ScannerHandle handle, int32_t value);
QUILLET_API ResultCode setHIDStorageMode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setHIDAutoStorageMode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setGATTMode(ScannerHandle handle, uint8_t on);
QUILLET_API ResultCode setBluetoothAutomSense(ScannerHandle handle, uint8_t on);

/* ---- Setting codes --------------------------------------------------------------------------------------------- */

/*
 * The bytes of setting commands, for instance as the content of a barcode or QR code that a scanner is set up with.
 * No scanner and no handle is needed; nothing blocks; any thread, any time.
 *
 * buffer, outLength: receive the bytes (convention 4)
 *
 * Results: 0; 10 for an unknown id, one without a command (docs/setting-codes.md) or a null pointer, with buffer and
 * outLength as they were; 115 if the buffer is too small, and then it is all zeros and outLength as it was.
 */

/*
 * One setting.
 *
 * value: two bytes for the prefix and the suffix (125, 146), where a space becomes 0x7F, and for the control
 *        characters (148, 149: form, character); one byte for the others. It isn't checked against the range of
 *        the setting's call.
 */
QUILLET_API ResultCode getBarCodeCmd(int32_t id, const uint8_t* value, int32_t bufferSize, uint8_t* buffer,
                                     int32_t* outLength);

/*
 * Several settings in one code.
 *
 * settings: items with a comma between, each "<id> <value>" or, for the prefix (125), "<id> <first> <second>". Ids and
 *           values are single raw bytes, not digits: "#", a space and the byte 1 give the setting 35 the value 1. A
 *           value left out behind its space is 0. So ids reach up to 127, without 32 and 44, and no value is 0x20 or
 *           0x2C.
 *
 * Results: also 10 for an empty text, an item with too few parts, and more items than the 252 bytes that one packet
 * carries.
 */
QUILLET_API ResultCode getQRBarCodeCmd(const char* settings, int32_t bufferSize, uint8_t* buffer, int32_t* outLength);
/* ---- Raw commands and queries ---------------------------------------------------------------------------------- */

/*
 * Sends command bytes as they stand and waits for the reply: 300 ms in any case, then at most timeoutMs more (32 bits
 * count; 0xFFFFFFFF and -1 wait for ever). A protocol command is the wire form that getBarCodeCmd makes, for instance;
 * over USB the library wraps it in a block, which holds 62 bytes. Barcodes scanned meanwhile end the wait and are lost.
 *
 * reply: the payload of a good reply without its first byte; for any other reply, and for that to a query of a
 *        setting, the raw bytes received.
 * Results: 0, with an empty reply leaving reply and replyLength as they were; 10; 11 if the reply is longer than the
 * buffer; 106 if not connected, or while another exchange is running on the handle; 112 if no reply came in time, it
 * was longer than 1 MiB, or the handle was closed or destroyed meanwhile; without a time limit also when the scanner
 * goes.
 */
QUILLET_API ResultCode directIO(ScannerHandle handle, const uint8_t* command, int32_t commandSize, uint8_t* reply,
                                int32_t replySize, int32_t* replyLength, int64_t timeoutMs);

/*
 * Sends the bytes of a hexadecimal text, such as "05 40 04 00 0B 01 AA", and waits for no answer. Blanks, line ends and
 * , ; | 0x are dropped, and so is a last single digit; digits aren't checked. Results: 0, whatever became of the
 * sending, also without a connection; 10.
 */
QUILLET_API ResultCode CommandInteraction(ScannerHandle handle, const char* hexText);

/* openScanner, then CommandInteraction; the connection stays open. Results: as the two. */
QUILLET_API ResultCode PortCommandInteraction(ScannerHandle handle, const char* connection, const char* hexText);

/*
 * Reads a setting back. commandId: 0 to 150 without 147, see docs/setting-codes.md. Waits up to 2.3 s.
 * What the scanner answers late is taken for the reply: the answer to a setting call gives 111, that to an earlier
 * query 111 or a wrong value. So wait 700 ms after a setting call, and take a value that has come twice in a row, as
 * examples/configure_scanner.c does.
 * Results: 0; 10 for an unknown id or a null pointer; 109 if the exchange failed, also for a null handle; 111 for a
 * reply that isn't to this setting or isn't whole; 115 if the value is longer than the buffer, which is then zero.
 */
QUILLET_API ResultCode QueryCommandSetting(ScannerHandle handle, int32_t commandId, int32_t bufferSize, uint8_t* buffer,
                                           int32_t* length);

/*
 * Reads the scanner's serial number. Waits up to 1.3 s. Results: 0, with an empty number leaving buffer and length as
 * they were; 10; 11; 109 if the exchange failed or the reply tells no serial number.
 */
QUILLET_API ResultCode getScannerVersion(ScannerHandle handle, uint8_t* buffer, int32_t bufferSize, int32_t* length);

/*
 * Opens every serial port of the machine in turn as a virtual serial scanner and gives a text such as
 * "COM3,SN:1234||COM7,SN:5678||" of those where one answers, empty if there is none. It sends the bytes of three
 * commands to each of them, whatever is connected: a scale or a printer gets them, too. Takes up to 2 s a port, and
 * opening and closing the handle wait for it. Ends with the handle closed; on a machine without a port it is left as it
 * was. A handle that is open answers for the first port. buffer and length may be null (convention 3: then as a buffer
 * of length 0). Results: 0, also for a null handle; 115 if the text is longer than the buffer.
 */
QUILLET_API ResultCode getSerialPortDevice(ScannerHandle handle, int32_t bufferSize, uint8_t* buffer, int32_t* length);

/* ---- Threading primitives -------------------------------------------------------------------------------------- */

/*
 * Events and semaphores of the system, for hosts without a platform layer of their own; not tied to scanners. Handles
 * are opaque; a null handle is accepted everywhere. Waits run on monotonic time. Nobody may wait on an object while it
 * is destroyed. Events fail with 22, semaphores with -1.
 */

/* type 1: manual reset, stays signalled until os_event_reset; any other: auto reset, consumed by one waiter. Starts not
 * signalled. 0; -1 if it can't be made, and then the handle is as it was. */
QUILLET_API int32_t os_event_init(void** event, int32_t type);
QUILLET_API void os_event_destroy(void* event);
/* Waits without a limit. 0; 22. */
QUILLET_API int32_t os_event_wait(void* event);
/* 0xFFFFFFFF has no limit. 0; 138 at the time-out; 22. */
QUILLET_API int32_t os_event_timedwait(void* event, uint32_t timeoutMs);
/* Doesn't wait. 0; 11 if not signalled; 22. */
QUILLET_API int32_t os_event_try(void* event);
/* 0; 22. */
QUILLET_API int32_t os_event_signal(void* event);
QUILLET_API void os_event_reset(void* event);

/* The count never passes 0x7FFFFFFF. 0; -1, also for a count below 0. */
QUILLET_API int32_t os_sem_init(void** semaphore, int32_t initialCount);
QUILLET_API void os_sem_destroy(void* semaphore);
/* Adds one. 0; -1, also at the maximum. */
QUILLET_API int32_t os_sem_post(void* semaphore);
/* Takes one, waiting without a limit. 0; -1. */
QUILLET_API int32_t os_sem_wait(void* semaphore);

/* Names the calling thread for debuggers; where none looks, nothing happens. name may be null. */
QUILLET_API void os_set_thread_name(const char* name);

#ifdef __cplusplus
}
#endif

#endif /* QUILLET_QUILLET_H */

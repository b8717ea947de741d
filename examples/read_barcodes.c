// SPDX-License-Identifier: MIT
/*
 * Opens a scanner and prints each barcode that it reads.
 *
 *   read_barcodes [--count N] [--log LEVEL] [connection string]
 *
 * The connection string is empty by default, which takes the one scanner that is plugged in. Ends after N
 * barcodes or with Ctrl-C. Exit status: 0, 1 if the scanner can't be opened, 2 for a wrong command line.
 */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <quillet/quillet.h>

enum { kPollMs = 200, kLogOff = 9 };

struct Options {
    const char* connection;
    long count; /* 0 for no end */
    long logLevel;
};

static volatile sig_atomic_t g_Interrupted = 0;

static void Interrupt(int number) {
    (void)number;
    g_Interrupted = 1;
}

static int ParseNumber(const char* text, long highest, long* number) {
    char* end = NULL;
    *number = strtol(text, &end, 10);
    return end != text && *end == '\0' && *number >= 0 && *number <= highest;
}

static int ParseOptions(int argc, char** argv, struct Options* options) {
    int i;
    int connections = 0;
    for (i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--count") == 0 && i + 1 < argc) {
            if (!ParseNumber(argv[++i], 1000000000L, &options->count)) return 0;
        } else if (strcmp(argv[i], "--log") == 0 && i + 1 < argc) {
            if (!ParseNumber(argv[++i], kLogOff, &options->logLevel)) return 0;
        } else if (strncmp(argv[i], "--", 2) != 0 && connections++ == 0) {
            options->connection = argv[i];
        } else {
            return 0;
        }
    }
    return 1;
}

/* Bytes that don't print as \x1d and the like, so that a line is a barcode and shows all of it. */
static void PrintBytes(const uint8_t* bytes, int32_t length) {
    int32_t i;
    for (i = 0; i < length; ++i) {
        if (bytes[i] == '\\') {
            fputs("\\\\", stdout);
        } else if (bytes[i] >= 0x20 && bytes[i] < 0x7F) {
            putchar(bytes[i]);
        } else {
            printf("\\x%02x", (unsigned)bytes[i]);
        }
    }
}

/* Tells when the scanner goes away and comes back; the library reconnects by itself. */
static void FollowState(ScannerHandle scanner, int32_t* known) {
    int32_t state = *known;
    getScannnerState(scanner, &state); /* the state is stored whatever the result */
    if (state == *known) return;
    *known = state;
    puts(state == ScannerStateEnabled ? "state: connected" : "state: waiting for the scanner to come back");
    fflush(stdout);
}

static void ReadBarcodes(ScannerHandle scanner, long count) {
    static uint8_t barcode[65536];
    int32_t state = ScannerStateClosed;
    int32_t codeType = 0;
    int32_t length = 0;
    long taken = 0;
    while (!g_Interrupted && (count == 0 || taken < count)) {
        ResultCode result;
        FollowState(scanner, &state);
        result = getBarCode(scanner, &codeType, barcode, (int32_t)sizeof barcode, &length, kPollMs);
        if (result == ResultTimeout) continue;
        ++taken;
        if (result != ResultSuccess) {
            printf("barcode %ld: lost, result %d\n", taken, (int)result);
            continue;
        }
        printf("barcode %ld: type %d, %d bytes: ", taken, (int)codeType, (int)length);
        PrintBytes(barcode, length);
        putchar('\n');
        fflush(stdout); /* each line at once, also into a pipe */
    }
}

int main(int argc, char** argv) {
    struct Options options = {"", 0, kLogOff};
    ScannerHandle scanner;
    ResultCode result;

    if (!ParseOptions(argc, argv, &options)) {
        fprintf(stderr, "usage: %s [--count N] [--log LEVEL] [connection string]\n", argv[0]);
        return 2;
    }
    signal(SIGINT, Interrupt);
    signal(SIGTERM, Interrupt);

    setLogLevel((int32_t)options.logLevel);
    scanner = createScanner();
    result = openScanner(scanner, options.connection);
    if (result != ResultSuccess) {
        fprintf(stderr, "no scanner could be opened with \"%s\": result %d\n", options.connection, (int)result);
    } else {
        ReadBarcodes(scanner, options.count);
        closeScanner(scanner);
    }
    destoryScanner(scanner);
    return result == ResultSuccess ? 0 : 1;
}

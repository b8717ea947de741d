// SPDX-License-Identifier: MIT
/*
 * An application that does what it is told by lines on its standard input and answers each with one line: what
 * a call gave. Compiled from this one source on every system, it has to give the same answers on each.
 */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <quillet/quillet.h>

enum { kPatienceMs = 10000, kCode39 = 35 };

static ScannerHandle scanner;
static int leaving;
static uint8_t buffer[4096]; /* what a call gives */
static int32_t length;

static void PrintResult(ResultCode result) {
    int32_t i;
    printf("%d", (int)result);
    if (result != ResultSuccess || length == 0) return;
    putchar(' ');
    for (i = 0; i < length; ++i) {
        if (buffer[i] >= 0x20 && buffer[i] < 0x7F && buffer[i] != '\\') {
            putchar(buffer[i]);
        } else {
            printf("\\x%02x", (unsigned)buffer[i]);
        }
    }
}

static void Take(const char* argument) {
    int32_t type = -1;
    const ResultCode result = getBarCode(scanner, &type, buffer, (int32_t)sizeof buffer, &length, atoi(argument));
    if (result == ResultSuccess) printf("type %d: ", (int)type);
    PrintResult(result);
}

/* Waits for a state, by a call that waits in any state: no barcode comes meanwhile. */
static void WaitForState(const char* argument) {
    const int32_t wanted = atoi(argument);
    int32_t state = 0;
    int waitedMs;
    for (waitedMs = 0; waitedMs < kPatienceMs; waitedMs += 100) {
        getScannnerState(scanner, &state);
        if (state == wanted) break;
        getBarCode(scanner, NULL, buffer, 1, &length, 50);
    }
    printf("%d", (int)state);
}

static void Query(const char* argument) {
    ResultCode result = ResultFailure;
    int tries; /* the late answer to a setting call may be taken for this one's */
    for (tries = 0; tries < 3 && result == ResultFailure; ++tries) {
        result = QueryCommandSetting(scanner, atoi(argument), 64, buffer, &length);
    }
    PrintResult(result);
}

static void Version(const char* argument) {
    (void)argument, PrintResult(getScannerVersion(scanner, buffer, 128, &length));
}

static void Code(const char* argument) {
    const uint8_t value = (uint8_t)atoi(argument);
    PrintResult(getBarCodeCmd(kCode39, &value, 64, buffer, &length));
}

static void Second(const char* argument) {
    ScannerHandle second = createScanner();
    printf("%d", (int)openScanner(second, argument));
    destoryScanner(second);
}

static void Open(const char* argument) {
    printf("%d", (int)openScanner(scanner, argument));
}
static void Close(const char* argument) {
    (void)argument, printf("%d", (int)closeScanner(scanner));
}
static void Code39(const char* argument) {
    printf("%d", (int)setCode39(scanner, (uint8_t)atoi(argument)));
}
static void Pattern(const char* argument) {
    printf("%d", (int)setScannerPattern(scanner, atoi(argument)));
}
static void Raw(const char* argument) {
    printf("%d", (int)CommandInteraction(scanner, argument));
}

/* The end of the process finds the scanner open. */
static void Leave(const char* argument) {
    (void)argument, leaving = 1;
}

static const struct {
    const char* name;
    void (*run)(const char* argument);
} kCommands[] = {{"open", Open},          {"close", Close},   {"second", Second}, {"take", Take},
                 {"state", WaitForState}, {"code39", Code39}, {"query", Query},   {"pattern", Pattern},
                 {"version", Version},    {"raw", Raw},       {"code", Code},     {"leave", Leave}};

static void Run(const char* name, const char* argument) {
    size_t i;
    length = 0;
    for (i = 0; i < sizeof kCommands / sizeof kCommands[0]; ++i) {
        if (strcmp(kCommands[i].name, name) == 0) {
            kCommands[i].run(argument);
            return;
        }
    }
    fputs("no such command", stdout);
}

int main(void) {
    char line[512];
    scanner = createScanner();
    while (fgets(line, (int)sizeof line, stdin) != NULL) {
        char* argument;
        line[strcspn(line, "\r\n")] = '\0';
        argument = strchr(line, ' ');
        if (argument != NULL) *argument++ = '\0';
        Run(line, argument != NULL ? argument : "");
        putchar('\n');
        fflush(stdout);
    }
    if (!leaving) destoryScanner(scanner);
    return 0;
}

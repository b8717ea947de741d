// SPDX-License-Identifier: MIT
/*
 * Changes a few settings of a scanner, reads them back, prints the scanner's serial number, and makes the
 * bytes of a setting code, which needs no scanner.
 *
 *   configure_scanner [connection string]
 *
 * Exit status: 0, 1 if something went wrong.
 */
#include <stdio.h>
#include <string.h>

#include <quillet/quillet.h>

/* Numbers of the settings, as QueryCommandSetting and getBarCodeCmd take them. */
enum { kDecodeTimeOut = 13, kBuzzerVolume = 19, kCode39 = 35 };

static void PrintHex(const uint8_t* bytes, int32_t length) {
    int32_t i;
    for (i = 0; i < length; ++i) printf("%s%02X", i == 0 ? "" : " ", (unsigned)bytes[i]);
    putchar('\n');
}

/* The time that the scanner's answer to a setting call gets. */
enum { kAnswerMs = 700, kTries = 5 };

struct Value {
    uint8_t bytes[16];
    int32_t length;
};

static void SleepMs(unsigned milliseconds) {
    void* never = NULL;
    if (os_event_init(&never, 0) != 0) return;
    os_event_timedwait(never, milliseconds);
    os_event_destroy(never);
}

static int SameValue(const struct Value* left, const struct Value* right) {
    return left->length == right->length && memcmp(left->bytes, right->bytes, (size_t)left->length) == 0;
}

/*
 * A setting call hands its command to the link and waits for nothing; reading back is what tells the outcome. The
 * scanner answers setting calls, too, and whatever it answers late is taken for the reply to the query that is made
 * then: most often that gives 111, but the late reply to an earlier query can be taken for a value. So the answers get
 * their time first, and a value counts once it has come twice in a row.
 */
static ResultCode QuerySetting(ScannerHandle scanner, int32_t id, struct Value* value) {
    struct Value last = {{0}, -1}; /* equal to no answer */
    ResultCode result = ResultFailure;
    int tries;
    for (tries = 0; tries < kTries; ++tries) {
        result = QueryCommandSetting(scanner, id, (int32_t)sizeof value->bytes, value->bytes, &value->length);
        if (result == ResultSuccess && SameValue(value, &last)) return result;
        last = *value;
        if (result != ResultSuccess) last.length = -1;
    }
    return result == ResultSuccess ? ResultFailure : result;
}

static int ShowSetting(ScannerHandle scanner, const char* name, int32_t id, uint8_t expected) {
    struct Value value = {{0}, 0};
    const ResultCode result = QuerySetting(scanner, id, &value);
    if (result != ResultSuccess) {
        printf("%s: not read, result %d\n", name, (int)result);
        return 0;
    }
    printf("%s: ", name);
    PrintHex(value.bytes, value.length);
    return value.length == 1 && value.bytes[0] == expected;
}

/* Whether a setting call handed its command on; gives the scanner's answer its time. */
static int Sent(ResultCode result) {
    SleepMs(kAnswerMs);
    return result == ResultSuccess;
}

static int Configure(ScannerHandle scanner) {
    int good = Sent(setCode39(scanner, 1));
    good &= Sent(setBuzzerVolume(scanner, 4));
    good &= Sent(setDecodeTimeOut(scanner, 2500)); /* the scanner takes it in tenths of a second */
    good &= ShowSetting(scanner, "Code 39", kCode39, 1);
    good &= ShowSetting(scanner, "buzzer volume", kBuzzerVolume, 4);
    good &= ShowSetting(scanner, "decode time-out", kDecodeTimeOut, 25);
    return good;
}

static int ShowSerialNumber(ScannerHandle scanner) {
    uint8_t number[64];
    int32_t length = 0;
    const ResultCode result = getScannerVersion(scanner, number, (int32_t)sizeof number, &length);
    if (result != ResultSuccess) {
        printf("serial number: not read, result %d\n", (int)result);
        return 0;
    }
    printf("serial number: %.*s\n", (int)length, (const char*)number);
    return 1;
}

static int ShowSettingCode(void) {
    const uint8_t on = 1;
    uint8_t code[64];
    int32_t length = 0;
    if (getBarCodeCmd(kCode39, &on, (int32_t)sizeof code, code, &length) != ResultSuccess) return 0;
    printf("setting code for Code 39 on: ");
    PrintHex(code, length);
    return 1;
}

int main(int argc, char** argv) {
    const char* connection = argc > 1 ? argv[1] : "";
    int good = ShowSettingCode();
    ScannerHandle scanner = createScanner();
    const ResultCode result = openScanner(scanner, connection);
    if (result != ResultSuccess) {
        fprintf(stderr, "no scanner could be opened with \"%s\": result %d\n", connection, (int)result);
        good = 0;
    } else {
        good &= Configure(scanner);
        good &= ShowSerialNumber(scanner);
        closeScanner(scanner);
    }
    destoryScanner(scanner);
    return good ? 0 : 1;
}

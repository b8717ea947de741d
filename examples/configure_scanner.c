/*
 * Changes a few settings of a scanner, reads them back, prints the scanner's serial number, and makes the
 * bytes of a setting code, which needs no scanner.
 *
 *   configure_scanner [connection string]
 *
 * Exit status: 0, 1 if something went wrong.
 */
#include <stdio.h>

#include <quillet/quillet.h>

/* Numbers of the settings, as QueryCommandSetting and getBarCodeCmd take them. */
enum { kDecodeTimeOut = 13, kBuzzerVolume = 19, kCode39 = 35 };

static void PrintHex(const uint8_t* bytes, int32_t length) {
    int32_t i;
    for (i = 0; i < length; ++i) printf("%s%02X", i == 0 ? "" : " ", (unsigned)bytes[i]);
    putchar('\n');
}

/*
 * A setting call hands its command to the link and waits for nothing; reading back is what tells the outcome.
 * The scanner answers setting calls too, though, and such an answer, coming while a setting is read back, is
 * taken for the wrong reply. Then the reading is repeated.
 */
static ResultCode QuerySetting(ScannerHandle scanner, int32_t id, uint8_t* value, int32_t size, int32_t* length) {
    ResultCode result = ResultFailure;
    int tries;
    for (tries = 0; tries < 3 && result == ResultFailure; ++tries) {
        result = QueryCommandSetting(scanner, id, size, value, length);
    }
    return result;
}

static int ShowSetting(ScannerHandle scanner, const char* name, int32_t id, uint8_t expected) {
    uint8_t value[16];
    int32_t length = 0;
    const ResultCode result = QuerySetting(scanner, id, value, (int32_t)sizeof value, &length);
    if (result != ResultSuccess) {
        printf("%s: not read, result %d\n", name, (int)result);
        return 0;
    }
    printf("%s: ", name);
    PrintHex(value, length);
    return length == 1 && value[0] == expected;
}

static int Configure(ScannerHandle scanner) {
    int good = setCode39(scanner, 1) == ResultSuccess;
    good &= setBuzzerVolume(scanner, 4) == ResultSuccess;
    good &= setDecodeTimeOut(scanner, 2500) == ResultSuccess; /* the scanner takes it in tenths of a second */
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

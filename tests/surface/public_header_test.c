// SPDX-License-Identifier: MIT
/* The public header and a handful of its calls from plain C, without any scanner. */
#include <stdio.h>
#include <string.h>

#include <quillet/quillet.h>

static int failures = 0;

static void expect(const char* what, long actual, long wanted) {
    if (actual == wanted) return;
    printf("FAILED: %s gave %ld, not %ld\n", what, actual, wanted);
    ++failures;
}

static void refuses_null_handles(void) {
    uint8_t buffer[8];
    int32_t number = 7;
    expect("destoryScanner(null)", destoryScanner(NULL), ResultBadArgument);
    expect("openScanner(null)", openScanner(NULL, ""), ResultBadArgument);
    expect("closeScanner(null)", closeScanner(NULL), ResultBadArgument);
    expect("getScannnerState(null)", getScannnerState(NULL, &number), ResultBadArgument);
    expect("getBarCode(null)", getBarCode(NULL, &number, buffer, 8, &number, 0), ResultBadArgument);
    expect("setCode39(null)", setCode39(NULL, 1), ResultBadArgument);
    expect("directIO(null)", directIO(NULL, buffer, 8, buffer, 8, &number, 0), ResultBadArgument);
    expect("getScannerVersion(null)", getScannerVersion(NULL, buffer, 8, &number), ResultBadArgument);
    expect("QueryCommandSetting(null)", QueryCommandSetting(NULL, 35, 8, buffer, &number), ResultNoExist);
    expect("QueryCommandSetting(null, 147)", QueryCommandSetting(NULL, 147, 8, buffer, &number), ResultBadArgument);
    expect("getSerialPortDevice(null)", getSerialPortDevice(NULL, 8, buffer, &number), ResultSuccess);
    expect("its length", number, 0);
    expect("os_event_signal(null)", os_event_signal(NULL), 22);
    expect("os_sem_post(null)", os_sem_post(NULL), -1);
    expect("os_event_init(null)", os_event_init(NULL, 1), -1);
}

static void answers_on_a_closed_handle(void) {
    ScannerHandle scanner = createScanner();
    uint8_t buffer[4];
    int32_t state = 0, count = 5, length = 0;
    expect("createScanner", scanner != NULL, 1);
    expect("getScannnerState of a new handle", getScannnerState(scanner, &state), ResultClosed);
    expect("the state", state, ScannerStateClosed);
    expect("getBarCodeCacheCount", getBarCodeCacheCount(scanner, &count), ResultClosed);
    expect("the count", count, 0);
    expect("setScannerPattern(2)", setScannerPattern(scanner, 2), ResultBadArgument);
    expect("setScannerPattern(1)", setScannerPattern(scanner, 1), ResultDisabled);
    expect("setCode39 without a link", setCode39(scanner, 1), ResultNoExist);
    expect("setRS232BaudRate without a link", setRS232BaudRate(scanner, 3), ResultSuccess);
    expect("CommandInteraction without a link", CommandInteraction(scanner, "AA BB,CC"), ResultSuccess);
    expect("directIO without a link", directIO(scanner, buffer, 4, buffer, 4, &length, 0), ResultIllegal);
    expect("getScannerVersion without a link", getScannerVersion(scanner, buffer, 4, &length), ResultNoExist);
    expect("getBarCode, null length", getBarCode(scanner, NULL, buffer, 4, NULL, 0), ResultBadArgument);
    expect("getBarCode, length -1", getBarCode(scanner, NULL, buffer, -1, &length, 0), ResultBadArgument);
    expect("getBarCode, nothing scanned", getBarCode(scanner, NULL, buffer, 4, &length, 0), ResultTimeout);
    expect("openScanner(null text)", openScanner(scanner, NULL), ResultBadArgument);
    expect("closeScanner", closeScanner(scanner), ResultClosed);
    expect("destoryScanner", destoryScanner(scanner), ResultSuccess);
}

static void makes_setting_codes(void) {
    static const uint8_t code39On[] = {0x05, 0x40, 0x04, 0x00, 0x0B, 0x01, 0xAA};
    const uint8_t on = 1;
    uint8_t buffer[16];
    int32_t length = 0;
    expect("getBarCodeCmd", getBarCodeCmd(35, &on, sizeof buffer, buffer, &length), ResultSuccess);
    expect("its length", length, sizeof code39On);
    expect("its bytes", memcmp(buffer, code39On, sizeof code39On), 0);
    expect("setLogLevel(-1)", setLogLevel(-1), ResultBadArgument);
    expect("setLogLevel(100)", setLogLevel(100), ResultSuccess);
}

static void has_events_and_semaphores(void) {
    void* event = NULL;
    void* semaphore = NULL;
    expect("os_event_init(2)", os_event_init(&event, 2), 0);
    expect("os_event_timedwait(0)", os_event_timedwait(event, 0), 138);
    expect("os_event_try", os_event_try(event), 11);
    expect("os_event_signal", os_event_signal(event), 0);
    expect("os_event_wait", os_event_wait(event), 0);
    expect("os_event_try after the wait", os_event_try(event), 11); /* auto reset: consumed */
    os_event_destroy(event);
    expect("os_event_init(1)", os_event_init(&event, 1), 0);
    os_event_signal(event);
    expect("a manual event", os_event_wait(event) + os_event_try(event), 0);
    os_event_reset(event);
    expect("a manual event, reset", os_event_timedwait(event, 1), 138);
    expect("os_sem_wait on an event", os_sem_wait(event), -1);
    os_event_destroy(event);

    expect("os_sem_init(-1)", os_sem_init(&semaphore, -1), -1);
    expect("os_sem_init(max)", os_sem_init(&semaphore, 0x7FFFFFFF), 0);
    expect("os_sem_post at the maximum", os_sem_post(semaphore), -1);
    expect("os_sem_wait", os_sem_wait(semaphore), 0);
    expect("os_sem_post below it", os_sem_post(semaphore), 0);
    os_sem_destroy(semaphore);
    os_set_thread_name("public-header");
    os_set_thread_name(NULL);
    os_event_destroy(NULL);
    os_event_reset(NULL);
}

int main(void) {
    refuses_null_handles();
    answers_on_a_closed_handle();
    makes_setting_codes();
    has_events_and_semaphores();
    return failures == 0 ? 0 : 1;
}

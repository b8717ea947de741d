// SPDX-License-Identifier: MIT
/*
 * Holds a scanner until it is told to end: a second process for the tests.
 *   scanner_holder <connection string> [leave]
 * Prints the result of the opening as a line, then waits for the end of its standard input. With "leave" it
 * then returns from main with the scanner open; else it closes it first.
 */
#include <stdio.h>
#include <string.h>

#include <quillet/quillet.h>

int main(int argc, char** argv) {
    ScannerHandle scanner = createScanner();
    if (argc < 2 || scanner == NULL) return 2;
    printf("%d\n", (int)openScanner(scanner, argv[1]));
    fflush(stdout);
    while (getchar() != EOF) {
    }
    if (argc < 3 || strcmp(argv[2], "leave") != 0) destoryScanner(scanner);
    return 0;
}

#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# check_exports.sh <library> <source directory> <nm> <objdump>
# Compares what the library exports, what the public header declares and the list of exports; and looks at what
# the library needs.
set -u
library=$1 source=$2 nm=$3 objdump=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

sort "$source/cmake/exports.txt" >"$work/listed"
case $library in
    *.dll) # the name table stands behind its heading, one line "[ordinal] name" each, up to an empty one
        "$objdump" -p "$library" | awk '/Name Pointer\] Table/ {inside = 1; next} inside && !NF {exit} inside {print $NF}' |
            sort >"$work/exported"
        ;;
    *) "$nm" -D --defined-only "$library" | awk '{print $3}' | sed 's/@.*//' | sort >"$work/exported" ;;
esac
# A prototype begins with QUILLET_API and may run over lines; its name stands before the first parenthesis.
tr '\n' ' ' <"$source/include/quillet/quillet.h" | grep -oE 'QUILLET_API [A-Za-z0-9_]+\*? \*?[A-Za-z0-9_]+\(' |
    grep -oE '[A-Za-z0-9_]+\($' | tr -d '(' | sort >"$work/declared"

compare() { # <what> <file> <what> <file>
    if ! diff "$2" "$4" >"$work/diff"; then
        printf 'FAILED: %s (<) and %s (>) differ:\n' "$1" "$3"
        cat "$work/diff"
        failed=1
    fi
}
compare "the list of exports" "$work/listed" "the library's exports" "$work/exported"
compare "the list of exports" "$work/listed" "the header's prototypes" "$work/declared"

if [ "$(sort -u "$work/listed" | wc -l)" -ne 179 ]; then
    printf 'FAILED: %s exports, 179 expected\n' "$(sort -u "$work/listed" | wc -l)"
    failed=1
fi

# What the library needs is there on any system of its kind; a sanitizer's runtime belongs to the build that asks for it.
check_windows() {
    needed=$("$objdump" -p "$library" | sed -n 's/.*DLL Name: //p' |
        grep -viE '^(advapi32|cfgmgr32|hid|kernel32|msvcrt|setupapi|shlwapi)\.dll$')
    # A wide string, without its zeros
    "$objdump" -s -j .rsrc "$library" | awk '{print $NF}' | tr -d '.\n' | grep -q 'ProductVersion' || {
        echo 'FAILED: the library has no version resource'
        failed=1
    }
}

check_linux() {
    needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
        grep -vE '^(libstdc\+\+|libm|libgcc_s|libc|ld-linux[a-z0-9-]*|lib[atu][a-z]*san)\.so')
    readelf -d "$library" | grep -q 'SONAME.*\[libQuillet\.so\.[0-9]*\]' || {
        echo 'FAILED: the library has no soname'
        failed=1
    }
}

case $library in
    *.dll) check_windows ;;
    *) check_linux ;;
esac
if [ -n "$needed" ]; then
    printf 'FAILED: the library needs %s\n' "$needed"
    failed=1
fi

[ "$failed" -eq 0 ] && printf '%s exports, as listed and declared\n' "$(wc -l <"$work/exported")"
exit "$failed"

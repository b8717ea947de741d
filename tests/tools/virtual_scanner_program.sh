#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# The program's life: its command line, and that it leaves no registration behind however it ends.
#   virtual_scanner_program.sh <program>
set -u
program=$1
work=$(mktemp -d)
devices=$work/devices
device=$devices/virtual-COM97.device
failures=0
trap 'exec 8>&-; kill "${pid:-}" 2>/dev/null; rm -rf "$work"' EXIT

fail() {
    printf 'FAILED: %s\n' "$*"
    failures=$((failures + 1))
}

# start [<options...>]: starts the program with its input on descriptor 8 and its output on 9, and waits until it is
# plugged in.
start() {
    rm -f "$work/in" "$work/out"
    mkfifo "$work/in" "$work/out"
    "$program" --link virtual-serial --devices-directory "$devices" "$@" <"$work/in" >"$work/out" &
    pid=$!
    exec 8>"$work/in" 9<"$work/out"
    expect 'plugged path=/dev/pts/*'
    [ "$failures" -eq 0 ] || exit 1
}

# expect <pattern>: the next line of output, left in $line
expect() {
    # shellcheck disable=SC2053 # the right side is a pattern
    { read -r -t 20 -u 9 line && [[ $line == $1 ]]; } || fail "expected '$1', got '${line:-}'"
}

# expect_mode <mode>: who may open what has just been plugged in
expect_mode() {
    [ "$(stat -c %a "${line#plugged path=}")" = "$1" ] || fail "mode: $(ls -l "${line#plugged path=}")"
}

# expect_end <what> <wanted status>
expect_end() {
    local status
    wait "$pid"
    status=$?
    pid=
    [ "$status" -eq "$2" ] || fail "$1: status $status"
    [ ! -e "$device" ] || fail "$1: the device is still registered"
}

# Wrong command lines: status 2, one clear message, nothing registered.
while read -r -a arguments; do
    "$program" --devices-directory "$devices" "${arguments[@]}" </dev/null >"$work/stdout" 2>"$work/stderr"
    [ $? -eq 2 ] || fail "accepted: ${arguments[*]}"
    if [ ! -s "$work/stderr" ] || [ -s "$work/stdout" ]; then fail "no clear message: ${arguments[*]}"; fi
done <<'END'
--link bluetooth
--link serial --port LPT1
--link serial --port COM
--link serial --port COM097
--link usb --serial-number a/b
--link usb --serial-number 12345678901234567890123456789012345678901
--mode 01000
--mode 680
--mode rw
--nonsense
stray
END

# The registration, a wrong line that ends nothing, and the ends.
start
expect_mode 600
grep -qx 'lock=virtual-COM97.lock' "$device" || fail "lock: $(cat "$device")"
grep -qx 'instance=USB\\VID_18D1&PID_0009\\1234567890' "$device" || fail "instance: $(cat "$device")"
grep -qx 'port=COM97' "$device" || fail "port: $(cat "$device")"
"$program" --link virtual-serial --devices-directory "$devices" </dev/null >/dev/null 2>"$work/stderr" &&
    fail "a second program took the same port"
[ -e "$device" ] || fail "the second program removed the registration of the first"
echo 'nonsense' >&8
expect "error unknown command 'nonsense'*"
echo 'unplug' >&8
expect unplugged
[ ! -e "$device" ] || fail "registered while unplugged"
echo 'plug' >&8
expect 'plugged path=*'
echo 'quit' >&8
expect 'ok quit'
expect_end 'quit after a wrong line' 1

start --mode 0646
expect_mode 646
exec 8>&-
expect_end 'end of input' 0

for signal in INT TERM; do
    start
    # Nobody reads the terminal, so this sending can't end by itself.
    printf 'scan 28 %s\n' "$(head -c 200000 /dev/zero | tr '\0' x)" >&8
    kill -s "$signal" "$pid"
    expect_end "SIG$signal" 0
done

start
kill -KILL "$pid"
wait "$pid" 2>/dev/null
[ -e "$device" ] || fail "a killed program could clean up?"
start
exec 8>&-
expect_end 'after a killed program' 0
[ -z "$(ls "$devices")" ] || fail "left behind: $(ls "$devices")"

# Without a runtime directory too it is where hosts of the same user look.
told=$(env -u XDG_RUNTIME_DIR "$program" --serial-number "$$" <<<quit)
[[ $told == "plugged path=/tmp/quillet-$(id -u)/devices/virtual-usb-$$.socket"* ]] || fail "no registration of the user's: $told"

[ "$failures" -eq 0 ] && echo "all good"
exit $((failures > 0))

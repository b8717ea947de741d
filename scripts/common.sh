# SPDX-License-Identifier: MIT
# Functions that the scripts of this directory share. To be sourced by bash; defines functions and one variable.
# shellcheck shell=bash

QUILLET_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '\n== %s\n' "$*"; }

die() {
    printf 'error: %s\n' "$*" >&2
    exit 1
}

# Runs a command as root: directly, or through sudo.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        return 127
    fi
}

package_installed() {
    [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# ensure_packages <package...>
# Installs the Debian packages that are missing. With all of them there it does nothing and needs no root; elsewhere
# than on Debian it leaves the packages to the user.
ensure_packages() {
    local missing=() package
    command -v dpkg-query >/dev/null || {
        printf 'Not a Debian system; what Debian calls %s must be there.\n' "$*"
        return 0
    }
    for package in "$@"; do
        package_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    say "Installing with apt-get: ${missing[*]}"
    as_root true || die "root rights are needed once, for: apt-get install ${missing[*]}"
    # A fresh machine has no package lists; one that isn't fresh may have lists too old to download by.
    if ! apt-cache show "${missing[@]}" >/dev/null 2>&1; then
        update_package_lists || die "apt-get update failed"
    elif install_packages "${missing[@]}"; then
        return 0
    else
        update_package_lists || die "apt-get update failed"
    fi
    install_packages "${missing[@]}" || die "apt-get could not install: ${missing[*]}"
}

# How long another apt-get, such as that of an unattended upgrade, may hold its locks before this one fails.
readonly APT_LOCK_TIMEOUT_S=600

apt_get() {
    as_root env DEBIAN_FRONTEND=noninteractive LC_ALL=C apt-get -o "DPkg::Lock::Timeout=$APT_LOCK_TIMEOUT_S" "$@"
}

# apt-get itself doesn't wait for the lock of the package lists.
update_package_lists() {
    local errors deadline=$((SECONDS + APT_LOCK_TIMEOUT_S))
    until { errors=$(apt_get update -q 2>&1 >&3); } 3>&1; do
        [[ $errors == *lists/lock* && $SECONDS -lt $deadline ]] || break
        sleep 1
    done
    [ -z "$errors" ] || printf '%s\n' "$errors" >&2
    [[ $errors != *E:* ]]
}

install_packages() {
    apt_get install -y -q --no-install-recommends "$@"
}

# configure <build directory> <cmake options...>
# Uses the compiler cache where there is one; a directory that is configured already keeps its generator.
configure() {
    local directory=$1 options=()
    shift
    if [ ! -f "$directory/CMakeCache.txt" ] && command -v ninja >/dev/null; then
        options+=(-G Ninja)
    fi
    if command -v ccache >/dev/null; then
        # Builds of one checkout share what they compile alike, and sources with precompiled headers are kept too.
        export CCACHE_BASEDIR="$QUILLET_ROOT" CCACHE_NOHASHDIR=1 CCACHE_SLOPPINESS=pch_defines,time_macros
        options+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    cmake -S "$QUILLET_ROOT" -B "$directory" "${options[@]}" "$@"
}

# build <build directory> [<targets...>]
build() {
    local directory=$1
    shift
    cmake --build "$directory" --parallel "${JOBS:-$(nproc)}" ${1:+--target "$@"}
}

#!/usr/bin/env bash
# Installs the Debian packages the host build, the tests and the tools need, skipping what is
# already there. Safe to run again and again.
set -euo pipefail

packages=(
    android-liblog-dev android-libcutils-dev   # the platform's liblog and libcutils
    cmake ninja-build g++ clang                # toolchains
    libc++-dev libc++abi-dev libclang-rt-dev   # clang's libc++ (the device's STL) and sanitizer runtimes
    libgtest-dev libgmock-dev libbenchmark-dev # tests and benchmarks
    googletest                                 # GoogleTest's sources, for the libc++ build
    blueprint-tools                            # bpfmt, to check the Android.bp files
    aidl                                       # the AIDL compiler, for the conformance tests
)

missing=()
for p in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$p")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "need root (or sudo) to install ${missing[*]}" >&2; exit 1; }
    sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null

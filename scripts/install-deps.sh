#!/usr/bin/env bash
# Installs the Debian packages a make target needs, skipping what is already there. Safe to run
# again and again.
#   install-deps.sh run    what building and running torqctl needs (make run, make build)
#   install-deps.sh test   that, plus what the tests, sanitizer, libc++ and fuzz builds and the
#                          benchmarks need (make test and the other targets)
#   install-deps.sh bench  that, plus valgrind and gnuplot (make bench, make bench-instructions)
set -euo pipefail

# Building the library, the simulator and torqctl, and running them.
run_packages=(
    g++ cmake ninja-build                      # toolchain
    android-liblog-dev android-libcutils-dev   # the platform's liblog and libcutils
    libjsoncpp-dev                             # torqctl's --json output
)

# Everything else: one package a line, so the list is easy to extend.
test_packages=(
    clang                                      # sanitizer, libc++ and fuzz builds
    libc++-dev
    libc++abi-dev
    libclang-rt-dev                            # sanitizer runtimes and libFuzzer
    libgtest-dev
    libgmock-dev
    googletest                                 # GoogleTest's sources, for the libc++ build
    libbenchmark-dev
    blueprint-tools                            # bpfmt, to check the Android.bp files
    python3                                    # the checks of the device tree files
    pkgconf                                    # pkg-config, to test the installed package
    aidl                                       # the AIDL compiler, for the conformance tests
)

# What measuring needs on top (make bench, make bench-instructions).
bench_packages=(
    valgrind                                   # instruction counts (callgrind)
    gnuplot-nox                                # the scaling plots
)

case "${1:-test}" in
    run) packages=("${run_packages[@]}") ;;
    test) packages=("${run_packages[@]}" "${test_packages[@]}") ;;
    bench) packages=("${run_packages[@]}" "${test_packages[@]}" "${bench_packages[@]}") ;;
    *)
        echo "usage: $0 [run|test|bench]" >&2
        exit 2
        ;;
esac

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
$sudo apt-get update
# apt's own progress stays visible: downloads can take a while on a fresh machine.
$sudo apt-get install -y --no-install-recommends "${missing[@]}"

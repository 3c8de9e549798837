#!/usr/bin/env bash
# Lists the symbols a shared library exports of its own, in a form that does not depend on the
# C++ standard library it was built with, and compares them with a checked-in list.
#
#   exported_symbols.sh list  LIB            print the list
#   exported_symbols.sh check LIB EXPECTED   fail, naming each difference, unless LIB exports
#                                            exactly the symbols listed in EXPECTED
#
# The rule, applied to the defined dynamic symbols (nm -D --defined-only):
#   1. Dropped: symbols the linker defines (_edata, _end, __bss_start, _init, _fini).
#   2. Dropped: entities of the C++ standard library and its ABI support, told apart by their
#      mangled name: the entity's outermost scope is std (St, and the abbreviations Sa Sb Ss Si
#      So Sd), __gnu_cxx or __cxxabiv1, also when it is the subject of a vtable, VTT, typeinfo,
#      typeinfo name or guard variable, and for the local statics and lambdas of its functions.
#      These are template instantiations and inline members that libstdc++ leaves with default
#      visibility (weak or unique symbols); libc++ hides them. A standard template instantiated
#      with one of our types is still the standard library's. Nothing else is dropped:
#      everything in our namespaces, the global namespace, aidl:: or ndk:: stays and must be
#      listed.
#   3. Spelled the same for every standard library: the inline namespaces std::__1::,
#      std::__ndk1:: and std::__cxx11:: become std::, libstdc++'s [abi:cxx11] tag is removed,
#      std::basic_string<char, ...> is written std::string, the default allocator and
#      comparator arguments of vector, list and map are left out, and "> >" is written ">>".
#   4. Sorted, duplicates removed (constructor and destructor variants demangle alike).
# EXPECTED may hold blank lines and lines starting with '#'.
set -euo pipefail

NM=${NM:-nm}
CXXFILT=${CXXFILT:-c++filt}

usage() {
    echo "usage: $0 list LIB | check LIB EXPECTED" >&2
    exit 2
}

# Mangled names of the standard library's entities (rule 2).
std_entity='^_Z(T[VTIS]|GV)?Z?N?[rVKRO]*(S[tabsiod]|9__gnu_cxx|10__cxxabiv1)'
linker_defined='^(_edata|_end|__bss_start|_init|_fini)$'

normalize() {
    # A template argument with up to two levels of nested template arguments.
    local arg='[^<>,]*(<[^<>]*(<[^<>]*>)?[^<>]*>)?'
    local string='std::basic_string<char, std::char_traits<char>, std::allocator<char> ?>'
    local sequence="std::(vector|list)<(${arg}), std::allocator<\\2>>"
    local map="std::map<(${arg}), (${arg}), std::less<\\1>, std::allocator<std::pair<\\1 const, \\4>>>"
    sed -E \
        -e 's/std::(__1|__ndk1|__cxx11)::/std::/g' \
        -e 's/\[abi:cxx11\]//g' \
        -e "s/${string}/std::string/g" \
        -e 's/ >/>/g' \
        -e "s/${sequence}/std::\\1<\\2>/g" \
        -e "s/${map}/std::map<\\1, \\4>/g"
}

list_exports() {
    local lib=$1
    [ -f "$lib" ] || { echo "no such library: $lib" >&2; exit 2; }
    # nm prints "address type name"; only the name matters here.
    "$NM" -D --defined-only "$lib" | awk 'NF >= 3 { print $3 }' | sed -E 's/@.*$//' |
        grep -Ev -e "$linker_defined" -e "$std_entity" | "$CXXFILT" | normalize | LC_ALL=C sort -u
}

case ${1:-} in
list)
    [ $# -eq 2 ] || usage
    list_exports "$2"
    ;;
check)
    [ $# -eq 3 ] || usage
    actual=$(list_exports "$2")
    expected=$(grep -Ev '^[[:space:]]*(#|$)' "$3" | LC_ALL=C sort -u)
    extra=$(LC_ALL=C comm -23 <(printf '%s\n' "$actual") <(printf '%s\n' "$expected") | sed '/^$/d')
    lost=$(LC_ALL=C comm -13 <(printf '%s\n' "$actual") <(printf '%s\n' "$expected") | sed '/^$/d')
    if [ -z "$extra" ] && [ -z "$lost" ]; then
        echo "$(printf '%s\n' "$actual" | grep -c .) exported symbols, as listed in $3"
        exit 0
    fi
    [ -z "$extra" ] || printf 'unexpected export: %s\n' "$extra" | sed '2,$s/^/unexpected export: /'
    [ -z "$lost" ] || printf 'missing export: %s\n' "$lost" | sed '2,$s/^/missing export: /'
    echo "$2 does not export what $3 lists (see the rule in $0)"
    exit 1
    ;;
*)
    usage
    ;;
esac

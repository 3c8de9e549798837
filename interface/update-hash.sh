#!/usr/bin/env bash
# Recomputes the .hash of a frozen version of vendor.quarn.hardware.torq the way the AIDL build
# tooling does: sha1 over the sorted sha1sum list of the version's .aidl files followed by the
# previous version number ("latest-version" for version 1).
#
#   interface/update-hash.sh [VERSION]     writes aidl_api/vendor.quarn.hardware.torq/VERSION/.hash
#   interface/update-hash.sh --check [VERSION]   exits 1 when the stored .hash does not match
#   interface/update-hash.sh --print [VERSION]   prints the computed hash only
#
# VERSION defaults to the highest frozen version. A frozen version must never change: only run
# this when freezing a new version.
set -euo pipefail

here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
api="${here}/aidl_api/vendor.quarn.hardware.torq"

mode=write
case "${1:-}" in
    --check) mode=check; shift ;;
    --print) mode=print; shift ;;
esac

version="${1:-$(ls "${api}" | grep -E '^[0-9]+$' | sort -n | tail -n 1)}"
dir="${api}/${version}"
if [[ ! "${version}" =~ ^[0-9]+$ || ! -d "${dir}" ]]; then
    echo "no frozen version '${version}' under ${api}" >&2
    exit 2
fi

if (( version > 1 )); then
    previous=$((version - 1))
else
    previous=latest-version
fi

hash="$(cd "${dir}" && { find ./ -name "*.aidl" -print0 | LC_ALL=C sort -z | xargs -0 sha1sum &&
        echo "${previous}"; } | sha1sum | cut -d " " -f 1)"

case "${mode}" in
    print) echo "${hash}" ;;
    write) echo "${hash}" > "${dir}/.hash"; echo "${dir}/.hash: ${hash}" ;;
    check)
        read -r stored _ < "${dir}/.hash"
        if [[ "${stored}" != "${hash}" ]]; then
            echo "${dir}: .hash is ${stored}, files hash to ${hash}" >&2
            exit 1
        fi
        ;;
esac

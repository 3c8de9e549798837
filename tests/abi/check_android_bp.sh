#!/usr/bin/env bash
# Checks the device build files without a device build:
#   check_android_bp.sh format DIR|FILE...   bpfmt -d prints nothing for any of them
#   check_android_bp.sh paths  DIR|FILE...   every file or folder they name in srcs, init_rc,
#                                            vintf_fragments, export_include_dirs,
#                                            local_include_dirs, corpus, dictionary and
#                                            license_text exists (a glob matches something)
# A directory stands for the Android.bp files below it: those git knows, tracked or new, when it
# is in a work tree (which leaves build directories out), every one otherwise.
# Exit 77 (skipped) when bpfmt is not installed (Debian: blueprint-tools).
set -euo pipefail

usage() {
    echo "usage: $0 format|paths DIR|FILE..." >&2
    exit 2
}
[ $# -ge 2 ] || usage
mode=$1
shift

files=()
for arg in "$@"; do
    if [ -d "$arg" ]; then
        if git -C "$arg" rev-parse --is-inside-work-tree >/dev/null 2>&1 &&
            [ -z "$(git -C "$arg" check-ignore . 2>/dev/null)" ]; then
            while IFS= read -r f; do
                [ -f "$arg/$f" ] && files+=("$arg/$f")
            done < <(git -C "$arg" ls-files --cached --others --exclude-standard -- \
                'Android.bp' '*/Android.bp' | LC_ALL=C sort -u)
        else
            while IFS= read -r f; do
                files+=("$f")
            done < <(find "$arg" -name Android.bp | LC_ALL=C sort)
        fi
    else
        files+=("$arg")
    fi
done
[ ${#files[@]} -gt 0 ] || { echo "no Android.bp found in: $*"; exit 1; }

# The paths a bpfmt-formatted file names in the properties above: "property: [...]" on one line,
# or spread over the following lines up to the closing bracket.
named_paths() {
    awk '
        function emit(text,   rest) {
            rest = text
            while (match(rest, /"[^"]*"/)) {
                print substr(rest, RSTART + 1, RLENGTH - 2)
                rest = substr(rest, RSTART + RLENGTH)
            }
        }
        inlist { if ($0 ~ /^[[:space:]]*\]/) { inlist = 0 } else { emit($0) }; next }
        /^[[:space:]]*(srcs|init_rc|vintf_fragments|export_include_dirs|local_include_dirs|corpus|dictionary|license_text):/ {
            if ($0 ~ /\[[[:space:]]*$/) { inlist = 1 } else { emit($0) }
        }
    ' "$1"
}

status=0
case $mode in
format)
    command -v bpfmt >/dev/null || { echo "bpfmt not found: install blueprint-tools"; exit 77; }
    for f in "${files[@]}"; do
        if ! out=$(bpfmt -d "$f" 2>&1); then
            echo "bpfmt cannot read $f:"
            echo "$out"
            status=1
        elif [ -n "$out" ]; then
            echo "needs bpfmt -w: $f"
            echo "$out"
            status=1
        fi
    done
    [ $status -ne 0 ] || echo "${#files[@]} Android.bp files formatted as bpfmt wants"
    ;;
paths)
    count=0
    for f in "${files[@]}"; do
        dir=$(dirname "$f")
        while IFS= read -r path; do
            count=$((count + 1))
            # Soong's globs: * within a folder, ** across folders.
            if [[ $path == *'*'* ]]; then
                if ! (cd "$dir" && shopt -s globstar nullglob && m=($path) && [ ${#m[@]} -gt 0 ]); then
                    echo "$f: nothing matches $path"
                    status=1
                fi
            elif [ ! -e "$dir/$path" ]; then
                echo "$f: no such file or folder: $path"
                status=1
            fi
        done < <(named_paths "$f")
    done
    [ $status -ne 0 ] || echo "${#files[@]} Android.bp files name $count paths, all present"
    ;;
*)
    usage
    ;;
esac
exit $status

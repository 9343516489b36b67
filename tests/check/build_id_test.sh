#!/usr/bin/env bash
# The build id is that of the sources: the same for a copy of them elsewhere, another where one byte differs.
#
#     build_id_test.sh SOURCE_DIR
set -euo pipefail
source="$1"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

id() {
    cmake -DROOT="$1" -DVERSION=1.2.3 -DVERSIONS=pcre2=10 -DOUTPUT="$work/out.cpp" \
        -P "$source/cmake/CorvaneBuildId.cmake"
    grep -Eo '"1\.2\.3\+[0-9a-f]{16}"' "$work/out.cpp"
}

mkdir "$work/copy"
cp -r "$source/include" "$source/src" "$work/copy"
first="$(id "$source")"
[ "$(id "$work/copy")" = "$first" ] || { echo "a copy has another id" >&2; exit 1; }
printf '\n' >>"$work/copy/src/heuristic/Score.cpp"
[ "$(id "$work/copy")" != "$first" ] || { echo "a changed source has the same id" >&2; exit 1; }

#!/usr/bin/env bash
# Builds the fuzz targets with libFuzzer and runs them, each for SECONDS:
#
#     tools/fuzz.sh SECONDS [TARGET...]
#
# Inputs found go to build/fuzz/found/<target>, crashes to build/fuzz/crashes. Seeds are fuzzers/corpus/<target> and, for
# the targets that read mail, the files of CORVANE_MAIL_DIR where it is set.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. tools/setup.sh

seconds="${1:?usage: tools/fuzz.sh SECONDS [TARGET...]}"
shift
install_packages build fuzz
configure_and_build fuzz
if [ "$#" -eq 0 ]; then
    mapfile -t all < <(cd build/fuzz/bin && ls fuzz-*)
    set -- "${all[@]}"
fi

mkdir -p build/fuzz/crashes
for target in "$@"; do
    found="build/fuzz/found/$target"
    mkdir -p "$found"
    seeds=("fuzzers/corpus/$target")
    case "$target" in
        fuzz-mail | fuzz-scan | fuzz-rfc2047 | fuzz-address | fuzz-language) seeds+=("${CORVANE_MAIL_DIR:-$found}") ;;
    esac
    dictionary=()
    [ -f "fuzzers/$target.dict" ] && dictionary=("-dict=fuzzers/$target.dict")
    echo "== $target"
    "build/fuzz/bin/$target" -max_total_time="$seconds" -timeout=5 -rss_limit_mb=1024 -print_final_stats=1 \
        -artifact_prefix="build/fuzz/crashes/$target-" "${dictionary[@]}" "$found" "${seeds[@]}" 2>&1 | tail -n 15
done

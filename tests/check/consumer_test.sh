#!/usr/bin/env bash
# Installs a build into a prefix that it was not configured with, builds a project against it, by CMake package and by
# pkg-config, and the example program, and runs the results and the installed command.
#
#     consumer_test.sh BUILD_DIR C++_COMPILER CMAKE_GENERATOR
set -euo pipefail
build="$1"
compiler="$2"
# CMake's own default would ask for a make that need not be there.
export CMAKE_GENERATOR="$3"
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

cmake --install "$build" --prefix "$work/usr" >/dev/null
mkdir "$work/rules"
printf 'body OFFER /free offer/\nbody OTHER /other/\n' >"$work/rules/a.cf"

cmake -S "$here/consumer" -B "$work/consumer" -DCMAKE_PREFIX_PATH="$work/usr" -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/consumer" >/dev/null
for standard in 17 20; do
    "$work/consumer/consumer-$standard" "$work/rules"
    "$work/consumer/door-$standard" "$work/rules"
done

pc="$(find "$work/usr" -name corvane-heuristic.pc)"
flags="$(PKG_CONFIG_PATH="$(dirname "$pc")" pkg-config --cflags --libs corvane-heuristic)"
# shellcheck disable=SC2086
"$compiler" -std=c++17 "$here/consumer/main.cpp" $flags -Wl,-rpath,"$(dirname "$(dirname "$pc")")" -o "$work/by-pkg-config"
"$work/by-pkg-config" "$work/rules"

# The library over all others, by both compilers and standards.
pc="$(dirname "$pc")"
flags="$(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs corvane)"
for cxx in g++ clang++; do
    if ! command -v "$cxx" >/dev/null; then
        echo "left out: there is no $cxx here"
        continue
    fi
    for standard in 17 20; do
        # shellcheck disable=SC2086
        "$cxx" "-std=c++$standard" -Wall -Wextra -Wpedantic -Werror "$here/consumer/door.cpp" $flags \
            -Wl,-rpath,"$(dirname "$pc")" -o "$work/door-$cxx-$standard"
        "$work/door-$cxx-$standard" "$work/rules" | grep -x "OFFER 1 $work/rules/a.cf:1" >/dev/null
    done
done

printf 'Subject: x\n\nfree offer\n' >"$work/message"
cmake -S "$here/../../examples/embed" -B "$work/embed" -DCMAKE_PREFIX_PATH="$work/usr" \
    -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/embed" >/dev/null
"$work/embed/embed" "$work/message" "$work/rules" "$work/missing" | grep -x 'message: 1, ok' >/dev/null

cmake -S "$here/../../examples/score" -B "$work/score" -DCMAKE_PREFIX_PATH="$work/usr" \
    -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/score" >/dev/null
"$work/score/score" "$work/rules" <"$work/message" | grep -x '1 ok' >/dev/null

"$work/usr/bin/corvane" scan --rules "$work/rules" - <"$work/message" >/dev/null
for file in lib/tmpfiles.d/corvane.conf share/man/man1/corvane.1 include/corvane/heuristic/Scanner.h \
    include/corvane/RuleSet.h; do
    [ -s "$work/usr/$file" ] || { echo "not installed: $file" >&2; exit 1; }
done

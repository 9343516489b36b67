#!/usr/bin/env bash
# Installs a build into a prefix that it was not configured with, builds a project against it, by CMake package and by
# pkg-config, and the example program, and runs the results and the installed command.
#
#     consumer_test.sh BUILD_DIR C++_COMPILER
set -euo pipefail
build="$1"
compiler="$2"
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
done

pc="$(find "$work/usr" -name corvane-heuristic.pc)"
flags="$(PKG_CONFIG_PATH="$(dirname "$pc")" pkg-config --cflags --libs corvane-heuristic)"
# shellcheck disable=SC2086
"$compiler" -std=c++17 "$here/consumer/main.cpp" $flags -Wl,-rpath,"$(dirname "$(dirname "$pc")")" -o "$work/by-pkg-config"
"$work/by-pkg-config" "$work/rules"

printf 'Subject: x\n\nfree offer\n' >"$work/message"
cmake -S "$here/../../examples/embed" -B "$work/embed" -DCMAKE_PREFIX_PATH="$work/usr" \
    -DCMAKE_CXX_COMPILER="$compiler" >/dev/null
cmake --build "$work/embed" >/dev/null
"$work/embed/embed" "$work/message" "$work/rules" "$work/missing" | grep -x 'message: 1, ok' >/dev/null

"$work/usr/bin/corvane" scan --rules "$work/rules" - <"$work/message" >/dev/null
for file in lib/tmpfiles.d/corvane.conf share/man/man1/corvane.1 include/corvane/heuristic/Scanner.h; do
    [ -s "$work/usr/$file" ] || { echo "not installed: $file" >&2; exit 1; }
done

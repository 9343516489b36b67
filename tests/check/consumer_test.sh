#!/usr/bin/env bash
# Installs a build into an empty directory, builds a project against it, by CMake package and by pkg-config, and runs
# the result and the installed command.
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
# The file names the prefix that the build was configured with; here it was installed elsewhere.
flags="$(PKG_CONFIG_PATH="$(dirname "$pc")" pkg-config --define-prefix --cflags --libs corvane-heuristic)"
# shellcheck disable=SC2086
"$compiler" -std=c++17 "$here/consumer/main.cpp" $flags -Wl,-rpath,"$(dirname "$(dirname "$pc")")" -o "$work/by-pkg-config"
"$work/by-pkg-config" "$work/rules"

printf 'Subject: x\n\nfree offer\n' | "$work/usr/bin/corvane" scan --rules "$work/rules" - >/dev/null
for file in lib/tmpfiles.d/corvane.conf share/man/man1/corvane.1 include/corvane/heuristic/Scanner.h; do
    [ -s "$work/usr/$file" ] || { echo "not installed: $file" >&2; exit 1; }
done

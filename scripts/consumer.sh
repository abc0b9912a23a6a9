#!/usr/bin/env bash
# Installs the default build into a scratch prefix and builds a program
# against the installed tree only, the two ways users do: CMake's
# find_package(nvk) and a plain compiler line from pkg-config. Both programs
# must run and print the same. Every installed header must also compile on
# its own, and examples/cpp must build and run against the installed tree.
# Usage: scripts/consumer.sh (after scripts/setup.sh or scripts/test.sh)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh default >/dev/null

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
prefix="$scratch/prefix"
cmake --install build/default --prefix "$prefix" >/dev/null
libdir=$(dirname "$(find "$prefix" -name libnvk.so -print -quit)")
warnings=(-Wall -Wextra -Werror)

echo "consumer: each installed header on its own"
find "$prefix/include/nvk" -name '*.h' | sort >"$scratch/headers"
[ -s "$scratch/headers" ] || { echo "consumer: no headers installed" >&2; exit 1; }
if grep -q '_internal\.h$' "$scratch/headers"; then echo "consumer: private headers installed" >&2; exit 1; fi
export prefix
sed "s|^$prefix/include/||" "$scratch/headers" | xargs -P 2 -I{} sh -c \
  'printf "#include <%s>\n" "$1" | g++ -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I"$prefix/include" -x c++ - ||
   { echo "consumer: <$1> does not compile on its own" >&2; exit 255; }' _ {}

echo "consumer: find_package(nvk)"
cmake -S tests/consumer -B "$scratch/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_FLAGS="${warnings[*]}" >/dev/null
cmake --build "$scratch/cmake" >/dev/null
"$scratch/cmake/consumer" >"$scratch/cmake.out"

echo "consumer: pkg-config nvk"
export PKG_CONFIG_PATH="$libdir/pkgconfig"
# shellcheck disable=SC2046  # the flags are separate words
g++ -std=c++20 "${warnings[@]}" tests/consumer/consumer.cpp $(pkg-config --cflags --libs nvk) -o "$scratch/consumer-pc"
LD_LIBRARY_PATH="$libdir" "$scratch/consumer-pc" >"$scratch/pc.out"

diff "$scratch/cmake.out" "$scratch/pc.out"
cat "$scratch/cmake.out"

echo "consumer: examples/cpp, as the README builds it"
cmake -S examples/cpp -B "$scratch/example" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_CXX_FLAGS="${warnings[*]}" >/dev/null
cmake --build "$scratch/example" >/dev/null
"$scratch/example/first_steps" examples/stations.json examples/clean-and-score.json "$scratch" >/dev/null
echo "consumer: all builds ran"

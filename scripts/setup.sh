#!/usr/bin/env bash
# Installs the Debian packages one preset needs (only those missing, quietly),
# then configures and builds that preset. Usage: scripts/setup.sh [PRESET]
#   default, asan, tsan  the library, the tool and the tests
#   bench                the library and the benchmarks with their peers
#   fuzz                 the libFuzzer targets, built with clang (see fuzz/run.sh)
# Under CI (CI set) warnings are errors in the g++ presets.
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"

# The library's own needs; then each preset's.
packages=(g++ cmake ninja-build pkg-config nettle-dev libpcre2-dev libcurl4-openssl-dev libexpat1-dev libzip-dev
  libcpp-httplib-dev)
configure=()
case "$preset" in
  default | asan | tsan)
    # pugixml's XPath is the reference of the XPath differential test.
    packages+=(libgtest-dev libgmock-dev libpugixml-dev)
    [ -n "${CI:-}" ] && configure+=(-DNVK_WERROR=ON)
    ;;
  bench)
    # python3-zeep is the WSDL benchmark's peer (bench/wsdl_zeep.py).
    packages+=(libbenchmark-dev rapidjson-dev nlohmann-json3-dev libsimdjson-dev libmsgpack-cxx-dev libpugixml-dev jq time
      python3-zeep)
    ;;
  fuzz)
    # The protocol target checks its pictures with pugixml.
    packages+=(clang libclang-rt-14-dev libpugixml-dev)
    ;;
  *)
    echo "setup: unknown preset '$preset' (default, asan, tsan, bench, fuzz)" >&2
    exit 2
    ;;
esac

missing=()
for p in "${packages[@]}"; do
  [[ "$(dpkg-query -W -f='${Status}' "$p" 2>/dev/null)" == *"install ok installed"* ]] || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

cmake --preset "$preset" "${configure[@]}" >/dev/null
cmake --build --preset "$preset"

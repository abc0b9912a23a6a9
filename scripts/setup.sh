#!/usr/bin/env bash
# Installs the Debian packages the build needs (only those missing, quietly),
# then configures and builds one preset. Usage: scripts/setup.sh [PRESET]
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-default}"

packages=(
  g++ cmake ninja-build pkg-config
  libgtest-dev libgmock-dev libbenchmark-dev
  nettle-dev libexpat1-dev libpcre2-dev libcurl4-openssl-dev libzip-dev
  libcpp-httplib-dev libpugixml-dev
  rapidjson-dev nlohmann-json3-dev libsimdjson-dev libmsgpack-cxx-dev
  clang libclang-rt-14-dev
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"

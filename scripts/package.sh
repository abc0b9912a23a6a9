#!/usr/bin/env bash
# Builds the Debian package from the default build (cpack -G DEB) and checks
# it without touching the system: its Depends field must name the package of
# every library its binaries load from outside it, and the files unpacked
# into a scratch root (dpkg -x) must run. A real dpkg -i would check no more
# here and would change the machine the script runs on, so it is left out.
# Usage: scripts/package.sh [OUTDIR] (the .deb is kept in OUTDIR when given)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh default >/dev/null

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
(cd build/default && cpack -G DEB -B "$scratch/out" >"$scratch/cpack.log" 2>&1) || { cat "$scratch/cpack.log" >&2; exit 1; }
deb=$(find "$scratch/out" -maxdepth 1 -name '*.deb' -print -quit)
[ -n "$deb" ] || { echo "package: cpack made no .deb" >&2; exit 1; }
echo "package: $(basename "$deb")"
dpkg-deb --field "$deb" Package Version Depends

root="$scratch/root"
dpkg-deb -x "$deb" "$root"
libdir=$(dirname "$(find "$root" -name 'libnvk.so.*' -print -quit)")

# Every library the packaged binaries need, except the package's own, must
# come from a package that Depends names.
# The package names in Depends, one a line (versions and alternatives dropped).
depends=$(dpkg-deb --field "$deb" Depends | sed 's/([^)]*)//g; s/|/,/g' | tr ',' '\n' | tr -d ' ')
mapfile -t elves < <(find "$root" -type f \( -name 'libnvk.so.*' -o -path '*/bin/*' \))
ldconfig=$(command -v ldconfig || echo /sbin/ldconfig)  # /sbin is not on every user's PATH
missing=0
for lib in $(for f in "${elves[@]}"; do readelf -d "$f" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p'; done | sort -u); do
  [ -e "$libdir/$lib" ] && continue
  path=$("$ldconfig" -p | awk -v l="$lib" '$1 == l && $NF ~ /^\// {print $NF; exit}')
  [ -n "$path" ] || { echo "package: $lib is not on this system" >&2; missing=1; continue; }
  owner=$(dpkg -S "$(readlink -f "$path")" 2>/dev/null | head -n1 | cut -d: -f1) ||
    owner=$(dpkg -S "$path" | head -n1 | cut -d: -f1)
  if ! grep -Fxq "$owner" <<<"$depends"; then
    echo "package: needs $lib from $owner, which Depends does not name" >&2
    missing=1
  fi
done
((missing == 0))

# The unpacked tool runs with the unpacked library, and says the version
# the build says.
export LD_LIBRARY_PATH="$libdir"
got=$("$root/usr/bin/nvk" version)
want=$(build/default/nvk version)
[ "$got" = "$want" ] || { echo "package: nvk version says '$got', the build '$want'" >&2; exit 1; }
# Taken whole first: grep -q stops reading at its match, and under pipefail the write that
# then fails in ldd would fail the check.
loaded=$(ldd "$root/usr/bin/nvk")
grep -q "libnvk.*=> $libdir/" <<<"$loaded" ||
  { echo "package: the unpacked nvk does not load the unpacked library" >&2; exit 1; }
echo "$got"
"$root/usr/bin/nvk" json examples/bare-members.json >/dev/null
"$root/usr/bin/nvk" perceive examples/clean-and-score.json >/dev/null
if [ -n "${1:-}" ]; then mkdir -p "$1" && cp "$deb" "$1"/; fi
echo "package: unpacked and ran"

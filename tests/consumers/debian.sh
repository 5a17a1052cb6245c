#!/usr/bin/env bash
# debian.sh BUILD SCRATCH: makes the Debian packages of a build tree, unpacks them into a root of
# their own, and builds and runs there what a user of them would.
set -euo pipefail
build=$1 scratch=$2
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

fail() {
  echo "$*" >&2
  exit 1
}

rm -rf "$scratch"
mkdir -p "$scratch/root"
cpack --config "$build/CPackConfig.cmake" -B "$scratch/packages" >"$scratch/cpack.log" ||
  fail "$(cat "$scratch/cpack.log")"
for package in "$scratch"/packages/*.deb; do
  dpkg-deb --info "$package"
  dpkg-deb --extract "$package" "$scratch/root"
done

# depends PACKAGE WANTED...: the package depends on exactly these, whatever their versions.
depends() {
  local names
  names=$(dpkg-deb --field "$scratch"/packages/"$1"_*.deb Depends |
    tr ',' '\n' | sed 's/ *\([^ ]*\).*/\1/' | sort | xargs)
  shift
  [ "$names" = "$*" ] || fail "Depends: $names, but meant is: $*"
}
libraries=(libc6 libcurl4 libgcc-s1 libmd0 libmnl0 libsqlite3-0 libstdc++6 liburiparser1 zlib1g)
# The program has the tag inspector as well, which serves HTTP.
mapfile -t tools < <(printf '%s\n' "${libraries[@]}" libmicrohttpd12 | sort)
depends libvantamo1 "${libraries[@]}"
depends vantamo-tools "${tools[@]}"
depends libvantamo-dev libvantamo1

lib=$(dirname "$(find "$scratch/root/usr/lib" -name libvantamo.so)")
export LD_LIBRARY_PATH=$lib PKG_CONFIG_PATH=$lib/pkgconfig
flags=$(pkg-config --cflags --libs-only-L vantamo)
[ -z "${flags// /}" ] || fail "pkg-config names folders that are searched anyway: $flags"
# The root is not the system's own.
export PKG_CONFIG_SYSROOT_DIR=$scratch/root
export PKG_CONFIG_ALLOW_SYSTEM_CFLAGS=1 PKG_CONFIG_ALLOW_SYSTEM_LIBS=1
mkdir "$scratch/host"
make -C "$scratch/host" -f "$here/pkg_config/Makefile"
"$scratch/host/app"
"$scratch/root/usr/bin/vantamo" --help >/dev/null

#!/usr/bin/env bash
# usage: sysroot.sh ARCHITECTURE FOLDER PACKAGE...
#
# Makes FOLDER a root of another Debian architecture with the packages and what they depend on: what a
# cross build links and its programs run with. The packages come from where this machine's own come
# from; dpkg and apt of this machine learn nothing of the other architecture, and no rights are needed.
#
# A folder that has the packages already stays as it is. An interrupted run leaves none.
set -euo pipefail
architecture=$1 folder=$(realpath -m "$2")
shift 2

stamp=.packages
wanted="$architecture $*"
[ "$(cat "$folder/$stamp" 2>/dev/null)" = "$wanted" ] && exit 0

mkdir -p "$(dirname "$folder")"
work=$(mktemp -d "$(dirname "$folder")/.sysroot-XXXXXX")
trap 'rm -rf "$work"' EXIT
mkdir -p "$work"/{root/usr/{bin,lib,sbin},state/lists/partial,cache/archives/partial}
: >"$work/state/status"

private_apt() {
  apt-get -qq -o APT::Architecture="$architecture" -o APT::Architectures="$architecture" \
    -o Dir::State="$work/state" -o Dir::State::status="$work/state/status" \
    -o Dir::Cache="$work/cache" -o APT::Sandbox::User="$(id -un)" \
    -o Acquire::Languages=none -o APT::Install-Recommends=false "$@"
}
echo "Fetching the libraries for $architecture" >&2
# One source out of several that fails for this architecture is no reason to give up: what is missing
# then, the next step says.
private_apt update || echo "Going on with the package lists that could be fetched" >&2
private_apt install --download-only --yes "$@" >/dev/null

# Folders as on an installed system, where /lib is /usr/lib.
for name in bin lib sbin; do ln -s "usr/$name" "$work/root/$name"; done
for package in "$work"/cache/archives/*.deb; do
  dpkg-deb --fsys-tarfile "$package" | tar -x -C "$work/root" --keep-directory-symlink \
    --no-same-owner --exclude='./usr/share/doc' --exclude='./usr/share/man'
done
# A link to an absolute path would leave the root.
find "$work/root" -type l -lname '/*' -printf '%p\t%l\n' | while IFS=$'\t' read -r link target; do
  ln -srfn "$work/root$target" "$link"
done
echo "$wanted" >"$work/root/$stamp"
rm -rf "$folder"
mv "$work/root" "$folder"

#!/usr/bin/env bash
# Tries the Debian packages as a new user would: in a bare Debian root of its own it installs them,
# builds the greenhouse example against them and installs it, runs its two processes, and looks at one
# in GDB.
#   bare_root.sh PACKAGE_DIRECTORY WORK_DIRECTORY     as root
set -eu
packages=$(realpath "$1")
root=$(realpath "$2")/root
source=$(realpath "$(dirname "${BASH_SOURCE[0]}")/..")
export LC_ALL=C PATH=/usr/sbin:/usr/bin:/sbin:/bin

# shellcheck disable=SC2016 # apt-get's own placeholder
mirror=$(apt-get indextargets --format '$(REPO_URI)' 'Created-By: Packages' | sort -u | grep -v security | head -n 1)
echo "A bare root from $mirror"
debootstrap --variant=minbase --include=ca-certificates bookworm "$root" "$mirror" >"$2/debootstrap.log" ||
  { tail -n 20 "$2/debootstrap.log" "$root/debootstrap/debootstrap.log" 2>/dev/null; exit 1; }
cp -r /etc/apt/apt.conf.d/. "$root/etc/apt/apt.conf.d/"
mkdir -p "$root/work"
cp "$packages"/*.deb "$root/work/"
cp -r "$source/examples/greenhouse" "$root/work/"

# GDB reads a process's memory there.
if mount -t proc proc "$root/proc"; then
  trap 'umount "$root/proc"' EXIT
fi
chroot "$root" bash -eu <<'INSIDE'
export DEBIAN_FRONTEND=noninteractive
cd /work
apt-get update -q
apt-get install -q -y --no-install-recommends ./*.deb g++ cmake make gdb
inventoryd --help >/dev/null
moxtypes /usr/lib/*/libInvArad.so | grep -qx Inventory::Arad::Arad
cmake -S greenhouse -B build -DCMAKE_BUILD_TYPE=Debug
cmake --build build
cmake --install build
ldconfig
timeout 60 greenhouse/try.sh /usr/local/bin | tee shown
grep -qx 21.5 shown
echo 30 >degrees
gdb -nx -batch -ex 'break Greenhouse::House::temperatureIs' -ex 'run socket <degrees' -ex 'print *this' \
  build/station >debugged 2>&1 </dev/null || true
[ -e /proc/self/mem ] || { echo "no /proc here: GDB isn't tried"; exit 0; }
grep 'Greenhouse::House "house1"' debugged || { cat debugged; exit 1; }
INSIDE

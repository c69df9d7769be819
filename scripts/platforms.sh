#!/usr/bin/env bash
# Runs the suites of the libraries on other processors: 32-bit x86, and emulated by qemu 32-bit ARM and
# a big-endian one. What goes over a connection must be the same bytes everywhere, and what one platform
# recorded must replay on each other. docs/platforms.md has more.
#   scripts/platforms.sh [PLATFORM...]     of i686 armhf s390x; without any, all of them
# Installs what is missing. Takes some minutes for each platform: ./check leaves it out.
set -u
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
# shellcheck source=scripts/packages.sh
. scripts/packages.sh

declare -A triples=([i686]=i686-linux-gnu [armhf]=arm-linux-gnueabihf [s390x]=s390x-linux-gnu)
declare -A emulators=([i686]="" [armhf]=arm [s390x]=s390x)
suites=(mox values model registry generic attrlog transport)
jobs=$(nproc)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
platforms=("$@")
[ $# -ne 0 ] || platforms=(i686 armhf s390x)

needsBuildTools
needs libgtest-dev test -e /usr/include/gtest/gtest.h
needs libgmock-dev test -e /usr/include/gmock/gmock.h
needs googletest test -e /usr/src/googletest/CMakeLists.txt
needs qemu-user command -v qemu-s390x
for platform in "${platforms[@]}"; do
  [ -n "${triples[$platform]-}" ] || { sed -n '2,7s/^# \?//p' "$0"; exit 2; }
  compiler=g++-${triples[$platform]}
  needs "${compiler//_/-}" command -v "${triples[$platform]}-g++"
done
installMissing || exit 1

# build PLATFORM: its suites and the recorder, optimized a little, over a GoogleTest made for it.
build() {
  local tree=build/$1
  local toolchain=(-G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/cross.cmake"
    -DCROSS_TRIPLE="${triples[$1]}" -DCROSS_EMULATOR="${emulators[$1]}")
  cmake -S /usr/src/googletest -B "$tree/googletest" "${toolchain[@]}" -DCMAKE_BUILD_TYPE=Release &&
    cmake --build "$tree/googletest" -j "$jobs" &&
    cmake --install "$tree/googletest" --prefix "$tree/prefix" &&
    cmake -S . -B "$tree" "${toolchain[@]}" -DGTest_DIR="$PWD/$tree/prefix/lib/cmake/GTest" \
      -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS=-O1 -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
      -DINVARAD_TESTS=ON -DINVARAD_TOOLS=OFF -DINVARAD_EXAMPLES=OFF &&
    cmake --build "$tree" -j "$jobs" --target "${suites[@]/%/_tests}" platforms_wire
}

# run PLATFORM PROGRAM ARGUMENT...: a test program of its build tree, emulated where it must be.
run() {
  local platform=$1 program=build/$1/tests/$2
  local -a emulator=()
  shift 2
  [ -z "${emulators[$platform]-}" ] ||
    emulator=("qemu-${emulators[$platform]}" -L "/usr/${triples[$platform]}")
  "${emulator[@]}" "$program" "$@"
}

# fails TEXT...: once is enough for the exit code.
code=0
fails() {
  echo "==> FAILED: $*"
  code=1
}

# step TEXT COMMAND...: shows the output of what fails.
step() {
  local text=$1 began=$SECONDS
  shift
  if "$@" >"$scratch/log" 2>&1; then
    echo "$text: done in $((SECONDS - began)) s"
  else
    tail -n 60 "$scratch/log"
    fails "$text"
    return 1
  fi
}

step "release: building" cmake --preset release &&
  step "release: building" cmake --build --preset release -j "$jobs" --target platforms_wire ||
  exit 1
built=(release)
for platform in "${platforms[@]}"; do
  step "$platform: building" build "$platform" || continue
  built+=("$platform")
  for suite in "${suites[@]}"; do
    step "$platform: $suite" run "$platform" "${suite}_tests" --gtest_brief=1 || true
  done
done

# Behind the time when it began, a capture has nothing of its machine.
for platform in "${built[@]}"; do
  capture=$scratch/$platform
  run "$platform" platforms_wire record "$capture" >"$capture.tree" || fails "$platform: recording"
  cmp -i 16 "$scratch/release" "$capture" || fails "$platform: other bytes than here"
  cmp "$scratch/release.tree" "$capture.tree" || fails "$platform: another tree than here"
done
for recorder in "${built[@]}"; do
  for player in "${built[@]}"; do
    run "$player" platforms_wire replay "$scratch/$recorder" | cmp - "$scratch/release.tree" ||
      fails "$player: what $recorder recorded"
  done
done
echo "bytes and trees compared: ${built[*]}"
exit $code

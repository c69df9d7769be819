# shellcheck shell=bash
# Installs what a script needs and the machine lacks. Sourced by demo and check.

# needs PACKAGE TEST...: notes the Debian package unless the test succeeds.
missingPackages=()
needs() {
  local package=$1
  shift
  "$@" >/dev/null 2>&1 || missingPackages+=("$package")
}

isCmakeNew() {
  cmake --version | python3 -c '
import re, sys
sys.exit(tuple(map(int, re.findall(r"\d+", sys.stdin.readline())[:2])) < (3, 25))'
}

needsBuildTools() {
  needs python3 command -v /usr/bin/python3
  needs python3-jinja2 /usr/bin/python3 -c 'import jinja2'
  needs cmake isCmakeNew
  needs ninja-build command -v ninja
  needs g++ command -v c++
  needs libcli11-dev test -e /usr/include/CLI/CLI.hpp
  needs nlohmann-json3-dev test -e /usr/include/nlohmann/json.hpp
  needs libedit-dev test -e /usr/include/editline/readline.h
  needs libelf-dev test -e /usr/include/libelf.h
}

needsTestTools() {
  needs libgtest-dev test -e /usr/include/gtest/gtest.h
  needs libgmock-dev test -e /usr/include/gmock/gmock.h
  needs libbenchmark-dev test -e /usr/include/benchmark/benchmark.h
  needs pkg-config command -v pkg-config
  needs gdb command -v gdb
  needs libglib2.0-dev pkg-config --exists glib-2.0
  needs libevent-dev pkg-config --exists libevent_core
}

needsFuzzTools() {
  needs clang-14 command -v clang++-14
  needs libclang-rt-14-dev sh -c 'ls /usr/lib/llvm-14/lib/clang/*/lib/linux/libclang_rt.fuzzer-*.a'
}

needsPackageTools() {
  needs dpkg-dev command -v dpkg-shlibdeps
  needs file command -v file
  needs doxygen command -v doxygen
  needs debootstrap test -e /usr/sbin/debootstrap
}

needsLintTools() {
  needs clang-format-14 command -v clang-format-14
  needs clang-tidy-14 command -v clang-tidy-14
}

installMissing() {
  local -a asRoot=()
  if [ ${#missingPackages[@]} -eq 0 ]; then
    echo "==> Nothing is missing on this machine"
    return 0
  fi
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "These packages are missing, and installing them takes root or sudo:" \
        "${missingPackages[*]}" >&2
      return 1
    fi
    asRoot=(sudo)
  fi
  if ! command -v apt-get >/dev/null; then
    echo "This machine has no apt-get; please install: ${missingPackages[*]}" >&2
    return 1
  fi
  echo "==> Installing with apt-get: ${missingPackages[*]}"
  local log
  log=$(mktemp)
  if ! { "${asRoot[@]}" apt-get update -q &&
    "${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -q -y --no-install-recommends "${missingPackages[@]}"; } >"$log" 2>&1; then
    tail -n 30 "$log" >&2
    rm -f "$log"
    echo "apt-get failed" >&2
    return 1
  fi
  rm -f "$log"
}

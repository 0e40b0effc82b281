#!/usr/bin/env bash
# Builds the benchmark for Windows (mingw-w64) and runs it under Wine.
# Google Benchmark has no Windows package in Debian, so its Debian source
# is fetched and built with the same toolchain into build-win-bench/.
#
#   scripts/bench-windows.sh [speed_table.py arguments, e.g. --hosts or --runs 3]
#
# Under Wine only the ratios mean anything: the table divides by the memcpy
# of 6 MiB measured in the same run.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-packages.sh cmake ninja-build dpkg-dev python3 \
  g++-mingw-w64-x86-64-posix gcc-mingw-w64-x86-64-posix binutils-mingw-w64-x86-64 wine wine64

out="$PWD/build-win-bench"
gbench="$out/benchmark"
mkdir -p "$out"
if [ ! -f "$gbench/lib/cmake/benchmark/benchmarkConfig.cmake" ]; then
  if ! grep -rqs '^Types: deb-src' /etc/apt/sources.list.d/ && ! grep -qs '^deb-src' /etc/apt/sources.list; then
    SUDO=""
    [ "$(id -u)" -ne 0 ] && SUDO="sudo"
    suite=$(. /etc/os-release && echo "$VERSION_CODENAME")
    printf 'Types: deb-src\nURIs: http://deb.debian.org/debian\nSuites: %s\nComponents: main\nSigned-By: /usr/share/keyrings/debian-archive-keyring.gpg\n' \
      "$suite" | $SUDO tee /etc/apt/sources.list.d/quorin-src.sources >/dev/null
    $SUDO apt-get update -qq
  fi
  rm -rf "$out/src" && mkdir -p "$out/src"
  (cd "$out/src" && apt-get source -qq benchmark >/dev/null)
  src=$(find "$out/src" -maxdepth 1 -mindepth 1 -type d -name 'benchmark-*' | head -n 1)
  cmake -S "$src" -B "$out/src/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" -DCMAKE_INSTALL_PREFIX="$gbench" \
    -DBENCHMARK_ENABLE_TESTING=OFF -DBENCHMARK_ENABLE_GTEST_TESTS=OFF -DBENCHMARK_ENABLE_WERROR=OFF \
    -DBENCHMARK_ENABLE_LTO=OFF -DBUILD_SHARED_LIBS=OFF -DGIT_VERSION=0.0.0 >/dev/null
  cmake --build "$out/src/build" -j "$(nproc)" >/dev/null
  cmake --install "$out/src/build" >/dev/null
fi

cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64.cmake \
  -DQUORIN_BUILD_BENCH=ON -DCMAKE_PREFIX_PATH="$gbench" -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH >/dev/null
cmake --build "$out" -j "$(nproc)" --target quorin_bench

export WINEPREFIX="$out/wineprefix" WINEDEBUG=-all
[ -d "$WINEPREFIX" ] || wineboot --init >/dev/null 2>&1 || true
exec python3 bench/speed_table.py "$out/bin/quorin_bench.exe" --runner wine "$@"

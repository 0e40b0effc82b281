#!/usr/bin/env bash
# The soak test's long mode: two cameras on two host threads changing
# settings between transfers for 10 minutes (or the seconds given), in the
# Release build (build/) and, with --asan, the sanitizer build (build-asan/).
#   scripts/soak.sh            # 600 s
#   scripts/soak.sh 3600       # an hour
#   scripts/soak.sh --asan     # the same under AddressSanitizer + UBSan
set -euo pipefail
cd "$(dirname "$0")/.."
dir=build
args=(-DCMAKE_BUILD_TYPE=Release)
if [ "${1:-}" = "--asan" ]; then
  dir=build-asan
  args=(-DCMAKE_BUILD_TYPE=Debug -DQUORIN_SANITIZE=ON)
  shift
fi
cmake -S . -B "$dir" -G Ninja -DQUORIN_BUILD_TESTS=ON "${args[@]}" >/dev/null
cmake --build "$dir" --target quorin_api_tests
QUORIN_SOAK_SECONDS="${1:-600}" "$dir/bin/quorin_api_tests" --gtest_filter='Soak.*'

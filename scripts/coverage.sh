#!/usr/bin/env bash
# Line coverage of src/ by the project's own tests: builds build-coverage
# with gcc's --coverage, runs the Linux tests there and prints the figure
# per file and in total (gcovr). Not part of scripts/run-tests.sh: the
# build and the slower instrumented run take about a quarter of an hour.
#   scripts/coverage.sh            # every test
#   scripts/coverage.sh -R unit    # extra arguments go to ctest
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/ensure-packages.sh cmake ninja-build g++ googletest libgtest-dev gcovr \
  libpng-dev libtiff-dev libcli11-dev libhdf5-dev pkg-config python3 python3-numpy python3-pytest python3-h5py

dir=build-coverage
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUORIN_COVERAGE=ON -DQUORIN_BUILD_TESTS=ON \
  -DQUORIN_BUILD_GST=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)"
find "$dir" -name '*.gcda' -delete
status=0
(cd "$dir" && ctest -j "$(nproc)" --output-on-failure "$@") || status=$?
gcovr --root . --filter 'src/' --object-directory "$dir" --gcov-ignore-parse-errors \
  --print-summary --sort-percentage "$dir" | tail -n 70
[ "$status" -eq 0 ] || echo "coverage: some tests failed; the figure counts what ran"
exit "$status"

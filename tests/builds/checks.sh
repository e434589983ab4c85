# shellcheck shell=bash disable=SC2034
# Read by the scripts beside this one. Each is called as SCRIPT WORK_DIRECTORY, builds only there,
# and ends with a line that counts its checks.
set -uo pipefail

source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
rm -rf "${1:?a work directory is needed}"
mkdir -p "$1"
work=$(cd "$1" && pwd)
jobs=$(nproc)
passed=0
failed=0

# check TEXT COMMAND...: the command, mostly a function below, fails with its first failing line.
check() {
  local text=$1
  shift
  (
    set -e
    "$@"
  ) >"$work/check.log" 2>&1
  # Asked for only now, since a condition around the command would switch off its set -e.
  # shellcheck disable=SC2181
  if [ $? -eq 0 ]; then
    passed=$((passed + 1))
    echo "ok      $text"
  else
    failed=$((failed + 1))
    echo "FAILED  $text"
    sed 's/^/        /' "$work/check.log"
  fi
}

finish() {
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}

# The project's own configuration without what takes long to build.
configure_library() {
  cmake -S "$source_dir" -DCMAKE_BUILD_TYPE=Debug -DKORVAIN_STATISTIC_BUILD_TESTS=OFF \
    -DKORVAIN_STATISTIC_BUILD_BENCHMARKS=OFF -DKORVAIN_STATISTIC_BUILD_EXAMPLES=OFF "$@"
}

# Leaves in exported.txt which functions and objects a shared library offers.
list_exported() {
  nm -D --defined-only "$1" | cut -d ' ' -f 3 | c++filt |
    sed -E 's/^(typeinfo|typeinfo name|vtable|VTT) for //' >"$work/exported.txt"
}

# none_of PATTERN FILE: shows the lines that should not be there.
none_of() {
  local status=0
  grep -E -e "$1" "$2" || status=$?
  [ "$status" -eq 1 ] # 2 is no verdict
}

# Succeeds when the command fails. A mere "!" would not end a check.
fails() {
  if "$@"; then return 1; fi
}

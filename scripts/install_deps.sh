#!/usr/bin/env bash
# Installs what a command of the README needs and the machine lacks:
# install_deps.sh demo|test|bench|coverage|fuzz
set -euo pipefail

packages=(g++ cmake make)
optional=()
case "${1:-}" in
  demo) packages+=(libcli11-dev libfmt-dev nlohmann-json3-dev) ;;
  bench) packages+=(libbenchmark-dev libabsl-dev libboost-dev prometheus-cpp-dev valgrind) ;;
  test)
    packages+=(clang pkg-config libcli11-dev libfmt-dev nlohmann-json3-dev libgtest-dev
      libbenchmark-dev libabsl-dev libboost-dev prometheus-cpp-dev)
    # The tools whose verdict depends on their version; newer systems may not have this one.
    optional+=(clang-format-14 clang-tidy-14 gcovr)
    ;;
  coverage)
    packages+=(libgtest-dev)
    optional+=(gcovr)
    ;;
  fuzz) packages+=(clang libgtest-dev) ;;
  *)
    echo "usage: $0 demo|test|bench|coverage|fuzz" >&2
    exit 2
    ;;
esac

is_installed() {
  [ "$(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

missing_of() {
  local package
  for package in "$@"; do
    is_installed "$package" || echo "$package"
  done
}

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
  echo "This is no Debian or Ubuntu system. Needed are what these packages hold: ${packages[*]}" >&2
  exit 0
fi

mapfile -t missing < <(missing_of "${packages[@]}")
mapfile -t missing_optional < <(missing_of ${optional[@]+"${optional[@]}"})
[ $((${#missing[@]} + ${#missing_optional[@]})) -gt 0 ] || exit 0

if [ "$(id -u)" -eq 0 ]; then
  as_root=()
elif command -v sudo >/dev/null && { sudo -n true 2>/dev/null || [ -t 0 ]; }; then
  as_root=(sudo)
else
  if [ ${#missing[@]} -gt 0 ]; then
    echo "Please install these packages first: ${missing[*]}" >&2
    exit 1
  fi
  echo "Done without: ${missing_optional[*]}"
  exit 0
fi

install() {
  ${as_root[@]+"${as_root[@]}"} env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "$@" >/dev/null
}

echo "Installing: ${missing[*]} ${missing_optional[*]}"
# An old list may still do.
${as_root[@]+"${as_root[@]}"} apt-get update -qq || echo "The package lists could not be updated"
if [ ${#missing[@]} -gt 0 ] && ! install "${missing[@]}"; then
  echo "These packages are needed and could not be installed: ${missing[*]}" >&2
  exit 1
fi
# One by one, since each may have gone from the archive, or not fit this machine.
for package in ${missing_optional[@]+"${missing_optional[@]}"}; do
  install "$package" || echo "Not to be had, done without: $package"
done

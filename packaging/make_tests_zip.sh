#!/usr/bin/env bash
# Packs the Windows tests for a computer that has nothing but Windows: the stripped programs, each where its
# tests find it, and run-tests.cmd, which runs them all.
# Usage: make_tests_zip.sh SOURCES BUILD ZIP
# Leaves out the tests of the lab's stand-ins: Windows has the real things.
set -euo pipefail
sources=$1 build=$2 zip=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
list="$work/list"

# put NAME FILE: adds a line to the list.
put() { printf '%s %s\n' "$1" "$2" >>"$list"; }

# put_stripped NAME FILE: adds a copy without symbols.
put_stripped() {
  mkdir -p "$work/$(dirname "$1")"
  x86_64-w64-mingw32-strip --preserve-dates -o "$work/$1" "$2"
  put "$1" "$work/$1"
}

for name in run-tests.cmd wine_only.txt; do
  sed 's/$/\r/' "$sources/tests/$name" >"$work/$name"
  put "$name" "$work/$name"
done
put_stripped Velmarine.Client.exe "$build/Velmarine.Client.exe"
for program in "$build"/tests/*.exe; do
  name=$(basename "$program")
  case $name in lab_*) ;; *) put_stripped "tests/$name" "$program" ;; esac
done
for library in "$build"/tests/windivert/*/WinDivert.dll; do
  put "${library#"$build"/}" "$library"
done
# Not stripped: that would remove their signatures.
for program in "$build"/lab/update/*.exe; do
  put "lab/update/$(basename "$program")" "$program"
done
put lab/update/keys/publisher.sha256 "$build/lab/update/keys/publisher.sha256"
"$(dirname "${BASH_SOURCE[0]}")/make_zip.sh" "$list" Velmarine.Client-tests "$zip"

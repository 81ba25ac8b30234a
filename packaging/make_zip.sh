#!/usr/bin/env bash
# Packs the files that a list names into a ZIP file below one folder, with SHA256SUMS of them all. The
# same contents make the same ZIP file: sorted names, one time for all (SOURCE_DATE_EPOCH, or 1980,
# where ZIP's time begins), and neither owners nor times of access, which other packers put in.
# Usage: make_zip.sh LIST FOLDER_NAME ZIP
# LIST has a line for each file: its name in the package, a blank, where it lies.
set -euo pipefail
export TZ=UTC LC_ALL=C
umask 022

zip=$(realpath -m "$3")
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT
folder="$stage/$2"
while read -r name file; do
  [ -f "$file" ] || { echo "$file is missing; the package needs it as $name." >&2; exit 1; }
  mkdir -p "$(dirname "$folder/$name")"
  cp "$file" "$folder/$name"
  chmod 644 "$folder/$name"
done <"$1"

cd "$folder"
find . -type f ! -name SHA256SUMS -printf '%P\0' | sort -z | xargs -0 sha256sum >SHA256SUMS
cd "$stage"
find "$2" -exec touch -h -d "@${SOURCE_DATE_EPOCH:-315532800}" {} +
rm -f "$zip"
find "$2" -type f | sort | zip -X -9 -q "$zip" -@

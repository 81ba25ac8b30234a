#!/usr/bin/env bash
# Packs the files of a list into a ZIP file below one folder, with SHA256SUMS of them all. The same contents give
# the same ZIP file: names are sorted, all files have one time (SOURCE_DATE_EPOCH, or 1980, where ZIP's time
# begins), and owners and access times, which other packers include, are left out.
# Usage: make_zip.sh LIST FOLDER_NAME ZIP
# LIST has one line per file: its name in the archive, a blank, its path.
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

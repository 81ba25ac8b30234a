#!/usr/bin/env bash
# Draws velmarine.ico anew (ImageMagick): three mint waves on the window's dark ground. The result is
# committed, so that a build needs no drawing tool.
set -euo pipefail
cd "$(dirname "$0")"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# wave MIDDLE: the points of one swell across the tile, on a canvas of 256 pixels.
wave() {
  awk -v middle="$1" 'BEGIN {
    for (x = 40; x <= 216; x += 2) printf "%d,%.1f ", x, middle - 22 * sin((x - 40) / 176 * 6.2832)
  }'
}

convert -size 256x256 xc:none -fill '#06090b' -draw 'roundrectangle 4,4 251,251 52,52' \
  -fill none -strokewidth 20 \
  -stroke '#8ff0d4' -draw "stroke-linecap round stroke-linejoin round polyline $(wave 88)" \
  -stroke '#2ec4a0' -draw "stroke-linecap round stroke-linejoin round polyline $(wave 138)" \
  -stroke '#1c7f6b' -draw "stroke-linecap round stroke-linejoin round polyline $(wave 188)" "$work/256.png"
for size in 16 24 32 48 64; do
  convert "$work/256.png" -filter Lanczos -resize "${size}x${size}" "$work/$size.png"
done
convert "$work"/{16,24,32,48,64,256}.png velmarine.ico

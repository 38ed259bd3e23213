#!/bin/sh
# Renders the program's icon (data/icons/com.tavelquiston.app.svg) to the PNG sizes the
# desktop's icon theme uses. The PNGs are kept in the repository, so a build needs no renderer;
# run this after changing the SVG (needs librsvg2-bin).
set -eu
cd "$(dirname "$0")/../data/icons"
for size in 16 24 32 48 64 128 256 512; do
  mkdir -p "hicolor/${size}x${size}/apps"
  rsvg-convert -w "$size" -h "$size" com.tavelquiston.app.svg \
    -o "hicolor/${size}x${size}/apps/com.tavelquiston.app.png"
done

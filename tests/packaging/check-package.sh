#!/usr/bin/env bash
# Builds the Debian package from a build folder and checks that it holds the
# program, the desktop entry, the metainfo, the icons and the help, and that
# its dependencies came from the program's shared libraries.
# Usage: check-package.sh BUILD_DIR APP_ID
set -euo pipefail
build="$1" id="$2"
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
(cd "$build" && cpack -G DEB -B "$out" >"$out/cpack.log" 2>&1) || { cat "$out/cpack.log"; exit 1; }
deb="$(ls "$out"/vistrel_*.deb)"
contents="$(dpkg-deb --contents "$deb")"
for path in ./usr/bin/vistrel "./usr/share/applications/$id.desktop" \
    "./usr/share/metainfo/$id.metainfo.xml" "./usr/share/icons/hicolor/scalable/apps/$id.svg" \
    "./usr/share/icons/hicolor/48x48/apps/$id.png" ./usr/share/doc/vistrel/README.md; do
  grep -q " $path\$" <<<"$contents" || { echo "missing from the package: $path"; exit 1; }
done
depends="$(dpkg-deb --field "$deb" Depends)"
for library in libqt6widgets6 libxcb1 qt6-qpa-plugins; do
  grep -q "$library" <<<"$depends" || { echo "no dependency on $library: $depends"; exit 1; }
done
echo "ok: $(basename "$deb"): $depends"

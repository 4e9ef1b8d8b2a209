#!/usr/bin/env bash
# Builds the Debian package from a copy of the source tree, so that the
# package build leaves nothing in the tree, and puts
# <build>/korvane_<version>_<arch>.deb beside the normal build.
# Needs no root: debian/control says Rules-Requires-Root: no.
set -euo pipefail
build=${1:-build}
src=$(cd "$(dirname "$0")/.." && pwd)
cd "$src"
mkdir -p "$build"
build=$(cd "$build" && pwd)

version=$(dpkg-parsechangelog -l debian/changelog -SVersion)
project=$(sed -n 's/^project(korvane VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
if [ "$version" != "$project" ]; then
  echo "build-deb: debian/changelog says $version, CMakeLists.txt $project: add a changelog entry" >&2
  exit 1
fi
arch=$(dpkg-architecture -qDEB_HOST_ARCH)

work=$build/deb
tree=$work/korvane-$version
rm -rf "$work"
mkdir -p "$tree"
# The files git knows of or would add; without git, everything but the builds.
if git -C "$src" rev-parse --is-inside-work-tree >/dev/null 2>&1; then
  git -C "$src" ls-files -z --cached --others --exclude-standard |
    while IFS= read -r -d '' f; do [ -e "$f" ] && printf '%s\0' "$f"; done |
    tar -C "$src" --null -T - -cf - | tar -C "$tree" -xf -
else
  tar -C "$src" --exclude=./.git --exclude='./build*' --exclude=./run -cf - . | tar -C "$tree" -xf -
fi

log=$work/dpkg-buildpackage.log
echo "Building korvane_${version}_${arch}.deb (log: $log)"
if ! (cd "$tree" && dpkg-buildpackage -b -us -uc -Jauto) >"$log" 2>&1; then
  tail -n 40 "$log" >&2
  echo "build-deb: the package build failed; the whole log is $log" >&2
  exit 1
fi
mv "$work/korvane_${version}_${arch}.deb" "$build/"
echo "$build/korvane_${version}_${arch}.deb"

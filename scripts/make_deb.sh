#!/bin/sh
# Builds the Debian packages of the files that git knows into build/deb and checks them with lintian.
set -eu
cd "$(dirname "$0")/.."
version=$(sed -n 's/^#define AIPLC_VERSION_[A-Z]* \([0-9]*\).*/\1/p' include/aiplc/aiplc.h | paste -sd.)
packaged=$(sed -n '1s/.*(\(.*\)-.*).*/\1/p' debian/changelog)
[ "$version" = "$packaged" ] || {
    echo "make_deb.sh: debian/changelog is about version $packaged, the header says $version: add an entry" >&2
    exit 1
}
rm -rf build/deb
source=build/deb/aiplc-$version
mkdir -p "$source"
git ls-files -z | xargs -0 cp --parents -t "$source"
log=$PWD/build/deb/build.log
(cd "$source" && dpkg-buildpackage --no-sign --build=binary >"$log" 2>&1) || { tail -15 "$log" >&2; exit 1; }
# The maintainers have no address yet that mail reaches, and say so by one in .invalid. New packages close a bug
# of Debian's when Debian takes them, not before.
(cd build/deb && lintian --allow-root --fail-on error,warning \
    --suppress-tags bogus-mail-host,bogus-mail-host-in-debian-changelog,initial-upload-closes-no-bugs ./*.changes)
rm -rf "$source"
ls -sh build/deb/*.deb

#!/bin/sh
# Proves README's promises in a fresh minimal Debian: scripts/fresh-root.sh RELEASE TARGET ...
#     make fresh-root RELEASE=trixie                   # make demo, then make test
#     make fresh-root RELEASE=bookworm TARGETS=demo
#     make package-root                                # packages built in one root and used in another
# Builds the last commit of this checkout as root, in a root that debootstrap makes below TMPDIR (/var/tmp,
# several GB) and that is gone afterwards. The page's tests must run in it: CI=true. Root's own certificates in
# /usr/local/share/ca-certificates and the proxies of the environment come along; MIRROR names another
# mirror of Debian. Needs root, the package debootstrap and the right to mount.
set -eu

release=${1:-}
case "$release" in
bookworm | trixie) shift ;;
*) echo "fresh-root.sh: RELEASE is '$release': use bookworm (Debian 12) or trixie (Debian 13)" >&2; exit 2 ;;
esac
[ "$(id -u)" = 0 ] || { echo "fresh-root.sh: only root can make a root: sudo make fresh-root" >&2; exit 1; }
command -v debootstrap >/dev/null || { echo "fresh-root.sh: install the package debootstrap first" >&2; exit 1; }

# All mounts and processes lie in namespaces of this script's own and end with it, however it ends.
if [ -z "${AIPLC_FRESH_ROOT:-}" ]; then
    unshare --mount --pid --fork mount -t proc proc /proc 2>/dev/null || {
        echo "fresh-root.sh: this environment does not allow mounts, and no worker runs without /proc" >&2
        exit 1
    }
    AIPLC_FRESH_ROOT=entered exec unshare --mount --pid --fork --kill-child=TERM "$0" "$release" "$@"
fi

root=$(mktemp -d "${TMPDIR:-/var/tmp}/aiplc-$release.XXXXXX")
trap 'umount -l "$root/second/dev/shm" "$root/second/proc" "$root/dev/shm" "$root/proc" 2>/dev/null || true; rm -rf --one-file-system "$root"' EXIT
trap 'exit 130' INT TERM HUP
chmod 755 "$root" # other users than root enter it too

echo "== Making a root of Debian $release in $root"
debootstrap --variant=minbase "$release" "$root" ${MIRROR:+"$MIRROR"} >"$root/debootstrap.log" 2>&1 ||
    { cat "$root/debootstrap.log" >&2; exit 1; }
mount -t proc proc "$root/proc"
mount -t tmpfs -o mode=1777 tmpfs "$root/dev/shm"
echo force-unsafe-io >"$root/etc/dpkg/dpkg.cfg.d/no-sync" # nobody needs it after a power cut
cp -r /usr/local/share/ca-certificates "$root/usr/local/share/"
git clone -q --no-local "$(dirname "$0")/.." "$root/root/aiplc"

in_root() { # a command in the folder of the clone
    in_folder "$root" "$@"
}

in_folder() { # ROOT COMMAND...
    in=$1
    shift
    chroot "$in" env -i -C /root/aiplc HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin CI=true \
        ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} "$@"
}

echo "== apt install make"
in_root apt-get update -qq
in_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq -o Dpkg::Use-Pty=0 make >/dev/null

# Builds the packages here and uses them in a second root, in which there is nothing else.
try_packages() {
    in_root make deb || return
    second=$root/second
    debootstrap --variant=minbase "$release" "$second" ${MIRROR:+"$MIRROR"} >"$root/debootstrap.log" 2>&1 || return
    mkdir -p "$second/root/aiplc/packages"
    cp "$root"/root/aiplc/build/deb/*.deb "$root/root/aiplc/scripts/use_packages.sh" "$second/root/aiplc/packages"
    cp -r /usr/local/share/ca-certificates "$second/usr/local/share/"
    echo force-unsafe-io >"$second/etc/dpkg/dpkg.cfg.d/no-sync"
    mount -t proc proc "$second/proc"
    mount -t tmpfs -o mode=1777 tmpfs "$second/dev/shm"
    in_folder "$second" apt-get update -qq
    in_folder "$second" packages/use_packages.sh packages
}

result=""
failed=0
for target in "$@"; do
    echo "== make $target"
    begin=$(date +%s)
    code=0
    if [ "$target" = packages ]; then try_packages || code=$?; else in_root make "$target" || code=$?; fi
    result="$result, make $target $(($(date +%s) - begin)) s"
    [ "$code" = 0 ] || { result="$result and FAILED (exit code $code)"; failed=1; break; }
done
# shellcheck disable=SC2016
libopus=$(in_root dpkg-query -W -f '${Version}' libopus0 2>/dev/null || echo none)
echo "== Debian $(cat "$root/etc/debian_version") ($release), libopus $libopus$result"
exit "$failed"

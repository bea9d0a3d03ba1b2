#!/bin/sh
# Installs the Debian packages in a throw-away root, uses them there as a host author and an
# administrator would, and removes them again: tests/packaging/package_test.sh FOLDER
#
# The root is an overlay over this machine's own: nothing here changes, and the packages'
# dependencies are those of the build. Only root may mount one; for others the packages are unpacked
# and a host program built against what they hold.
set -eu

folder=$(realpath "$1")
sample=usr/share/doc/libh323nat-dev/examples/minimal_host
work="${3-}"

# What a user finds below $1: the module, what host programs are built with, the tool.
check_content() {
    for file in lib/libh323nat.so include/h323nat/h323nat.h include/h323nat/host/h323nat.h \
        lib/cmake/h323nat/h323nat-config.cmake lib/cmake/h323nat/h323nat-config-version.cmake \
        bin/h323nat share/bash-completion/completions/h323nat share/doc/h323nat/security.md; do
        [ -e "$1/usr/$file" ] || { echo "the packages have no /usr/$file" >&2; exit 1; }
    done
}

# Runs $1, a command prefix, to build the sample against the package below $2, and to run it.
build_host() {
    $1 cmake -S "$2/$sample" -B "$work/build" -Dh323nat_DIR="$2/usr/lib/cmake/h323nat" >/dev/null
    $1 cmake --build "$work/build" >/dev/null
    $1 "$work/build/minimal_host"
    $1 rm -r "$work/build"
}

# Runs in a mount namespace of its own, which takes all that is mounted here away at its end.
# Nothing of the machine's own is mounted writable: changes go to memory, the devices are new.
install_and_remove() {
    root="$work/root"
    mount -t tmpfs tmpfs "$work"
    mkdir "$work/changes" "$work/scratch" "$root"
    mount -t overlay overlay -o "lowerdir=/,upperdir=$work/changes,workdir=$work/scratch" "$root"
    mount -t tmpfs tmpfs "$root/dev"
    mknod -m 666 "$root/dev/null" c 1 3
    mknod -m 666 "$root/dev/zero" c 1 5
    mknod -m 666 "$root/dev/urandom" c 1 9
    mount -t proc -o ro proc "$root/proc"
    mkdir -p "$root$work"
    cp "$folder"/*.deb "$root$work"
    # A fresh log-in's environment: the caller's may name compilers, launchers, caches and folders.
    path=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
    inside="chroot $root env -i HOME=/root LANG=C.UTF-8 PATH=$path"

    $inside sh -c "dpkg --install $work/*.deb"
    check_content "$root"
    build_host "$inside" ""
    $inside h323nat --version >/dev/null
    $inside h323nat gateway --config /etc/h323nat.conf --inside a --outside b --check >/dev/null
    ! command -v systemctl >/dev/null || $inside systemctl --quiet enable h323nat-gateway
    # shellcheck disable=SC2046 # a list of words
    $inside dpkg --purge $(for file in "$folder"/*.deb; do dpkg-deb --field "$file" Package; done)

    # Nothing stays but the package manager's own records.
    left=$(cd "$work/changes" && find . ! -type d |
        grep -Ev '^\./(var/(lib/(dpkg|systemd/deb-systemd)|log|cache/(ldconfig|man))/|etc/ld\.so\.cache|tmp/)' || true)
    if [ -n "$left" ]; then
        echo "left behind: $left" >&2
        exit 1
    fi
}

if [ "${2-}" = in-own-mounts ]; then
    install_and_remove
    echo "packages: install, serve a host program, and leave nothing behind"
    exit 0
fi

# The namespace's mounts are not seen here, so the folder is empty when it is taken away.
work=$(mktemp -d)
if [ "$(id -u)" -eq 0 ] && unshare --mount true 2>/dev/null; then
    unshare --mount --propagation private "$0" "$folder" in-own-mounts "$work"
    rmdir "$work"
else
    for package in "$folder"/*.deb; do
        dpkg-deb --extract "$package" "$work/root"
    done
    check_content "$work/root"
    build_host "" "$work/root"
    rm -rf "$work"
    echo "packages: serve a host program; not installed, that needs root"
fi

#!/usr/bin/env bash
# The Debian package and the tarball hold everything that is installed, and Debian's own checkers find no
# error in them.
#
# usage: package_test.sh BUILD_DIR VERSION
set -euo pipefail
build=$1 version=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

cpack --config "$build/CPackConfig.cmake" -B "$work/packages" >"$work/log" 2>&1 ||
    fail "cpack: $(cat "$work/log")"
deb=$work/packages/brisel_${version}_amd64.deb
tarball=$work/packages/brisel-$version-linux-x86_64.tar.gz
cmake --install "$build" --prefix "$work/installed" >/dev/null
mkdir "$work/unpacked"
tar -xzf "$tarball" -C "$work/unpacked" --strip-components 1
dpkg-deb -x "$deb" "$work/debian"
list() { (cd "$1" && find . ! -type d | LC_ALL=C sort); }
diff <(list "$work/installed") <(list "$work/unpacked") || fail "the tarball lacks files"
# Debian has names of its own for these, and compresses some.
diff <(list "$work/installed" | sed -E '/LICENSE$|CHANGELOG\.md$/d') \
    <(list "$work/debian/usr" | sed -E 's/(\.1)\.gz$/\1/; /copyright$|changelog\.gz$|NEWS\.md\.gz$/d') ||
    fail "the Debian package lacks files"
[[ -s $work/debian/usr/share/doc/brisel/copyright ]] || fail "no licence"

if command -v lintian >/dev/null; then
    user=()
    [[ $(id -u) != 0 ]] || user=(--allow-root)
    lintian "${user[@]}" --fail-on error "$deb" || fail "lintian finds errors"
fi
if command -v appstreamcli >/dev/null; then
    appstreamcli validate --no-net "$work/debian/usr/share/metainfo/"*.xml || fail "metainfo"
fi

# shellcheck shell=sh
# SPDX-License-Identifier: MIT
# lay-ready.sh: for scripts that lay Debian's packages ready beside the build, without installing them: downloaded and
# unpacked, nothing is started and nothing outside the directory changes. Sourced, not run.

# Of what has to be installed for these packages on this machine: "NAME=VERSION" a line.
_to_install() {
    apt-get -s -q install --no-install-recommends "$@" 2>/dev/null |
        sed -n 's/^Inst \([^ ]*\) \(\[[^]]*\] \)\{0,1\}(\([^ ]*\) .*/\1=\3/p'
}

# Fetches package lists on a machine that has none or stale ones.
fetch_lists() {
    [ "$(id -u)" != 0 ] || apt-get -q update >/dev/null 2>&1 || true
}

# unpack_packages SEED PACKAGE...: what this machine lacks of the packages and of what they need, in SEED/root. SEED is
# the directory that is being made; its log tells why it could not be. Status 1: the packages cannot be had.
unpack_packages() {
    _seed=$1
    shift
    mkdir -p "$_seed/packages" "$_seed/root"
    _list=$(_to_install "$@")
    if [ -z "$_list" ]; then
        fetch_lists
        _list=$(_to_install "$@")
    fi
    if [ -z "$_list" ]; then
        echo "apt-get knows no packages $*; run apt-get update" >&2
        return 1
    fi
    # shellcheck disable=SC2086
    if ! (cd "$_seed/packages" && apt-get -q download $_list) >"$_seed/log" 2>&1; then
        cat "$_seed/log" >&2
        return 1
    fi
    for _file in "$_seed"/packages/*.deb; do
        dpkg-deb -x "$_file" "$_seed/root"
    done
    # Where the old names of the directories are links, as on every Debian 12.
    for _directory in bin sbin lib; do
        if [ -d "$_seed/root/$_directory" ]; then
            mkdir -p "$_seed/root/usr/$_directory"
            cp -a "$_seed/root/$_directory/." "$_seed/root/usr/$_directory"
            rm -r "${_seed:?}/root/$_directory"
        fi
    done
    rm -rf "$_seed/packages" "$_seed/root/usr/share/doc" "$_seed/root/usr/share/locale"
}

# missing_packages PACKAGE...: those that are not installed on this machine.
missing_packages() {
    for _package; do
        _state=$(dpkg-query -W -f '${Status}' "$_package" 2>/dev/null || true)
        [ "$_state" = "install ok installed" ] || printf '%s ' "$_package"
    done
}

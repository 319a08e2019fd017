#!/bin/sh
# SPDX-License-Identifier: MIT
# install_test.sh BUILD-DIRECTORY LIBDIR SANITIZERS C-COMPILER C++-COMPILER
set -eu
build=$1 libdir=$2 sanitizers=$3 cc=$4 cxx=$5
here=$(cd "$(dirname "$0")" && pwd)
if [ -n "$sanitizers" ]; then
    echo "skipped: programs of others are not built with sanitizers"
    exit 77
fi
if ! command -v pkg-config >/dev/null; then
    echo "skipped: there is no pkg-config"
    exit 77
fi
work=$(mktemp -d)
# What a developer has installed from here stays listed, and is not what this test takes away.
mkdir "$work/manifests"
find "$build" -maxdepth 1 -name 'install_manifest*.txt' -exec mv {} "$work/manifests" \;
trap 'rm -f "$build"/install_manifest*.txt
find "$work/manifests" -name "*.txt" -exec mv {} "$build" \;
rm -rf "$work"' EXIT
failures=0
check() { # WHAT COMMAND...
    what=$1
    shift
    if "$@" >"$work/log" 2>&1; then
        echo "ok: $what"
    else
        echo "FAILED: $what"
        cat "$work/log"
        failures=$((failures + 1))
    fi
}

# An absolute destination would leave the prefix and change this system, so look before installing. The adapters in compat/
# and their manual pages in other languages have such destinations; they are a component of their own that is installed on
# request only.
if find "$build" -path "$build/compat" -prune -o -path "$build/po" -prune -o -name cmake_install.cmake -exec grep -h 'DESTINATION "/' {} + | grep .; then
    echo "FAILED: the above would be installed outside the prefix"
    exit 1
fi
check "installs" cmake --install "$build" --prefix "$work/first"
check "everything installed lies below the prefix" sh -c "test -s '$build/install_manifest.txt' &&
    ! grep -v '^$work/first/' '$build/install_manifest.txt'"
mv "$work/first" "$work/moved"
prefix=$work/moved
lib=$prefix/$libdir
check "moved as a whole, lists its methods" sh -c "'$prefix/bin/hostadm' list | grep -q ."
check "every method answers" sh -c "for method in \$(cd '$prefix/libexec/hostadm/methods' && ls -d */*); do
    '$prefix/bin/hostadm' help \$method >/dev/null || exit 1; done"
check "libraries have versioned names" sh -c "for name in hostadm hostadm_framework hostadm_tables hostadm_platform; do
    test -L '$lib'/lib\$name.so && test -L '$lib'/lib\$name.so.1 && test -f '$lib'/lib\$name.so.1.*.* || exit 1; done"
check "installed files look for libraries beside themselves only" sh -c "! find '$prefix' -type f \( -name '*.so*' -o -perm -100 \) \
    -exec readelf -d {} + 2>/dev/null | grep -E 'R(UN)?PATH' | grep -Eqv '\[\\\$ORIGIN[^]:]*(:\\\$ORIGIN[^]:]*)*\]'"

PKG_CONFIG_PATH=$lib/pkgconfig
export PKG_CONFIG_PATH
check "pkg-config knows the version" pkg-config --exact-version=1.0.0 hostadm
# shellcheck disable=SC2046 # words are meant to be split
check "a C11 program builds with pkg-config" "$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror $(pkg-config --cflags hostadm) \
    "$here/c_program/main.c" $(pkg-config --libs hostadm) "-Wl,-rpath,$lib" -o "$work/c_program"
check "the C11 program runs" "$work/c_program"
# shellcheck disable=SC2046
check "a method in C++ builds with pkg-config" "$cxx" -std=c++20 $(pkg-config --cflags hostadm-method) \
    "$here/cxx_program/greet.cpp" $(pkg-config --libs hostadm-method) "-Wl,-rpath,$lib" -o "$work/greet"
check "a C++20 program configures with the CMake package" cmake -S "$here/cxx_program" -B "$work/cxx" \
    "-DCMAKE_C_COMPILER=$cc" "-DCMAKE_CXX_COMPILER=$cxx" "-DCMAKE_PREFIX_PATH=$prefix"
check "the C++20 program and a method build" cmake --build "$work/cxx"
check "the C++20 program runs" "$work/cxx/cxx_program"
check "a C program that links the shared libraries alone runs" "$work/cxx/c_program"
check "the method built with pkg-config describes itself" sh -c "'$work/greet' --describe | grep -q other/greet"
mkdir -p "$prefix/libexec/hostadm/methods/other"
cp "$work/cxx/greet" "$prefix/libexec/hostadm/methods/other/"
check "the method built by others runs" sh -c "'$prefix/bin/hostadm' run other/greet who=world | grep -qx 'greeting  hello world'"

# What the documents print, word for word, with the prefix of this test.
documented() { # FILE: its indented lines, without the comment around them
    sed -nE 's,^ ?(//|\*)     ,,p' "$1" | sed -e "s,PREFIX/lib\\b,$lib,g" -e "s,PREFIX,$prefix,g"
}
mkdir "$work/documented" "$work/bin"
ln -s "$cxx" "$work/bin/c++"
ln -s "$cc" "$work/bin/cc"
PATH=$work/bin:$PATH
cd "$work/documented"
documented "$prefix/include/hostadm/method.hpp" >method
grep -Ev '^(c[+][+]|install|find_package|target_link_libraries)[ (]' method >unmount.cpp
{ echo "set -eux"; grep -E '^(c[+][+]|install) ' method; } >build.sh
check "the example of method.hpp builds and is installed by the commands beside it" sh build.sh
check "the example of method.hpp is a method" sh -c "'$prefix/bin/hostadm' help filesystem/unmount | grep -q 'mount point'"
mkdir cmake
cp unmount.cpp cmake
{
    echo "cmake_minimum_required(VERSION 3.25)
project(documented LANGUAGES CXX)
add_compile_options(-std=c++20)"
    grep '^find_package' method
    echo "add_executable(unmount unmount.cpp)"
    grep '^target_link_libraries' method
} >cmake/CMakeLists.txt
check "the example of method.hpp builds with the CMake lines beside it" sh -c "
    cmake -S cmake -B cmake/build -DCMAKE_CXX_COMPILER=$cxx -DCMAKE_PREFIX_PATH=$prefix && cmake --build cmake/build"
cp "$here/c_program/main.c" unmount.c
{ echo "set -eux"; documented "$prefix/include/hostadm/framework.h" | grep '^cc '; } >build.sh
check "a program in C builds by the command in framework.h" sh build.sh
check "it runs" ./unmount
cd "$here"

# ---- taken away again, and the adapters ----

check "installs again" cmake --install "$build" --prefix "$work/second"
check "is taken away" cmake --build "$build" --target uninstall
check "nothing of it is left" sh -c "find '$work/second' -path '*hostadm*' -o ! -type d | { ! grep .; }"
check "taking away twice does no harm" cmake --build "$build" --target uninstall
refuses_prefix() {
    ! cmake --install "$build" --component compat --prefix "$work/third" >"$work/said" 2>&1 &&
        tr -s ' \n' '  ' <"$work/said" | grep -q "the adapters are run by fixed path" && ! grep -q "Installing" "$work/said"
}
check "the adapters are not installed into this system when another prefix was given" refuses_prefix
check "the adapters go below DESTDIR" env DESTDIR="$work/root" cmake --install "$build" --component compat
check "the adapters are there" test -x "$work/root/usr/sbin/share" -a -x "$work/root/usr/lib/nfs/nfsd"
check "the adapters are taken away from there" env DESTDIR="$work/root" cmake --build "$build" --target uninstall
check "nothing of the adapters is left" sh -c "find '$work/root' -path '*hostadm*' -o ! -type d | { ! grep .; }"
[ "$failures" = 0 ]

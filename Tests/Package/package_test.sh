#!/usr/bin/env bash
# Installs the build into a fresh prefix and builds the two consumers of
# examples/consumer against it, one through the CMake package, one through
# pkg-config; each must run and make its record. Then checks what was installed.
# Usage: package_test.sh BUILD_DIR SOURCE_DIR CXX "EXTRA FLAGS (sanitizers)"
set -euo pipefail
build=$1 source=$2 cxx=$3 flags=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
fail() { echo "FAIL: $*" >&2; exit 1; }

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$prefix/lib
[ -d "$libdir" ] || libdir=$(dirname "$(find "$prefix" -name 'libKRClient.*' | head -1)")

check_record() {  # FOLDER NAME_PRINTED
    [ -s "$1/Projects/$2/CacheInfo.xml" ] || fail "no record made in $1/Projects/$2"
}

# 1. find_package(KRClient 0.1) and KRClient::KRClient.
cmake -S "$source/examples/consumer" -B "$work/cmake-build" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" >/dev/null
cmake --build "$work/cmake-build" >/dev/null
name=$("$work/cmake-build/app" "$work/data-cmake")
check_record "$work/data-cmake" "$name"

# 2. pkg-config.
mkdir "$work/pc-build"
cp "$source/examples/consumer/app.cpp" "$source/examples/consumer/Makefile" "$work/pc-build/"
PKG_CONFIG_PATH=$libdir/pkgconfig CXX="$cxx" CXXFLAGS="$flags" LDFLAGS="$flags" \
    make -s -C "$work/pc-build" >/dev/null
name=$(LD_LIBRARY_PATH=$libdir "$work/pc-build/app" "$work/data-pc")
check_record "$work/data-pc" "$name"

# 3. What was installed: the SONAME, no internal header, only exported symbols.
so=$libdir/libKRClient.so.0
if [ -e "$so" ]; then
    readelf -d "$so" | grep -q 'SONAME.*\[libKRClient.so.0\]' || fail "SONAME is not libKRClient.so.0"
    symbols=$(nm -DC --defined-only "$so")
    for wanted in 'KRC::InitKRClient' 'KRC::RegisteredProjects::Init' 'IO::Location::AppendName' \
                  'ZR::UniString::Compare' 'typeinfo for ZR::NullReferenceException'; do
        grep -qF "$wanted" <<<"$symbols" || fail "$wanted is not exported"
    done
    for hidden in 'KRC::KRDataOptions::' 'InfoXMLsChannel' 'IO::Posix' 'IO::Sys::' 'IO::Env' 'pugi::'; do
        ! grep -qF "$hidden" <<<"$symbols" || fail "$hidden is exported"
    done
fi
[ -x "$prefix/bin/krctl" ] || fail "krctl is not installed"
[ -f "$libdir/cmake/KRClient/KRClientConfigVersion.cmake" ] || fail "no package version file"
internal=$(find "$prefix/include" -path '*Internal*' | head -3)
[ -z "$internal" ] || fail "internal headers installed: $internal"
[ -f "$prefix/include/KRClient/KRClient/RegisteredProjects.h" ] || fail "public header missing"

# 4. A parent project that adds the tree, with no GoogleTest to be found, gets
#    the library only: no tests, tools, demo or internal archive are built.
mkdir "$work/parent"
cat >"$work/parent/CMakeLists.txt" <<PARENT
cmake_minimum_required(VERSION 3.25)
project(Parent LANGUAGES CXX)
add_subdirectory("$source" krclient)
add_executable(app "$source/examples/consumer/app.cpp")
target_link_libraries(app PRIVATE KRClient::KRClient)
PARENT
cmake -S "$work/parent" -B "$work/parent-build" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON >/dev/null
cmake --build "$work/parent-build" >/dev/null
"$work/parent-build/app" "$work/data-parent" >/dev/null
for unwanted in krctl krc_demo KRClientTests libKRClientInternal.a; do
    [ -z "$(find "$work/parent-build" -name "$unwanted" -type f)" ] || fail "$unwanted built for a parent"
done
echo "package: installed, both consumers built and ran; a parent project builds the library only"

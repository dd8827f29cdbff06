#!/usr/bin/env bash
# Installs the build into a fresh prefix, then as a host developer would:
# compiles every installed header alone with strict warnings, builds
# examples/first_host against the install through the CMake package (with the
# Emulator component) and through pkg-config (run path set, no
# LD_LIBRARY_PATH), runs both, and checks what was installed. Last, a parent
# project that adds the tree gets the library (and the emulator it asks for)
# only.
# Usage: package_test.sh BUILD_DIR SOURCE_DIR CXX "EXTRA FLAGS (sanitizers)"
set -euo pipefail
build=$(cd "$1" && pwd) source=$(cd "$2" && pwd) cxx=$3 flags=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
prefix=$work/prefix
jobs=$(nproc 2>/dev/null || echo 2)
fail() { echo "FAIL: $*" >&2; exit 1; }
quiet() { "$@" >"$work/out" 2>&1 || { cat "$work/out" >&2; fail "$*"; }; }

cmake --install "$build" --prefix "$prefix" >/dev/null
libdir=$prefix/lib
[ -d "$libdir" ] || libdir=$(dirname "$(find "$prefix" -name 'libKRClient.*' | head -1)")
include=$prefix/include/KRClient

# 1. Every installed header compiles alone in a strict host build.
export cxx include
(cd "$include" && find . -name '*.h' | sed 's|^\./||' | sort) >"$work/headers"
[ -s "$work/headers" ] || fail "no headers installed"
# shellcheck disable=SC2016
xargs -P "$jobs" -I{} sh -c 'printf "#include \"%s\"\n" "$1" |
    "$cxx" -std=c++20 -fsyntax-only -Wall -Wextra -Wshadow -Wconversion -Wpedantic -Werror \
        -I"$include" -x c++ - >/dev/null 2>&1 || echo "$1"' _ {} <"$work/headers" >"$work/bad"
[ ! -s "$work/bad" ] || fail "headers that warn alone: $(tr '\n' ' ' <"$work/bad")"

run_host() {  # PROGRAM FOLDER: logs in against the emulator and opens the project
    local out
    out=$("$1" "$2") || fail "$1 failed: $out"
    grep -q 'Opened /Housing/Tower A: CheckOnline' <<<"$out" || fail "$1: $out"
    [ -n "$(find "$2/data/Projects" -name CacheInfo.xml)" ] || fail "$1 made no cached record"
}

# 2. find_package(KRClient COMPONENTS Emulator); the private libraries of the
#    shared object are not asked for.
cmake -S "$source/examples/first_host" -B "$work/cmake-build" -G Ninja \
    -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_DISABLE_FIND_PACKAGE_JPEG=TRUE -DCMAKE_DISABLE_FIND_PACKAGE_PNG=TRUE \
    -DCMAKE_DISABLE_FIND_PACKAGE_ICU=TRUE -DCMAKE_DISABLE_FIND_PACKAGE_pugixml=TRUE \
    -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" --no-warn-unused-cli >/dev/null
quiet cmake --build "$work/cmake-build"
run_host "$work/cmake-build/first_host" "$work/host-cmake"

# 3. pkg-config, run as built: the run path finds the library.
mkdir "$work/pc-build"
cp "$source/examples/first_host/main.cpp" "$source/examples/first_host/Makefile" "$work/pc-build/"
PKG_CONFIG_PATH=$libdir/pkgconfig CXX="$cxx" CXXFLAGS="$flags" LDFLAGS="$flags" \
    quiet make -s -C "$work/pc-build"
! PKG_CONFIG_PATH=$libdir/pkgconfig pkg-config --cflags KRClient | grep -q -- '-std=' ||
    fail "KRClient.pc forces a language standard"
(unset LD_LIBRARY_PATH; run_host "$work/pc-build/first_host" "$work/host-pc")

# 4. What was installed: the SONAME, no internal header, only exported symbols.
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
    ! nm -DC --defined-only "$libdir/libKRClientEmulator.so.0" | grep -qF 'Emulator::Internal::' ||
        fail "the emulator exports its internals"
fi
[ -x "$prefix/bin/krctl" ] || fail "krctl is not installed"
[ -f "$libdir/cmake/KRClient/KRClientConfigVersion.cmake" ] || fail "no package version file"
internal=$(find "$prefix/include" -path '*Internal*' | head -3)
[ -z "$internal" ] || fail "internal headers installed: $internal"
for guide in ARCHITECTURE.md FIRST_HOST.md EMULATOR.md; do
    [ -f "$prefix/share/doc/KRClient/$guide" ] || fail "$guide is not installed"
done
for header in KRClient/RegisteredProjects.h Emulator/Service.h; do
    [ -f "$include/$header" ] || fail "public header $header missing"
done

# 5. A parent project that adds the tree, with no GoogleTest to be found, gets
#    the library and the emulator it asks for: no tests, tools, demo or
#    internal archive. Its build folder stays between runs (incremental, and
#    through ccache when there is one).
parent=$build/package-test-parent
mkdir -p "$parent/source"
cat >"$parent/source/CMakeLists.txt" <<PARENT
cmake_minimum_required(VERSION 3.25)
project(Parent LANGUAGES CXX)
set(KRC_BUILD_EMULATOR ON)
add_subdirectory("$source" krclient)
add_executable(first_host "$source/examples/first_host/main.cpp")
target_link_libraries(first_host PRIVATE KRClient::KRClient KRClient::Emulator)
PARENT
launcher=$(command -v ccache || true)
cmake -S "$parent/source" -B "$parent/build" -G Ninja -DCMAKE_CXX_COMPILER="$cxx" \
    ${launcher:+-DCMAKE_CXX_COMPILER_LAUNCHER="$launcher"} \
    -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON \
    --no-warn-unused-cli >/dev/null
quiet cmake --build "$parent/build"
run_host "$parent/build/first_host" "$work/host-parent"
for unwanted in krctl krc_demo KRClientTests libKRClientInternal.a; do
    [ -z "$(find "$parent/build" -name "$unwanted" -type f)" ] || fail "$unwanted built for a parent"
done
echo "package: installed; headers compile alone; first_host built both ways and ran; a parent project builds the library and the emulator only"

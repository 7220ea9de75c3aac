#!/usr/bin/env bash
# Usage: c_library_alone.sh SOURCE_DIR WORK_DIR CXX_COMPILER MAKE_PROGRAM
# Configures, builds and installs the C library alone, the way a machine
# with nothing but a C++ compiler and CMake would: PATH holds only the
# compiler's own tools, cmake and the build program (no C compiler, no
# java, javac, pkg-config, node or npm), and every find_* call looks into an
# empty root, so that no installed package (JDK, CLI11, EDFlib,
# libsamplerate, GoogleTest, ...) can be found.
set -euo pipefail
src=$1 work=$2 cxx=$3 make_program=$4
rm -rf "$work"
mkdir -p "$work/bin" "$work/empty-root"
for tool in as ld ar ranlib nm objdump objcopy readelf strip; do
  path=$(command -v "$tool") && ln -s "$path" "$work/bin/$tool"
done
ln -s "$(command -v cmake)" "$work/bin/cmake"
# A compiler cache the caller uses (CMAKE_CXX_COMPILER_LAUNCHER) is kept.
launcher=()
if [ -n "${CMAKE_CXX_COMPILER_LAUNCHER:-}" ] && cache=$(command -v "$CMAKE_CXX_COMPILER_LAUNCHER"); then
  ln -s "$cache" "$work/bin/$(basename "$cache")"
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER="$(basename "$cache")")
fi

configure=(cmake -S "$src" -B "$work/build" -G Ninja
  -DCMAKE_MAKE_PROGRAM="$make_program" -DCMAKE_CXX_COMPILER="$cxx"
  -DCMAKE_BUILD_TYPE=Release "${launcher[@]}"
  -DKELO_BUILD_JNI=OFF -DKELO_BUILD_TOOLS=OFF -DKELO_BUILD_TESTS=OFF
  -DCMAKE_FIND_ROOT_PATH="$work/empty-root"
  -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY
  -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=ONLY)
env -i HOME="$HOME" PATH="$work/bin" "${configure[@]}"
env -i HOME="$HOME" PATH="$work/bin" cmake --build "$work/build"
env -i HOME="$HOME" PATH="$work/bin" cmake --install "$work/build" --prefix "$work/prefix"

# Only the library and its package files were built and installed.
installed=$(cd "$work/prefix" && find . -type f -o -type l | sort)
echo "$installed"
unexpected=$(echo "$installed" | grep -v -E '^\./(include/keloecgsolver/[a-z_]+\.h|lib[^/]*/(libkeloecgsolver\.so(\.[0-9.]+)?|cmake/keloecgsolver/[A-Za-z-]+\.cmake|pkgconfig/keloecgsolver\.pc)|share/doc/libkeloecgsolver(1|-dev)/copyright)$' || true)
if [ -n "$unexpected" ]; then
  echo "installed beyond the C library:"; echo "$unexpected"; exit 1
fi
echo "the C library alone configured, built and installed"

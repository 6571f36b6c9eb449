#!/usr/bin/env bash
# Installs the build into a fresh prefix and uses it as a project outside
# Pixmill's tree would: a C++ program through find_package(Pixmill 1) and a
# C program through pkg-config, each running a recipe and releasing the
# result. Also checks the installed tree itself.
#   install_consumers.sh BUILD_DIR SOURCE_DIR WORK_DIR VERSION LIBDIR [CMAKE]
# Exits 77 (skipped) when pkg-config or make is missing.
set -euo pipefail
build=$1 src=$2 work=$3 version=$4 libdir=$5 cmake=${6:-cmake}
major=${version%%.*}

for tool in pkg-config make readelf; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is missing"; exit 77; }
done

fail() { echo "FAILED: $*" >&2; exit 1; }
# True when program $1 loads the installed library, not another copy.
loads_installed_library() {
  local loaded
  loaded=$(ldd "$1" | sed -n "s/^\s*libpixmill\.so\.$major => \(\S*\).*/\1/p")
  [ -n "$loaded" ] && [ "$loaded" -ef "$lib/libpixmill.so.$major" ]
}

rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix
export PIXMILL_ROOT=$work/root
"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log"

# The library's files: the real file, the SONAME link for the loader and the
# development link, and a SONAME of the major version.
lib=$prefix/$libdir
[ -f "$lib/libpixmill.so.$version" ] || fail "no $libdir/libpixmill.so.$version"
[ "$(readlink "$lib/libpixmill.so.$major")" = "libpixmill.so.$version" ] || fail "libpixmill.so.$major link"
[ "$(readlink "$lib/libpixmill.so")" = "libpixmill.so.$major" ] || fail "libpixmill.so link"
readelf -d "$lib/libpixmill.so.$version" | grep -q "Library soname: \[libpixmill.so.$major\]" ||
  fail "SONAME is not libpixmill.so.$major"
for f in include/pixmill/pixmill.h include/pixmill/pixmill_ext.h include/pixmill/export.h \
         "$libdir/cmake/Pixmill/PixmillConfig.cmake" "$libdir/cmake/Pixmill/PixmillConfigVersion.cmake" \
         "$libdir/pkgconfig/pixmill.pc" bin/pixmill share/doc/pixmill/README.md; do
  [ -f "$prefix/$f" ] || fail "$f is not installed"
done

# A consumer of the C interface sees neither OpenCV nor RapidJSON: not in the
# package files, not in the headers' includes.
if grep -rilE 'opencv|rapidjson' "$lib/cmake" "$lib/pkgconfig"; then
  fail "the package files above name OpenCV or RapidJSON"
fi
if grep -hE '^\s*#\s*include' "$prefix"/include/pixmill/*.h | grep -iE 'opencv|rapidjson|\.hpp'; then
  fail "a public header includes the lines above"
fi

# The installed tool finds the installed library from its own place.
loads_installed_library "$prefix/bin/pixmill" || fail "bin/pixmill does not load $lib"
"$prefix/bin/pixmill" filters ThresholdFilter >"$work/tool.out" || fail "bin/pixmill filters"
grep -q Threshold "$work/tool.out" || fail "bin/pixmill listed no ThresholdFilter"

# find_package, with the major version the package promises; another major
# version is refused.
consumer=$src/tests/consumers/find_package
"$cmake" -S "$consumer" -B "$work/find_package" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF -DCMAKE_BUILD_TYPE=Release >"$work/find_package.log"
"$cmake" --build "$work/find_package" >>"$work/find_package.log"
loads_installed_library "$work/find_package/consumer" ||
  fail "the find_package consumer does not load $lib"
"$work/find_package/consumer"
mkdir -p "$work/next_major"
cp "$consumer/main.cpp" "$work/next_major/"
sed "s/find_package(Pixmill $major REQUIRED)/find_package(Pixmill $((major + 1)) REQUIRED)/" \
  "$consumer/CMakeLists.txt" >"$work/next_major/CMakeLists.txt"
grep -q "find_package(Pixmill $((major + 1)) REQUIRED)" "$work/next_major/CMakeLists.txt" ||
  fail "could not write the next-major consumer"
if "$cmake" -S "$work/next_major" -B "$work/next_major/build" -DCMAKE_PREFIX_PATH="$prefix" \
     -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/next_major.log" 2>&1; then
  fail "find_package(Pixmill $((major + 1))) accepted version $version"
fi
grep -q "compatible with requested version" "$work/next_major.log" ||
  fail "find_package(Pixmill $((major + 1))) failed for another reason: see $work/next_major.log"

# pkg-config, in C.
export PKG_CONFIG_PATH=$lib/pkgconfig
[ "$(pkg-config --modversion pixmill)" = "$version" ] || fail "pixmill.pc version"
[ "$(pkg-config --variable=libdir pixmill)" -ef "$lib" ] || fail "pixmill.pc libdir"
mkdir -p "$work/pkg_config"
make -s -C "$work/pkg_config" -f "$src/tests/consumers/pkg_config/Makefile" \
  SRC="$src/tests/consumers/pkg_config" >"$work/pkg_config.log"
loads_installed_library "$work/pkg_config/consumer" ||
  fail "the pkg-config consumer does not load $lib"
"$work/pkg_config/consumer"
echo "install and consumers: passed"

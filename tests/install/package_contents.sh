#!/usr/bin/env bash
# Builds the Debian packages with CPack and checks each one: its control
# fields and dependencies, which files it holds and which it must not, and
# that the unpacked development and runtime packages build and run a C
# program through their pixmill.pc.
#   package_contents.sh BUILD_DIR SOURCE_DIR WORK_DIR VERSION LIBDIR [CPACK]
# Exits 77 (skipped) when the Debian tools are missing.
set -euo pipefail
build=$1 src=$2 work=$3 version=$4 libdir=$5 cpack=${6:-cpack}
major=${version%%.*}

for tool in dpkg-deb dpkg-shlibdeps dpkg pkg-config make; do
  command -v "$tool" >/dev/null || { echo "skipped: $tool is missing"; exit 77; }
done

fail() { echo "FAILED: $*" >&2; exit 1; }

rm -rf "$work"
mkdir -p "$work"
"$cpack" --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" ||
  { cat "$work/cpack.log"; fail "cpack"; }

arch=$(dpkg --print-architecture)
runtime=libpixmill$major
deb() { echo "$work/out/${1}_${version}_$arch.deb"; }
for p in "$runtime" libpixmill-dev pixmill; do
  [ -f "$(deb "$p")" ] || fail "no package file $(basename "$(deb "$p")")"
done
[ "$(ls "$work/out"/*.deb | wc -l)" -eq 3 ] || fail "more than the three packages: $(ls "$work/out")"

# Control fields: name, version, and the dependencies each package needs.
#   package | field | text the field must contain
checks=(
  "$runtime|Package|$runtime"
  "$runtime|Version|$version"
  "$runtime|Depends|libopencv-core406"
  "$runtime|Depends|libopencv-imgcodecs406"
  "$runtime|Depends|libstdc++6"
  "$runtime|Depends|libsystemd0"
  "libpixmill-dev|Version|$version"
  "libpixmill-dev|Depends|$runtime (= $version)"
  "pixmill|Version|$version"
  "pixmill|Depends|$runtime (= $version)"
  "pixmill|Depends|libopencv-imgcodecs406"
)
for c in "${checks[@]}"; do
  IFS='|' read -r pkg field text <<<"$c"
  value=$(dpkg-deb -f "$(deb "$pkg")" "$field")
  [[ "$value" == *"$text"* ]] || fail "$pkg $field is \"$value\", lacks \"$text\""
done
# The runtime package tells packages built against it which version they need.
dpkg-deb -I "$(deb "$runtime")" shlibs | grep -qx "libpixmill $major $runtime (>= $version)" ||
  fail "$runtime has no shlibs entry for libpixmill $major"

# Files: what each package must hold (+) and must not (-).
files=(
  "$runtime|+|./usr/$libdir/libpixmill.so.$version"
  "$runtime|+|./usr/$libdir/libpixmill.so.$major"
  "$runtime|+|./usr/share/doc/pixmill/README.md"
  "$runtime|-|./usr/$libdir/libpixmill.so"
  "$runtime|-|./usr/include/pixmill/pixmill.h"
  "$runtime|-|./usr/bin/pixmill"
  "libpixmill-dev|+|./usr/include/pixmill/pixmill.h"
  "libpixmill-dev|+|./usr/include/pixmill/pixmill_ext.h"
  "libpixmill-dev|+|./usr/include/pixmill/export.h"
  "libpixmill-dev|+|./usr/$libdir/libpixmill.so"
  "libpixmill-dev|+|./usr/$libdir/cmake/Pixmill/PixmillConfig.cmake"
  "libpixmill-dev|+|./usr/$libdir/cmake/Pixmill/PixmillConfigVersion.cmake"
  "libpixmill-dev|+|./usr/$libdir/pkgconfig/pixmill.pc"
  "libpixmill-dev|-|./usr/$libdir/libpixmill.so.$version"
  "pixmill|+|./usr/bin/pixmill"
  "pixmill|-|./usr/$libdir/libpixmill.so.$version"
)
for f in "${files[@]}"; do
  IFS='|' read -r pkg sign path <<<"$f"
  if dpkg-deb -c "$(deb "$pkg")" | awk '{print $6}' | grep -qxF "$path"; then
    [ "$sign" = "+" ] || fail "$pkg holds $path"
  else
    [ "$sign" = "-" ] || fail "$pkg lacks $path"
  fi
done

# Unpacked together, the packages form a working /usr: stripped library with
# its SONAME, a tool that runs, and a pixmill.pc that builds a C consumer.
root=$work/root
for p in "$runtime" libpixmill-dev pixmill; do dpkg-deb -x "$(deb "$p")" "$root"; done
so=$root/usr/$libdir/libpixmill.so.$version
readelf -d "$so" | grep -q "Library soname: \[libpixmill.so.$major\]" || fail "packaged SONAME"
if readelf -S "$so" | grep -q '\.debug_info'; then fail "the packaged library is not stripped"; fi
PIXMILL_ROOT=$work/pixmill_root "$root/usr/bin/pixmill" filters InvertFilter >"$work/tool.out" ||
  fail "the packaged tool does not run"
grep -q InvertFilter "$work/tool.out" || fail "the packaged tool listed no InvertFilter"
mkdir -p "$work/consumer"
PKG_CONFIG_PATH=$root/usr/$libdir/pkgconfig make -s -C "$work/consumer" \
  -f "$src/tests/consumers/pkg_config/Makefile" SRC="$src/tests/consumers/pkg_config" >"$work/consumer.log"
PIXMILL_ROOT=$work/pixmill_root "$work/consumer/consumer"

# apt accepts the three files: every dependency resolves on this system.
if command -v apt-get >/dev/null; then
  (cd "$work/out" && apt-get install -s -q ./*.deb) >"$work/apt.log" 2>&1 ||
    { cat "$work/apt.log"; fail "apt-get cannot install the packages"; }
fi
echo "packages: passed"

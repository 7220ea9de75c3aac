#!/usr/bin/env bash
# Usage: check_debian_packages.sh BUILD_DIR WORK_DIR LIST_DIR COMPONENT=PACKAGE...
# Builds the Debian packages of BUILD_DIR with CPack and checks them:
# - each PACKAGE holds exactly the files and links (with their targets) of
#   LIST_DIR/COMPONENT.txt, where @LIBDIR@, @VERSION@, @MAJOR@ and @CONFIG@
#   stand for $KELO_LIBDIR, $KELO_VERSION, $KELO_MAJOR and $KELO_CONFIG, and
#   a line with @HEADER@ for every header in $KELO_HEADERS;
# - every other package depends on the runtime package of the same version;
# - unpacked together, every link resolves, keloecg runs on its bundled
#   recording and the jar loads the library where the JVM looks for it
#   ($KELO_JAVA) and gives the version.
set -euo pipefail
build=$1 work=$2 lists=$3
shift 3
rm -rf "$work"
mkdir -p "$work/root"
cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/debs" > "$work/cpack.log" ||
  { cat "$work/cpack.log"; exit 1; }

expected_files() {
  sed -e '/^#/d' -e '/^$/d' -e "s|@LIBDIR@|$KELO_LIBDIR|g" -e "s|@VERSION@|$KELO_VERSION|g" \
      -e "s|@MAJOR@|$KELO_MAJOR|g" -e "s|@CONFIG@|$KELO_CONFIG|g" "$1" |
    while IFS= read -r line; do
      if [[ $line == *@HEADER@* ]]; then
        for h in $KELO_HEADERS; do echo "${line//@HEADER@/$h}"; done
      else
        echo "$line"
      fi
    done | sort
}

status=0
runtime=""
others=()
for pair in "$@"; do
  component=${pair%%=*} package=${pair#*=}
  debs=("$work/debs/${package}"_*.deb)
  if [ ! -f "${debs[0]}" ]; then echo "$package: not built"; status=1; continue; fi
  deb=${debs[0]}
  if [ "$component" = runtime ]; then runtime="$package (= $(dpkg-deb -f "$deb" Version))"; else others+=("$deb"); fi
  # Files and links (with their targets), without the folders.
  actual=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ { $1 = $2 = $3 = $4 = $5 = ""; sub(/^ +/, ""); print }' |
           sed 's|^\./|/|' | sort)
  wanted=$(expected_files "$lists/$component.txt")
  if [ "$actual" != "$wanted" ]; then
    echo "$package: its files differ from $component.txt (< expected, > packaged):"
    diff <(echo "$wanted") <(echo "$actual") || true
    status=1
  fi
  dpkg-deb -x "$deb" "$work/root"
done
for deb in "${others[@]}"; do
  depends=$(dpkg-deb -f "$deb" Depends)
  if [[ ", $depends," != *", $runtime,"* ]]; then
    echo "$(basename "$deb"): Depends '$depends' lacks '$runtime'"
    status=1
  fi
done

while read -r link; do
  readlink -e "$link" > /dev/null || { echo "dangling link ${link#"$work/root"}"; status=1; }
done < <(find "$work/root" -type l)
# keloecg finds the library and its bundled recording from where it lies.
if [ -e "$work/root/usr/bin/keloecg" ]; then
  if ! out=$(env -u KELOECG_DATA "$work/root/usr/bin/keloecg" qrs 2>&1) ||
     ! grep -q "^Recording .*/usr/share/keloecg/mitdb100-5min.f32" <<< "$out"; then
    echo "the unpacked keloecg did not run on its bundled recording:"; echo "$out"; status=1
  fi
fi
jar=$work/root/usr/share/java/kelosolver.jar
if [ -e "$jar" ] && [ -n "${KELO_JAVA:-}" ]; then
  expected="version $KELO_VERSION, jar $KELO_VERSION"
  out=$("$KELO_JAVA" -Djava.library.path="$work/root/usr/$KELO_LIBDIR/jni" -cp "$jar" \
        "$(dirname "$0")/PackagedJarProbe.java" 2>&1) || true
  if [ "$out" != "$expected" ]; then
    echo "the unpacked jar said '$out', not '$expected'"; status=1
  fi
fi
[ $status -ne 0 ] || echo "packages built and checked: $*"
exit $status

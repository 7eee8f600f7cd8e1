#!/usr/bin/env bash
# use_installed.sh PROJECT PREFIX: builds hosts with what is installed below PREFIX alone and runs them, and the
# installed programs, on a simulated pen. Of PROJECT only the examples and the readme
# are used, as copies outside of it.
set -euo pipefail
project=$1 prefix=$2
libraries=$(dirname "$(find "$prefix" -name 'libQuarvel.so.1')")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$project/examples" "$project/scripts/lib/desk.sh" "$project/README.md" "$work"
cd "$work"

# Where the tree is the system's own, the loader knows it; a tree under another name finds its libraries by itself.
[ "$(basename "$prefix")" != usr ] || export LD_LIBRARY_PATH=$libraries
export PATH=$prefix/bin:$PATH PKG_CONFIG_LIBDIR=$libraries/pkgconfig
export TESSVIK_SIM_DIR=$work/pens XDG_STATE_HOME=$work/state
mkdir pens

die() {
  echo "$*" >&2
  exit 1
}

echo "== every kind of file is there"
for file in include/quarvel/QuarvelPublic.h bin/{quarvel,quarvel-bundle,tessvik-sim} \
  share/bash-completion/completions/quarvel share/zsh/vendor-completions/_quarvel-bundle \
  share/fish/vendor_completions.d/tessvik-sim.fish share/man/man1/{quarvel,quarvel-bundle,tessvik-sim}.1; do
  compgen -G "$prefix/$file*" >/dev/null || die "$file is missing"
done

echo "== nothing names the folder that it was built in"
grep -rF "$project" "$prefix/include" "$libraries/cmake" "$libraries/pkgconfig" && die "these files do"
readelf -d "$prefix"/bin/* "$libraries"/*.so* | grep -E '(RPATH|RUNPATH|NEEDED|SONAME)' | grep -F "$project" &&
  die "a program or library does"

echo "== a C11 host, built with pkg-config"
source desk.sh
make_signer key.pem cert.pem
fill_bundle bundle examples/bundle/update.xml
plug_in_pen 0x2a leave-time=20 return-time=20
quarvel-bundle pack bundle -o autumn.bundle --key key.pem --cert cert.pem
read -ra flags < <(pkg-config --cflags --libs quarvel)
cc -std=c11 -Wall -Wextra -Wpedantic -Werror examples/install.c -o host "${flags[@]}" -lTessvik -Wl,-rpath,"$libraries"
./host autumn.bundle cert.pem | tail -1 | grep "result 0: success"

echo "== the host in the readme"
sed -n '/^```c$/,/^```$/{/^```/d;p}' README.md >readme.c
cc -std=c11 -Wall -Wpedantic -Werror -c readme.c "${flags[@]}"
nm readme.o | grep -q ' T install$'

echo "== the installed programs find the pen in order"
status=0
quarvel install autumn.bundle --pen 0x2a --cert cert.pem --fail-if-current || status=$?
[ $status -eq 10 ] || die "the pen does not hold what the host installed: $status"

echo "== the last run's trace is played again"
quarvel report -o report.zip
tessvik-sim replay report.zip

echo "== a host from Python"
LD_LIBRARY_PATH=$libraries python3 examples/install.py autumn.bundle cert.pem | grep "result 1"

echo "== a project of its own, built with find_package"
cmake -S examples/consumer -B consumer -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build consumer
consumer/consumer | grep "Quarvel $(pkg-config --modversion quarvel)"

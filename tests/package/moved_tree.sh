#!/usr/bin/env bash
# moved_tree.sh PROJECT BUILD: installs a build, moves the tree elsewhere and uses it there.
set -euo pipefail
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cmake --install "$2" --prefix "$folder/first" >/dev/null
mv "$folder/first" "$folder/second"
"$(dirname "$0")/use_installed.sh" "$1" "$folder/second"

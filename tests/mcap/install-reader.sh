#!/usr/bin/env bash
# Installs the independent MCAP reader the mcap tests check mdstore's files with (the versions
# pinned in package-lock.json) into DIR of the build tree. Without node and npm, or when npm
# cannot fetch the packages, it says SKIPPED and the tests that need the reader skip too.
set -u
here=$(cd "$(dirname "$0")" && pwd)
dir=$1
if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
    echo "mcap reader: SKIPPED - node and npm are not installed"
    exit 0
fi
if cmp -s "$here/package-lock.json" "$dir/package-lock.json" &&
    [[ -f $dir/node_modules/@mcap/core/package.json ]]; then
    echo "mcap reader: installed in $dir"
    exit 0
fi
rm -rf "$dir" && mkdir -p "$dir" && cp "$here/package.json" "$here/package-lock.json" "$dir/"
if ! npm ci --prefix "$dir" --ignore-scripts --no-audit --no-fund >"$dir/npm.log" 2>&1; then
    rm -rf "$dir/node_modules"
    echo "mcap reader: SKIPPED - npm could not install it (offline?), see $dir/npm.log"
    exit 0
fi
echo "mcap reader: installed in $dir"

#!/bin/bash
# Builds the Debian package from the tracked files of this clone, in a tree of its own, and checks it with lintian.
# The result lies in build/deb. Packages that are missing for that are installed.
set -euo pipefail

source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd -P)
result=$source_dir/build/deb
tree=$result/tree

fail()
{
    echo "build-deb.sh: $*" >&2
    exit 1
}

# What git knows, as it lies here: neither builds nor notes of the person who builds.
copy_sources()
{
    cd "$source_dir"
    git rev-parse --git-dir >/dev/null 2>&1 || fail "$source_dir is no clone of the repository"
    local file
    while IFS= read -r -d '' file; do
        # One that was removed and not yet committed is still listed.
        [ ! -e "$file" ] || printf '%s\0' "$file"
    done < <(git ls-files -z) | tar --create --null --files-from=- --file=- | tar --extract --file=- --directory="$tree"
    cp -R packaging/debian "$tree/debian"
}

check_version()
{
    local project changelog
    project=$(sed -n 's/^project(tvfilemon VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
    changelog=$(dpkg-parsechangelog --show-field Version)
    [ "$project" = "$changelog" ] ||
        fail "CMakeLists.txt says version ${project:-none}, packaging/debian/changelog says $changelog"
}

# What run.sh needs, a builder of packages needs as well; g++ it has anyway.
check_dependencies()
{
    local package
    while read -r package; do
        grep -q "[ ,]$package\\b" debian/control ||
            fail "packaging/debian/control does not name $package, which packaging/dependencies/run.txt does"
    done < <(grep -v -x -e '#.*' -e 'g++' packaging/dependencies/run.txt)
}

[ $# -eq 0 ] || fail "takes no arguments"
"$source_dir/packaging/install-dependencies" run package

rm -rf "$result"
mkdir -p "$tree"
copy_sources
cd "$tree"
check_version
check_dependencies
dpkg-buildpackage --build=binary --no-sign >"$result/build.log" 2>&1 || {
    tail -n 40 "$result/build.log" >&2
    fail "the build failed; all of its output is in $result/build.log"
}
cd "$result"
# A tag that does not apply has its reason in packaging/debian/tvfilemon.lintian-overrides.
lintian --fail-on error,warning ./*.changes
rm -rf "$tree"
echo "build-deb.sh: $(ls "$result"/tvfilemon_*.deb)"

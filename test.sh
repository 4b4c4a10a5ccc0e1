#!/bin/bash
# Builds the project and runs every test. The last line says how many passed, failed and were skipped; the
# exit status is 0 only if none failed.
set -euo pipefail

usage()
{
    cat <<'EOF'
usage: ./test.sh [--quick]

Installs what is missing, checks the sources (clang-format, shellcheck, clang-tidy), builds, and runs the unit and
the end-to-end tests with the address and undefined behaviour sanitizers, the end-to-end and the desktop tests with a
release build, the fuzz targets, and the Debian package: that is built, installed in a Debian of its own, and run there.

  --quick   a debug build and its tests: neither sanitizers nor checks of the sources, nor the package
  --help    this text

TVFILEMON_TEST_SIGNATURES   directory of signed signatures, by default ../shared/testdata/signatures; where there
                            is none, unsigned ones are made
CI=true                     missing signed signatures are an error
EOF
}

quick=false
case "$*" in
'') ;;
--quick) quick=true ;;
--help)
    usage
    exit
    ;;
*)
    usage >&2
    exit 2
    ;;
esac

cd "$(dirname "${BASH_SOURCE[0]}")"
source_dir=$(pwd -P)
results=$source_dir/build/results
export TVFILEMON_TEST_SIGNATURES=${TVFILEMON_TEST_SIGNATURES:-$source_dir/../shared/testdata/signatures}

passed=0
failed=0
skipped=0
failures=()

fail()
{
    failed=$((failed + 1))
    failures+=("$1")
    echo "FAILED: $1"
}

# step NAME COMMAND...: a command that is a test by itself. Tells whether it passed.
step()
{
    local name=$1
    shift
    echo "== $name (after $SECONDS s)"
    if "$@"; then
        passed=$((passed + 1))
    else
        fail "$name"
        return 1
    fi
}

# suite NAME PREFIX COMMAND...: a command that runs many tests and writes JUnit files of them, whose names are the
# words of PREFIX and whatever it appends to them.
suite()
{
    local name=$1 prefix=$2 status=0 totals=(0 0 0) reports=()
    shift 2
    echo "== $name (after $SECONDS s)"
    mkdir -p "$results"
    rm -f "$results/$prefix"*.xml
    "$@" || status=$?
    mapfile -t reports < <(find "$results" -name "$prefix*.xml" -size +0)
    if [ ${#reports[@]} -gt 0 ]; then
        read -r -a totals < <(tests/support/junit_totals.py "${reports[@]}") || totals=(0 1 0)
    fi
    passed=$((passed + totals[0]))
    failed=$((failed + totals[1]))
    skipped=$((skipped + totals[2]))
    if [ "${totals[1]}" -gt 0 ]; then
        failures+=("$name: ${totals[1]} tests")
    elif [ $status -ne 0 ]; then
        fail "$name: status $status"
    elif [ "${totals[0]}" -eq 0 ]; then
        fail "$name: no test was run"
    fi
}

own_files()
{
    find src tools tests bench packaging .ci ./*.sh -type f -not -path '*/__pycache__/*' "$@"
}

check_format()
{
    own_files '(' -name '*.h' -o -name '*.cpp' -o -name '*.c' ')' -print0 |
        xargs -0 clang-format --dry-run -Werror
}

check_scripts()
{
    local script scripts=()
    while IFS= read -r script; do
        scripts+=("$script")
    done < <(own_files -exec awk 'FNR == 1 && /^#!.*[\/ ](ba)?sh/ { print FILENAME } FNR == 1 { nextfile }' {} +)
    shellcheck "${scripts[@]}"
}

# build PRESET [OPTION OF CMAKE]...
build()
{
    cmake --preset "$@" >/dev/null && cmake --build --preset "$1"
}

unit_tests()
{
    suite "unit tests, $1" "unit-$1" ctest --preset "$1" --parallel 2 --output-junit "$results/unit-$1.xml"
}

# run_part NUMBER PRESET [ARGUMENT]...: reports through a descriptor, since the tests see other file systems in the place
# of this one.
run_part()
{
    local number=$1 preset=$2
    shift 2
    tests/e2e/run "build/$preset" --part="$number/2" --junitxml=/proc/self/fd/9 "$@" \
        9>"$results/e2e-$preset-$number.xml"
}

# run_end_to_end PRESET [ARGUMENT]...: in two parts at the same time, each in namespaces of its own: most tests wait for
# something.
run_end_to_end()
{
    local status=0 first
    run_part 1 "$@" >"$results/e2e-$1-1.log" 2>&1 &
    first=$!
    run_part 2 "$@" || status=1
    wait $first || status=1
    cat "$results/e2e-$1-1.log"
    return $status
}

end_to_end_tests()
{
    suite "end-to-end tests, $1" "e2e-$1" run_end_to_end "$@"
}

# Of nothing that a compiler made: the sanitizers have nothing to look at.
scripts_alone=(--ignore-glob='test_update.py' --ignore-glob='test_firewall.py' --ignore-glob='test_manual.py')

# Its container is one of systemd, which only root can boot, and its service takes nothing but signed signatures.
package_tests()
{
    if [ "$(id -u)" -ne 0 ] || ! [ -d "$TVFILEMON_TEST_SIGNATURES" ]; then
        skipped=$((skipped + 1))
        echo "SKIPPED: package: needs root and signed signatures"
        return
    fi
    suite "package" package tests/package/run --junitxml="$results/package.xml"
}

fuzz_targets()
{
    local seconds=20
    if [ "${form:-}" = --long ]; then
        seconds=600
    fi
    if step "build, fuzz" build fuzz; then
        suite "fuzz targets" fuzz tests/fuzz/run build/fuzz --seconds "$seconds" --junitxml="$results/fuzz.xml"
    fi
}

if [ -d "$TVFILEMON_TEST_SIGNATURES" ]; then
    echo "Signatures: the signed ones in $TVFILEMON_TEST_SIGNATURES"
elif [ "${CI:-}" = true ]; then
    fail "signed signatures: there is no directory $TVFILEMON_TEST_SIGNATURES"
else
    echo "Signatures: no directory $TVFILEMON_TEST_SIGNATURES, using unsigned ones made for the tests"
fi

step "packages" packaging/install-dependencies run test || true

if ! $quick; then
    step "clang-format" check_format || true
    step "shellcheck" check_scripts || true
fi
if $quick; then
    if step "build, dev" build dev; then
        unit_tests dev
        end_to_end_tests dev
        step "popup on a desktop" tests/desktop/popup_check build/dev "$results/popup.png" || true
    fi
else
    if step "build, asan" build asan; then
        step "clang-tidy" tests/lint/clang_tidy build/asan || true
        unit_tests asan
        end_to_end_tests asan "${scripts_alone[@]}"
    fi
    # As run.sh installs it.
    if step "build, release" build release -DTVFILEMON_TEST_PROGRAMS=ON -DTVFILEMON_WARNINGS_AS_ERRORS=ON; then
        end_to_end_tests release
        step "popup on a desktop" tests/desktop/popup_check build/release "$results/popup.png" || true
    fi
    fuzz_targets
    package_tests
fi

echo
for failure in "${failures[@]}"; do
    echo "FAILED: $failure"
done
echo "$passed passed, $failed failed, $skipped skipped"
[ $failed -eq 0 ]

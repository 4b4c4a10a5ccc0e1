#!/bin/bash
# Builds the project and runs every test. The last line says how many passed, failed and were skipped; the
# exit status is 0 only if none failed.
set -euo pipefail

usage()
{
    cat <<'EOF'
usage: ./test.sh [--quick | --long | --coverage]

Installs what is missing, checks the sources (clang-format, shellcheck, clang-tidy), builds, and runs the unit and
the end-to-end tests with the address and undefined behaviour sanitizers and with the thread sanitizer, the fuzz
targets, end-to-end, fault and desktop tests with a release build, and the Debian package: that is built, installed in
a Debian of its own, and run there.

  --quick     a debug build and its tests: no sanitizers, checks of the sources, fuzz targets, faults or package
  --long      besides everything else, the fault tests in their long form and each fuzz target for ten minutes
  --coverage  only which lines and branches of src the unit and the end-to-end tests run; fails where these are less
              than 95 and 85 in a hundred, or where a line that none runs has no reason in tests/support/uncovered.toml
  --help      this text

TVFILEMON_TEST_SIGNATURES   directory of signed signatures, by default ../shared/testdata/signatures; where there
                            is none, unsigned ones are made
CI=true                     missing signed signatures are an error
EOF
}

form=${1:---plain}
# The same inputs for each change: what is new in a change is what fails.
fuzz_options=(--seconds 20 --seed 1)
long_faults=()
case "$*" in
'' | --quick | --coverage) ;;
--long)
    fuzz_options=(--seconds 600)
    long_faults=(--long)
    ;;
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

# step_beside NAME COMMAND...: a step that takes what time the next ones leave, most of whose tests wait.
step_beside()
{
    local name=$1
    shift
    echo "== $name, beside what follows (after $SECONDS s)"
    mkdir -p "$results"
    nice -n 19 "$@" >"$results/beside.log" 2>&1 &
    beside=$!
}

# step_ends NAME: waits for the one that was begun. Tells whether it passed.
step_ends()
{
    step "$1, the end" wait "$beside" || {
        cat "$results/beside.log"
        return 1
    }
    tail -n 1 "$results/beside.log"
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

# share_out PROCESSES NAME PRESET [ARGUMENT]...: tests at the same time, each process in namespaces of its own: most of them
# wait for something. Files go through descriptors, since the tests see other file systems in the place of this one.
share_out()
{
    local count=$1 name=$2 preset=$3 status=0 number process processes=()
    shift 3
    rm -f "$results/$name"-*.log
    : >"$results/$name.taken"
    for number in $(seq "$count"); do
        tests/e2e/run "build/$preset" "$@" --share=/proc/self/fd/8 --junitxml=/proc/self/fd/9 \
            >"$results/$name-$number.log" 2>&1 8<>"$results/$name.taken" 9>"$results/$name-$number.xml" &
        processes+=($!)
    done
    for process in "${processes[@]}"; do
        wait "$process" || status=1
    done
    cat "$results/$name"-*.log
    return $status
}

# end_to_end_tests PRESET [ARGUMENT OF PYTEST]...
end_to_end_tests()
{
    local preset=$1
    suite "end-to-end tests, $preset" "e2e-$preset" share_out 4 "e2e-$preset" "$@"
}

# With a release build: many compare times, and a sanitizer is another program to run out of memory with. One after the
# other, each has the machine for itself.
fault_tests()
{
    suite "fault tests" faults share_out 1 faults release --suite=faults "$@"
}

# fuzz_tests [OPTION]...
fuzz_tests()
{
    if step "build, fuzz" build fuzz; then
        suite "fuzz targets" fuzz tests/fuzz/run build/fuzz "$@" --junitxml "$results/fuzz.xml"
    fi
}

# Of nothing that a compiler made: the sanitizers have nothing to look at.
scripts_alone=(--ignore-glob='test_update.py' --ignore-glob='test_firewall.py' --ignore-glob='test_manual.py')

# The counters are root's: programs of other users complain about them on standard error, which these tests look at. And
# lists of a million hashes take minutes where each step is counted.
not_counted=(--ignore-glob='test_tvctl_ioc_import.py' --deselect=test_tvctl_doctor.py::test_all_is_well
    --deselect=test_tvctl_requests.py::test_whom_the_firewall_bars
    --deselect=test_tvctl_requests.py::test_a_reload_only_if_it_runs_by_whom_the_firewall_bars
    --deselect=test_tvctl_requests.py::test_another_program_behind_the_firewall
    --deselect=test_tvctl_selftest.py::test_without_roots_rights)

# What the tool asks of the service the other tests do, too, and of its commands only a scan has a second thread.
of_one_thread=()
for script in tests/e2e/test_tvctl_*.py; do
    [ "$script" = tests/e2e/test_tvctl_scan.py ] || of_one_thread+=("--ignore-glob=${script##*/}")
done

# What they ask is answered the same however it was compiled, and they compare neither times nor memory. The other files
# have an installation as it is delivered, races at full speed, and figures.
same_in_each_build=()
for topic in engine_directory events ioc_cache ioc_matches log names objects quarantine socket_commands \
    socket_document socket_reloads store switches tree tvctl_config tvctl_doctor tvctl_exclude tvctl_ioc_lists \
    tvctl_ioc_lookup tvctl_report; do
    same_in_each_build+=("--ignore-glob=test_$topic.py")
done

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

if [ -d "$TVFILEMON_TEST_SIGNATURES" ]; then
    echo "Signatures: the signed ones in $TVFILEMON_TEST_SIGNATURES"
elif [ "${CI:-}" = true ]; then
    fail "signed signatures: there is no directory $TVFILEMON_TEST_SIGNATURES"
else
    echo "Signatures: no directory $TVFILEMON_TEST_SIGNATURES, using unsigned ones made for the tests"
fi

# As run.sh installs it.
build_release()
{
    build release -DTVFILEMON_TEST_PROGRAMS=ON -DTVFILEMON_WARNINGS_AS_ERRORS=ON
}

# An exception for which nothing is written is taken nowhere: each call of what might throw counts as a branch. What no
# test runs has a reason.
report_coverage()
{
    local status=0
    gcovr --root . --filter src/ -j 2 --exclude-throw-branches --exclude-unreachable-branches \
        --txt "$results/coverage.txt" --json "$results/coverage.json" --print-summary \
        --fail-under-line 95 --fail-under-branch 85 build/coverage || status=1
    tests/support/uncovered_lines.py "$results/coverage.json" tests/support/uncovered.toml || status=1
    return $status
}

step "packages" packaging/install-dependencies run test || true

case $form in
--quick)
    if step "build, dev" build dev; then
        unit_tests dev
        end_to_end_tests dev
        step "popup on a desktop" tests/desktop/popup_check build/dev "$results/popup.png" || true
    fi
    ;;
--coverage)
    if step "build, coverage" build coverage; then
        find build/coverage -name '*.gcda' -delete
        unit_tests coverage
        end_to_end_tests coverage "${scripts_alone[@]}" "${not_counted[@]}"
        # What of the service only a fault brings.
        suite "faults, coverage" faults-coverage share_out 1 faults-coverage coverage --suite=faults \
            -k 'stored_in_the_middle_of_a_scan or a_leased_file_that_goes'
        step "coverage" report_coverage || true
    fi
    ;;
*)
    step "clang-format" check_format || true
    step "shellcheck" check_scripts || true
    if step "build, asan" build asan; then
        step_beside "clang-tidy" tests/lint/clang_tidy build/asan
        unit_tests asan
        end_to_end_tests asan "${scripts_alone[@]}"
        step_ends "clang-tidy" || true
    fi
    if step "build, tsan" build tsan; then
        unit_tests tsan
        end_to_end_tests tsan "${scripts_alone[@]}" "${of_one_thread[@]}"
    fi
    fuzz_tests "${fuzz_options[@]}"
    if step "build, release" build_release; then
        step_beside "many idle clients" tests/e2e/run build/release --suite=faults -m paced "${long_faults[@]}"
        end_to_end_tests release "${same_in_each_build[@]}"
        fault_tests -m 'not paced' "${long_faults[@]}"
        step_ends "many idle clients" || true
        step "popup on a desktop" tests/desktop/popup_check build/release "$results/popup.png" || true
    fi
    package_tests
    ;;
esac

echo
for failure in "${failures[@]}"; do
    echo "FAILED: $failure"
done
echo "$passed passed, $failed failed, $skipped skipped"
[ $failed -eq 0 ]

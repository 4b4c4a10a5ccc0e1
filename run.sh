#!/bin/bash
# Builds the service, stages an installation under build/root, finds signatures and runs it in the foreground
# on /home and /media. Ctrl-C stops it; the exit status is the service's.
set -euo pipefail

source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd -P)
root=${source_dir%/}/build/root
database=$root/db
# Lies beside signatures that detect nothing but test files, so that the next run looks for better ones.
test_marker=$database/only-test-files
system_database=/var/lib/clamav
test_signatures=${TVFILEMON_TEST_SIGNATURES:-$source_dir/../shared/testdata/signatures}
log=$root/logs/tvfilemon.log

# What the engine unpacks, at most; it needs up to 400 MB for one archive.
readonly unpack_megabytes=512 least_memory_megabytes=2048

# A slow line may take minutes for the 250 MB of a complete set.
readonly download_seconds=900

say()
{
    echo "run.sh: $*"
}

fail()
{
    echo "run.sh: $*" >&2
    exit 1
}

check_root_place()
{
    local slashes=${root//[!\/]/}
    [ ${#slashes} -ne 2 ] ||
        fail "the service refuses to run from $root: its root must not lie exactly two levels below /." \
            "Move this directory one level deeper."
}

build()
{
    cd "$source_dir"
    [ ! -e build ] || [ -w build ] ||
        fail "$source_dir/build belongs to somebody else, who has run this before. Remove it first."
    cmake --preset release
    cmake --build --preset release
    cmake --install build/release --prefix "$root" >/dev/null
    say "installed into $root"
}

has_databases()
{
    compgen -G "$1/*.cvd" >/dev/null
}

# Puts the databases of directory $1 in place of those that are there.
take_databases()
{
    rm -f "$database"/*.cvd "$test_marker"
    cp --reflink=auto "$1"/*.cvd "$database/"
}

# Into a directory beside the final one: an interrupted download must not look like a complete set.
download_databases()
{
    local fresh=$root/db.download result=0
    rm -rf "$fresh"
    mkdir -p "$fresh"
    # What the machine has already need not be fetched again.
    if has_databases "$system_database"; then
        cp --reflink=auto "$system_database"/*.cvd "$fresh/"
    fi
    say "downloading signatures, at most $((download_seconds / 60)) minutes ..."
    timeout --foreground --kill-after=5 "$download_seconds" \
        freshclam --config-file="$source_dir/packaging/freshclam.conf" --datadir="$fresh" --user="$(id -un)" \
        --stdout >"$root/freshclam.log" 2>&1 || result=$?
    if [ $result -eq 0 ] && [ -e "$fresh/daily.cvd" ]; then
        take_databases "$fresh"
    else
        say "the download failed: $(grep -m 1 ERROR "$root/freshclam.log" || echo "status $result")"
        result=1
    fi
    rm -rf "$fresh"
    return $result
}

provide_signatures()
{
    if has_databases "$database" && [ ! -e "$test_marker" ]; then
        say "signatures: those in $database"
        return
    fi
    if [ -e "$system_database/daily.cvd" ]; then
        take_databases "$system_database"
        say "signatures: copied from $system_database"
        return
    fi
    if has_databases "$system_database"; then
        say "signatures: the set in $system_database is incomplete, it has no daily.cvd; going on"
    fi
    if download_databases; then
        say "signatures: downloaded into $database"
        return
    fi
    if has_databases "$test_signatures"; then
        take_databases "$test_signatures"
        touch "$test_marker"
    fi
    if has_databases "$database"; then
        say "*** TEST SIGNATURES: detects only test files. This machine is NOT protected. ***"
    else
        say "*** NO SIGNATURES: nothing can be detected. Put *.cvd files into $database and start again. ***"
    fi
}

# A directory that is watched and that the person at the keyboard may write to.
directory_to_try()
{
    local home
    home=$(getent passwd "${SUDO_USER:-$(id -un)}" | cut -d: -f6)
    case $home in
    /home/*) echo "$home" ;;
    *) echo /home ;;
    esac
}

# Waits until the process $1 watches, told by what is in the log after byte $2, and shows how to try it.
# $3 goes in front of a command that looks at files of the service.
announce()
{
    local process=$1 offset=$2 privilege=$3 written watched
    until
        # A log that has shrunk was moved aside when the service started.
        written=$(stat -c %s "$log" 2>/dev/null || echo 0)
        [ "$written" -ge "$offset" ] || offset=0
        watched=$(tail -c +$((offset + 1)) "$log" 2>/dev/null |
            grep -c '\[FileMonitor::startMonitoring\] :: Watching: /\(home\|media\)') || true
        [ "$watched" -ge 2 ]
    do
        [ -d "/proc/$process" ] || return 0
        sleep 0.1
    done
    # In pieces, so that nothing that looks for the test file finds it in this script.
    cat <<EOF

run.sh: watching /home and /media. Ctrl-C stops it. To try it, in another terminal:

    printf '%s%s' 'X5O!P%@AP[4\\PZX54(P^)7CC)7}\$EICAR' '-STANDARD-ANTIVIRUS-TEST-FILE!\$H+H*' > $(directory_to_try)/eicar.com
    tail -n 5 $log
    ${privilege}ls -l $root/quarantine

EOF
}

# Whether the kernel could give the engine that much memory without taking it from other programs.
has_memory()
{
    local name kilobytes rest
    while read -r name kilobytes rest; do
        if [ "$name" = MemAvailable: ]; then
            [ $((kilobytes / 1024)) -ge $least_memory_megabytes ]
            return
        fi
    done </proc/meminfo
    return 1
}

# Whose content is other people's secret; the service itself would make them so that everybody may look in.
# $1 is whose the service is, the rest goes in front of the command.
make_private_directories()
{
    local owner=$1
    shift
    "$@" install -d -m 0700 -o "$owner" "$root/settings" "$root/quarantine"
}

# Whether a service in a mount namespace of its own would still see what is mounted later: a stick, for example.
mounts_arrive()
{
    local directory
    for directory in / /home /media; do
        [[ $(findmnt -n -o PROPAGATION --target "$directory") == *shared* ]] || return 1
    done
}

# Gives root's service a place of its own for what it unpacks: in memory, and with a limit, so that no archive
# fills the place where other programs keep what they need to run. Elsewhere the service looks for a place itself.
# Sets "command".
add_engine_directory()
{
    local place=$root/unpack
    has_memory && mounts_arrive || return 0
    mkdir -p "$place"
    # shellcheck disable=SC2016
    command=(unshare --mount --propagation slave -- sh -c '
        if mount -n -t tmpfs -o "size=$3m,mode=0700,noexec,nosuid,nodev" tvfilemon "$1"; then
            export TMPDIR="$1"
        fi
        exec "$2"' sh "$place" "${command[@]}" "$unpack_megabytes")
}

run_service()
{
    local command=("$root/bin/tvfilemon") privilege=''
    if [ "$(id -u)" -eq 0 ]; then
        make_private_directories 0
        add_engine_directory
    else
        if command -v sudo >/dev/null && sudo -v; then
            make_private_directories 0 sudo --
            add_engine_directory
            command=(sudo -- "${command[@]}")
            privilege='sudo '
        else
            make_private_directories "$(id -u)"
            say "*** running without root: directories and files of other users are NOT watched or scanned," \
                "and only you see popups. ***"
        fi
    fi
    local offset
    offset=$(stat -c %s "$log" 2>/dev/null || echo 0)
    # Twice forked, so that it is nobody's child when the service has taken the place of this shell.
    (announce $$ "$offset" "$privilege" &)
    exec "${command[@]}"
}

[ $# -eq 0 ] || fail "takes no arguments; neither does the service"
check_root_place
"$source_dir/packaging/install-dependencies" run
build
provide_signatures
run_service

# Shared by the scripts beside it: missing packages, and builds that are quiet unless they fail.

# Who asks for help gets what the script begins with.
if [[ ${1:-} == -h || ${1:-} == --help ]]; then
    sed -n '2,${/^#/!q; s/^# \{0,1\}//; p}' "$0"
    exit
fi

cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

fail() {
    printf '%s\n' "$@" >&2
    exit 1
}

# need PACKAGE...: installs those that are missing, once, and says so.
need() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    command -v apt-get >/dev/null || fail "Please install these packages (Debian's names): ${missing[*]}"
    [ "$(id -u)" = 0 ] || command -v sudo >/dev/null || fail "Please install these packages, as root: ${missing[*]}"
    echo "Installing ${missing[*]}"
    quietly as_root apt-get -q update
    quietly as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y install --no-install-recommends "${missing[@]}"
}

as_root() {
    if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# quietly COMMAND...: shows what the command prints only when it fails, and then ends the script.
quietly() {
    local log
    log=$(mktemp)
    if ! "$@" >"$log" 2>&1 </dev/null; then
        cat "$log" >&2
        rm -f "$log"
        fail "" "Failed. Reproduce with: $*"
    fi
    rm -f "$log"
}

# configure FOLDER CMAKE-OPTION...: always links with the virtual platform, and takes warnings for errors. The
# sources of a target are compiled as one, as most of a source's time goes into what it includes: so no two of them give the
# same name to different things.
configure() {
    local folder=$1
    shift
    quietly cmake -S . -B "$folder" -G Ninja -DIVRA_PLATFORM=virtual -DCMAKE_COMPILE_WARNING_AS_ERROR=ON \
        -DCMAKE_UNITY_BUILD=ON -DCMAKE_UNITY_BUILD_BATCH_SIZE=0 "$@"
}

# build FOLDER TARGET CMAKE-OPTION...
build() {
    local folder=$1 target=$2
    shift 2
    configure "$folder" "$@"
    use_large_pages quietly cmake --build "$folder" --target "$target"
}

# use_large_pages COMMAND...: clang allocates hundreds of megabytes for a source, and takes a twelfth less time when these
# come in large pages, where the kernel gives some to who asks for them.
use_large_pages() {
    GLIBC_TUNABLES=${GLIBC_TUNABLES:+$GLIBC_TUNABLES:}glibc.malloc.hugetlb=1 "$@"
}

# unpack FOLDER PACKAGE...: what tests use of packages that must not be installed, as their services would start. It goes to
# FOLDER/referees/PACKAGE, once, as any user.
unpack() {
    local folder=$1/referees package fresh
    shift
    for package in "$@"; do
        [ ! -d "$folder/$package" ] || continue
        echo "Unpacking $package"
        mkdir -p "$folder"
        fresh=$(mktemp -d -p "$folder")
        if ! env -C "$fresh" apt-get -q download "$package" >/dev/null 2>&1; then # the lists are old, or there are none
            quietly as_root apt-get -q update
            quietly env -C "$fresh" apt-get -q download "$package"
        fi
        quietly dpkg -x "$fresh/$package"_*.deb "$fresh/files"
        mv -T "$fresh/files" "$folder/$package" # whole or not at all
        rm -r "$fresh"
    done
}

# use_virtual_platform FOLDER: no program started from here on reaches a real board.
use_virtual_platform() {
    export LD_LIBRARY_PATH=$PWD/$1/lib/ivra-virtual
}

# use_memory_for_files: thousands of files that tests make and drop take a disk half of their time. They go to the memory
# where there is room, unless the user said where to.
use_memory_for_files() {
    local memory=/dev/shm folder
    [ -z "${TMPDIR:-}" ] && [ "$(df --output=avail "$memory" 2>/dev/null | tail -n 1)" -gt 1000000 ] 2>/dev/null || return 0
    folder=$(mktemp -d -p "$memory" ivra-tests-XXXXXX 2>/dev/null) || return 0
    trap 'rm -rf "$TMPDIR"' EXIT
    export TMPDIR=$folder
    chmod 755 "$folder" # as /tmp lets in users that tests become
    # Programs are started there as well.
    cp "$(type -P true)" "$folder/true" && "$folder/true" 2>/dev/null || { rm -rf "$folder" && unset TMPDIR && trap - EXIT; }
}

# run_tests FOLDER CTEST-OPTION...: ends with ctest's own summary. One test more than there are cores, as always some of
# them wait.
run_tests() {
    local folder=$1 log=$1/test.log
    shift
    use_virtual_platform "$folder"
    if ctest --test-dir "$folder" --output-on-failure --no-tests=error -j "$(($(nproc) + 1))" "$@" >"$log" 2>&1 </dev/null; then
        tail -n 3 "$log"
    else
        cat "$log"
        return 1
    fi
}

build_packages=(g++ cmake ninja-build rapidjson-dev)
exporter_packages=(libmicrohttpd-dev prometheus-cpp-dev zlib1g-dev)
shells=(bash-completion fish zsh)
test_packages=("${exporter_packages[@]}" "${shells[@]}" freeipmi-tools groff-base ipmitool libgtest-dev libgmock-dev
    libbenchmark-dev jq mandoc python3-jsonschema python3-prometheus-client python3-pyipmi python3-yaml util-linux valgrind)
referees=(prometheus)
check_packages=(clang clang-format clang-tidy doxygen libclang-rt-14-dev)

# Shared by the scripts beside it; $bin is where the executable is.

# Instructions of the functions that callgrind found in the executable.
instructions() {
    callgrind_annotate --threshold=100 --auto=no --inclusive=no "$1" |
        awk -v object="[$(realpath "$bin/ivra-bsp-board")]" \
            'index($0, object) { gsub(",", "", $1); sum += $1 } END { printf "%d", sum }'
}

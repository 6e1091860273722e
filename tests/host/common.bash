# common.bash - what the tests of the installed tree share.
#
# QV_PREFIX: the installed tree; QV_WORK: a folder of this test's own; QV_LIBDIR, QV_CC, QV_CXX, QV_CMAKE, QV_BUILD.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
libdir=$QV_PREFIX/$QV_LIBDIR
cards=$QV_PREFIX/share/qvreader/cards
warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror)
unset LD_LIBRARY_PATH
export PKG_CONFIG_PATH=$libdir/pkgconfig
pkg=(pkg-config)

rm -rf "$QV_WORK"
mkdir -p "$QV_WORK"

fail() {
    echo "$*" >&2
    exit 1
}

# start_simulator CARD-OPTION...: PORT becomes its serial port; it ends with this script.
start_simulator() {
    : >"$QV_WORK/simulator" # the job below may come later to its output than we to our look
    "$QV_PREFIX/bin/qvreader-sim" --quiet "$@" </dev/null >"$QV_WORK/simulator" &
    simulator=$!
    trap 'kill "$simulator" 2>/dev/null; wait "$simulator" 2>/dev/null || true' EXIT
    local i
    for ((i = 0; i < 200; i++)); do
        PORT=$(sed -n 's/^ready //p' "$QV_WORK/simulator")
        if [[ -n $PORT ]]; then
            return
        fi
        kill -0 "$simulator" || fail "the simulator has ended"
        sleep 0.05
    done
    fail "the simulator does not get ready"
}

c11() {
    # shellcheck disable=SC2046  # pkg-config's words
    "$QV_CC" -std=c11 "${warnings[@]}" $("${pkg[@]}" --cflags qvreader) "$@"
}

libs() {
    echo "$("${pkg[@]}" --libs qvreader) -Wl,-rpath,$libdir"
}

# Shared by play and check: installing what is missing, and building. Sourced at the repository's
# root.

# Packages for building the game, for running it without a display, and for the checks.
BUILD_PACKAGES="g++ cmake ninja-build pkg-config libglfw3-dev libglew-dev portaudio19-dev libcli11-dev zlib1g-dev libgl1-mesa-dri"
DISPLAY_PACKAGES="xvfb"
CHECK_PACKAGES="git clang clang-format libclang-rt-14-dev libgtest-dev libfaketime python3 xdotool x11-apps weston"
PEER_PACKAGES="libpng-dev libgif-dev libtiff-dev libgdk-pixbuf-2.0-dev libsndfile1-dev libmad0-dev libmp3lame-dev"
TIDY_PACKAGES="clang-tidy"
PORTABLE_PACKAGES="qemu-user-static g++-aarch64-linux-gnu g++-i686-linux-gnu g++-s390x-linux-gnu g++-mingw-w64-x86-64-posix libgtest-dev"
# For bench/run: the peers, what makes the files, and where their pictures come from.
BENCH_PACKAGES="libbenchmark-dev libavcodec-dev libavformat-dev libswscale-dev libdeflate-dev libgif-dev libjpeg-dev libmikmod-dev libmpg123-dev libopenmpt-dev libpng-dev libsndfile1-dev libstb-dev libtiff-dev libxmp-dev ffmpeg gifsicle imagemagick libjpeg-turbo-progs libtiff-tools netpbm python3 mate-backgrounds debian-handbook"

say() {
    printf '%s: %s\n' "$0" "$*" >&2
}

# The packages of the list that dpkg reports as not installed.
missing_packages() {
    local package
    for package in "$@"; do
        dpkg-query -W -f '${db:Status-Status}\n' "$package" 2>/dev/null | grep -qx installed ||
            printf '%s\n' "$package"
    done
}

# Installs missing packages; calls apt only if there are any. On systems other than Debian and its
# relatives it names them and continues, since they may be present under other names.
install_packages() {
    local missing root=""
    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        say "no apt here; needed are (Debian's names): $*"
        return 0
    fi
    missing=$(missing_packages "$@")
    [ -n "$missing" ] || return 0
    if [ "$(id -u)" -ne 0 ]; then
        if ! command -v sudo >/dev/null; then
            say "as root, please install:" $missing
            return 0
        fi
        root=sudo
    fi
    say "installing:" $missing
    {
        $root apt-get update -q &&
            $root env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends $missing
    } >&2
}

# build FOLDER[:TARGET] OPTION...: configures and builds there, with output on standard error.
build() {
    local folder=${1%%:*} target=all
    [ "$1" = "$folder" ] || target=${1#*:}
    shift
    cmake -G Ninja -S . -B "$folder" -DTESSARUVINEL_GAME=ON -DTESSARUVINEL_TOOLS=ON "$@" >&2 && cmake --build "$folder" --target "$target" >&2
}

# Puts GLFW's Wayland library into a folder for the game's test there: Debian can only install it in
# place of the X11 one.
fetch_wayland() {
    [ ! -e "$1/libglfw.so.3" ] || return 0
    local unpacked
    unpacked=$(mktemp -d)
    (cd "$unpacked" && apt-get download -q libglfw3-wayland && dpkg -x libglfw3-wayland_*.deb .) >&2 &&
        mkdir -p "$1" && cp -P "$unpacked"/usr/lib/*/libglfw.so* "$1" ||
        say "no libglfw3-wayland: the game is not tested on Wayland"
    rm -r "$unpacked"
}

# Starts a virtual display and sets DISPLAY until the script ends. It has a session of its own, so
# that Ctrl-C reaches only the game, and admits only clients with its cookie.
virtual_display() {
    local number
    XAUTHORITY=$(mktemp)
    export XAUTHORITY
    # One entry, for every address and display: family, address, number, name and data, each
    # preceded by its length.
    {
        printf '\377\377\0\0\0\0\0\022MIT-MAGIC-COOKIE-1\0\020'
        head -c 16 /dev/urandom
    } >"$XAUTHORITY"
    coproc XVFB { exec setsid Xvfb -displayfd 1 -screen 0 1280x1024x24 -auth "$XAUTHORITY" -noreset -nolisten tcp 2>/dev/null; }
    xvfb=$XVFB_PID
    trap 'kill "$xvfb" 2>/dev/null || true; rm -f "$XAUTHORITY"' EXIT
    read -r number <&"${XVFB[0]}" || {
        say "the virtual display did not start"
        return 1
    }
    export DISPLAY=":$number"
}

# Shell helpers shared by run-tests, the demonstration and the test emulator: packages, builds, Wine prefixes,
# displays. To be sourced by bash; sets nothing but functions and the variables below.
#
#   ensure_packages [PACKAGE...]       installs what is missing of Debian's packages and of those named; quick when
#                                      nothing is
#   ensure_build PRESET [TARGET...]    configures where needed and builds
#   ensure_prefix DIR                  makes a Wine prefix there unless there is one; safe to call side by side
#   clone_prefix TEMPLATE DIR          a private copy of a prefix, made in a fraction of a second
#   end_prefix DIR                     ends every program of that prefix and its server
#   with_display COMMAND...            runs a command under a virtual display of its own
#   run_wine PROGRAM [ARGUMENT...]     runs a Windows program in $WINEPREFIX
#   source_time                        the time of these sources, in seconds since 1970

morvane_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

morvane_packages=(
    git bash coreutils findutils procps util-linux
    cmake ninja-build g++ g++-mingw-w64-x86-64-posix g++-mingw-w64-i686-posix mingw-w64-tools
    libwine-dev wine64 wine libwine fonts-wine xvfb xauth googletest
)
# What the tests and the linter need besides.
morvane_test_packages=(libboost-context-dev patch xdotool imagemagick clang-19 clang-format-19 clang-tidy-19 tshark unzip relacy-dev)
# What ./package needs besides.
morvane_package_packages=(msitools gcab zip unzip cmark-gfm)

die() {
    echo "${0##*/}: $*" >&2
    exit 1
}

ensure_packages() {
    local wanted=("${morvane_packages[@]}" "$@") missing=() package installed
    command -v dpkg-query >/dev/null || die "needs Debian 12 or 13 (or the tools named in cmake/env.sh and no call of this)"
    installed=$(dpkg-query -W -f='${Package} ${Status}\n' "${wanted[@]}" 2>/dev/null)
    for package in "${wanted[@]}"; do
        grep -qx "$package install ok installed" <<<"$installed" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return 0

    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then
        sudo -n true 2>/dev/null || die "missing packages (${missing[*]}); run as root, or install them first"
        as_root=(sudo -n)
    fi
    echo "Installing: ${missing[*]}"
    local install=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends)
    {
        "${as_root[@]}" apt-get update -q && "${install[@]}" "${missing[@]}"
    } </dev/null || die "could not install ${missing[*]}"
}

ensure_build() {
    local preset=$1
    shift
    local tree=$morvane_root/build/$preset
    local targets=()
    [ $# -gt 0 ] && targets=(--target "$@")
    (
        cd "$morvane_root" &&
            { [ -f "$tree/build.ninja" ] || cmake --preset "$preset" --log-level=NOTICE; } &&
            cmake --build --preset "$preset" --parallel "$(nproc)" "${targets[@]}"
    )
}

# Wine talks on its error channel in every run; menus, .NET and HTML engines are of no use here.
wine_environment() {
    export WINEDEBUG=${WINEDEBUG:--all}
    export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-winemenubuilder.exe,mscoree,mshtml=}
}

ensure_prefix() {
    local prefix=$1 version
    version="$(wine_environment; wine --version), unmanaged windows, fonts"
    # Debian's wine32: a prefix made without it has no 32-bit libraries.
    [ -x /usr/lib/wine/wine ] && version+=", 32-bit programs"
    mkdir -p "$(dirname "$prefix")"
    (
        flock 9
        [ "$(cat "$prefix/.morvane-ready" 2>/dev/null)" = "$version" ] && exit 0
        rm -rf "$prefix"
        wine_environment
        export WINEPREFIX=$prefix
        # A program started before the first server has ended finds two service managers in one prefix.
        with_display wineboot -i >"$prefix.log" 2>&1 9>&- && wineserver -w || exit 1
        # A crash prints its trace and ends the program, instead of a dialog that waits for a press of OK.
        with_display wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f \
            >>"$prefix.log" 2>&1 9>&- && wineserver -w || exit 1
        # Without this Wine waits two seconds, for each window that opens or closes, for a window manager that the
        # virtual display does not have.
        wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >>"$prefix.log" 2>&1 9>&- &&
            wineserver -w || exit 1
        # Debian's Wine looks for its own fonts where they are not. Without them captions have letters for buttons
        # and dialogs another font than they ask for.
        cp /usr/share/wine/fonts/* "$prefix/drive_c/windows/Fonts/" || exit 1
        # Wine links Documents and the like to the caller's home; a test must not write there.
        find "$prefix/drive_c/users" -type l -exec sh -c 'rm "$1" && mkdir "$1"' - {} \;
        echo "$version" >"$prefix/.morvane-ready"
    ) 9>"$prefix.lock" || die "could not make a Wine prefix in $prefix (see $prefix.log)"
}

# Programs and libraries, which no program writes to, are shared by hard links; everything else is copied.
clone_prefix() {
    local template=$1 prefix=$2
    mkdir -p "$prefix" &&
        tar -C "$template" --exclude='*.dll' --exclude='*.exe' --exclude='*.drv' --exclude='*.ocx' \
            --exclude='*.cpl' --exclude='*.acm' --exclude='*.ax' --exclude='*.nls' --exclude='*.ttf' \
            --exclude='*.fon' -cf - . |
        tar -C "$prefix" -xf - &&
        cp -al --no-clobber "$template/." "$prefix/"
}

end_prefix() {
    [ -d "$1" ] || return 0
    WINEPREFIX=$1 wineserver -k 2>/dev/null
    WINEPREFIX=$1 wineserver -w 2>/dev/null
    return 0
}

# Xvfb itself picks a free display number (-displayfd), so any number of these may start at the same time.
with_display() (
    number=$(mktemp)
    Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$number" >/dev/null 2>&1 &
    xvfb=$!
    trap 'kill $xvfb 2>/dev/null; wait $xvfb 2>/dev/null; rm -f "$number"' EXIT
    trap 'exit 143' TERM INT HUP
    for _ in $(seq 200); do
        [ -s "$number" ] && break
        kill -0 $xvfb 2>/dev/null || break
        sleep 0.05 # between two looks at what the display writes
    done
    [ -s "$number" ] || die "could not start a virtual display (Xvfb)"
    export DISPLAY=:$(cat "$number")
    "$@" &
    wait $!
)

run_wine() {
    [ -n "${WINEPREFIX:-}" ] || die "run_wine: WINEPREFIX is not set"
    wine_environment
    wine "$@"
}

# The commit's; of a copy without the history, that of the list of changes, which every release touches.
source_time() {
    git -C "$morvane_root" log -1 --format=%ct 2>/dev/null || stat -c %Y "$morvane_root/CHANGELOG.md"
}

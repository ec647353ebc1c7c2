# Shared by scripts/test and scripts/demo: package installation and the build.

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

# ensure_packages PKG...: installs the Debian packages that are missing, with sudo when
# not root; calls apt-get only when something is missing.
ensure_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$pkg")
        fi
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    echo "Installing: ${missing[*]}"
    local sudo=()
    [ "$(id -u)" -ne 0 ] && sudo=(sudo)
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

BUILD_PACKAGES=(cmake ninja-build g++ qtbase5-dev googletest libgtest-dev)

# configure_and_build DIR [cmake args...]
configure_and_build() {
    local dir=$1
    shift
    cmake -S "$ROOT" -B "$dir" -G Ninja "$@" >/dev/null
    cmake --build "$dir"
}

# Sourced by scripts/test and scripts/demo (bash, set -euo pipefail in the caller).
#
# stptxrx_ensure_packages PKG...
#   Installs the Debian/Ubuntu packages among PKG that are missing, with apt-get, when this
#   process is root or can use sudo. Presence is checked cheaply (command -v for packages that
#   provide a command, dpkg-query for libraries), so a machine that has everything does no apt
#   work at all; `apt-get update` runs once, and only when something is missing. Without apt or
#   privileges it names what is missing and returns 0: the configure step then reports exactly
#   what it could not find.

# Command that proves a package is present, for packages that install one.
stptxrx_package_command() {
    case "$1" in
        cmake) echo cmake ;;
        ninja-build) echo ninja ;;
        g++) echo g++ ;;
        clang) echo clang++ ;;
        tshark) echo tshark ;;
        pkg-config) echo pkg-config ;;
        openvswitch-switch) echo ovs-vswitchd ;;
        *) echo "" ;;
    esac
}

stptxrx_have_package() {
    local pkg=$1 cmd
    cmd=$(stptxrx_package_command "$pkg")
    if [[ -n $cmd ]] && command -v "$cmd" >/dev/null 2>&1; then
        return 0
    fi
    if command -v dpkg-query >/dev/null 2>&1; then
        [[ $(dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null || true) == "install ok installed" ]]
        return
    fi
    # No dpkg: a library cannot be checked here; configure will say if it is missing.
    [[ -z $cmd ]]
}

stptxrx_ensure_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        stptxrx_have_package "$pkg" || missing+=("$pkg")
    done
    ((${#missing[@]} == 0)) && return 0

    local sudo=()
    if ((EUID != 0)); then
        if command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
            sudo=(sudo -n)
        elif command -v sudo >/dev/null 2>&1 && [[ -t 0 ]]; then
            sudo=(sudo)
        else
            echo "warning: missing packages: ${missing[*]}; not root and no sudo, not installing them" >&2
            echo "warning: install them with: apt-get install ${missing[*]}" >&2
            return 0
        fi
    fi
    if ! command -v apt-get >/dev/null 2>&1; then
        echo "warning: missing packages: ${missing[*]}; apt-get not available, install them by hand" >&2
        return 0
    fi

    echo "== installing: ${missing[*]}"
    local apt=("${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -y)
    "${apt[@]}" update
    if [[ " ${missing[*]} " == *" tshark "* ]] && command -v debconf-set-selections >/dev/null 2>&1; then
        # Answer the packet-capture question up front; no setuid dumpcap is needed here.
        echo "wireshark-common wireshark-common/install-setuid boolean false" |
            "${sudo[@]}" debconf-set-selections
    fi
    "${apt[@]}" install --no-install-recommends "${missing[@]}"
}

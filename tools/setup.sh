# Sourced by ./run, ./test and tools/fuzz.sh: install_packages GROUP... installs the Debian packages of tools/packages.txt
# that are missing, and says what to do where it cannot.

install_packages() {
    local list group package wanted=() missing=()
    list="$(dirname "${BASH_SOURCE[0]}")/packages.txt"
    while read -r group package; do
        case " $* " in *" $group "*) wanted+=("$package") ;; esac
    done < <(grep -v '^#' "$list")

    if ! command -v dpkg-query >/dev/null; then
        echo "error: this script installs Debian packages and this is no Debian system;" >&2
        echo "remedy: use Debian 12, or install what $list names by hand and run cmake --preset release" >&2
        return 1
    fi
    for package in "${wanted[@]}"; do
        case "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" in
            installed) ;;
            *) missing+=("$package") ;;
        esac
    done
    [ "${#missing[@]}" -eq 0 ] && return 0

    if [ "$(id -u)" -ne 0 ]; then
        echo "error: these packages are missing and only root can install them: ${missing[*]}" >&2
        echo "remedy: sudo apt-get install --no-install-recommends ${missing[*]}" >&2
        return 1
    fi
    echo "Installing: ${missing[*]}" >&2
    export DEBIAN_FRONTEND=noninteractive
    if ! { apt-get update -qq && apt-get install -qq -y --no-install-recommends "${missing[@]}"; } >/dev/null; then
        echo "error: apt-get could not install: ${missing[*]}" >&2
        echo "remedy: see to the network and to /etc/apt/sources.list, then try again" >&2
        return 1
    fi
}

# configure_and_build PRESET [CMAKE ARGUMENT...]: quiet where all goes well, all output where something fails.
configure_and_build() {
    local preset="$1" log
    shift
    log="$(mktemp)"
    if ! cmake --preset "$preset" "$@" >"$log" 2>&1 ||
        ! cmake --build --preset "$preset" >>"$log" 2>&1; then
        cat "$log" >&2
        rm -f "$log"
        echo "error: the build '$preset' failed; its output is above" >&2
        return 1
    fi
    rm -f "$log"
}

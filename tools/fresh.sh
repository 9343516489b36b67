#!/usr/bin/env bash
# Tries the tree as somebody does who has nothing: makes a bare Debian 12 (debootstrap's minbase, and git) in a temporary
# directory, clones the committed tree into it and runs ./run, ./test and ./test system there. The packages
# come from where this machine's apt gets them, through its proxies. Needs root, debootstrap, the right to mount, and
# about 5 GB under TMPDIR. Nothing is left behind, whichever way it ends: what is mounted is seen by its own processes
# alone, which end with it.
set -euo pipefail
release=bookworm
tree="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

refuse() {
    echo "error: $1" >&2
    echo "remedy: $2" >&2
    exit 2
}

require_rights() {
    [ "$(id -u)" -eq 0 ] || refuse "only root can make a root directory and run in it" "sudo tools/fresh.sh"
    command -v apt-get >/dev/null ||
        refuse "there is no apt, from whose configuration the mirror is taken" "run this on a Debian system"
    command -v debootstrap >/dev/null || refuse "debootstrap is missing" "apt-get install debootstrap"
    unshare --mount --pid --fork true 2>/dev/null ||
        refuse "this process may not mount, as in most containers" \
            "run this on a machine of its own, or in a container that has CAP_SYS_ADMIN"
}

# sources DIR: the lines of a sources.list for Debian 12, after apt itself has read its configuration and asked the
# servers, with its lists kept in DIR. A list of mirrors stands for its first.
sources() {
    mkdir -p "$1/partial"
    # Other servers than Debian's may fail; what is missing shows below.
    apt-get -qq -o APT::Sandbox::User=root -o Dir::State::lists="$1" update >&2 || true
    # shellcheck disable=SC2016 # the names are apt's
    apt-get -o Dir::State::lists="$1" indextargets --format '$(ORIGIN) $(CODENAME) $(COMPONENT) $(REPO_URI)' \
        'Identifier: Packages' | while read -r origin codename component uri; do
        case "$origin $codename" in
            "Debian $release" | "Debian $release-updates" | "Debian $release-security") ;;
            *) continue ;;
        esac
        case "$uri" in
            mirror+file:*)
                uri="${uri#mirror+file:}"
                uri="$(grep -Evm1 '^[[:space:]]*(#|$)' "${uri%/}" | cut -f1)"
                ;;
        esac
        echo "deb $uri $codename $component"
    done
}

# proxy SCHEME [URI]: the proxy that apt uses for it, from its configuration or else the environment.
proxy() {
    local of_apt='' detect='' variable="$1_proxy"
    eval "$(apt-config shell of_apt "Acquire::$1::Proxy" detect "Acquire::$1::Proxy-Auto-Detect")"
    if [ -z "$of_apt" ] && [ -n "$detect" ]; then
        of_apt="$("$detect" "${2:-}" | head -n 1)"
    fi
    case "$of_apt" in
        DIRECT) ;;
        '') echo "${!variable:-}" ;;
        *) echo "$of_apt" ;;
    esac
}

# in_root DIR COMMAND...: runs it as a user of the new system would, with nothing of this one's environment but proxies.
in_root() {
    local root="$1"
    shift
    chroot "$root" env -i HOME=/root TERM="${TERM:-dumb}" PATH=/usr/sbin:/usr/bin:/sbin:/bin \
        ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
        ${no_proxy:+no_proxy="$no_proxy"} "$@"
}

# make_root DIR: the bare system, with this machine's mirrors and names of hosts.
make_root() {
    local root="$1" mirror include=git
    mirror="$(awk -v release="$release" '$3 == release { print $2; exit }' "$root.sources")"
    grep -q ' https:' "$root.sources" && include=git,ca-certificates
    debootstrap --variant=minbase --include="$include" "$release" "$root" "$mirror" >"$root.log" 2>&1 ||
        { cat "$root.log" >&2; refuse "debootstrap failed; its output is above" "see to the network and to apt's sources"; }
    cp "$root.sources" "$root/etc/apt/sources.list"
    cp -L /etc/resolv.conf /etc/hosts "$root/etc"
    if [ -d "$root/etc/ssl/certs" ] && compgen -G '/usr/local/share/ca-certificates/*.crt' >/dev/null; then
        cp /usr/local/share/ca-certificates/*.crt "$root/usr/local/share/ca-certificates"
        in_root "$root" update-ca-certificates >/dev/null
    fi
    mount -t proc proc "$root/proc"
    mount --rbind /dev "$root/dev"
}

# Runs in processes and mounts of its own.
try_tree() {
    local root="$1" command
    echo "Making a bare Debian 12 in $root"
    make_root "$root"
    git -C "$tree" clone -q --no-hardlinks . "$root/corvane"
    for command in ./run ./test './test system'; do
        echo "$command on a bare Debian 12:"
        in_root "$root" sh -c "cd /corvane && $command" || { echo "error: $command failed there" >&2; exit 1; }
    done
    echo "All commands work on a bare Debian 12, commit $(git -C "$root/corvane" rev-parse --short HEAD)."
}

main() {
    require_rights
    work="$(mktemp -d)"
    trap 'clean_up' EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    sources "$work/lists" >"$work/root.sources"
    grep -q " $release " "$work/root.sources" ||
        refuse "apt gets no Debian 12 ($release) from anywhere" "name a mirror of it in /etc/apt/sources.list"
    http_proxy="$(proxy http "$(awk '{ print $2; exit }' "$work/root.sources")")"
    https_proxy="$(proxy https)"
    export http_proxy https_proxy
    [ -z "$(git -C "$tree" status --porcelain)" ] || echo "Only what is committed is tried." >&2
    # In the background, so that a signal is heard at once.
    unshare --mount --propagation private --pid --fork --kill-child bash "$0" --inside "$work/root" &
    child=$!
    wait "$child"
}

clean_up() {
    trap - INT TERM HUP
    if [ -n "${child:-}" ] && kill -KILL "$child" 2>/dev/null; then
        wait "$child" 2>/dev/null || true
    fi
    # Processes that are being ended may still write.
    local try
    for try in 1 2 3 4 5; do
        rm -rf --one-file-system "$work" 2>/dev/null && return
        sleep "$try"
    done
    echo "error: cannot remove $work" >&2
}

if [ "${1:-}" = --inside ]; then
    try_tree "$2"
else
    [ "$#" -eq 0 ] || refuse "unknown argument '$1'" "tools/fresh.sh takes none"
    main
fi

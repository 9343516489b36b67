# Sourced by ./test, behind tools/setup.sh: install_system_packages installs what the tests with real peers need, so that
# nothing of it starts, now or when the machine does, and refuses where that would remove another mail server.

# other_mail_server: the name of one that is installed, if any.
other_mail_server() {
    local name status provides
    while IFS='|' read -r name status provides; do
        case "$name $status, $provides," in
            postfix\ * | postfix-*) ;;
            *" installed,"*" mail-transport-agent"[", "]*)
                echo "$name"
                return
                ;;
        esac
    done < <(dpkg-query -W -f='${Package}|${db:Status-Status}|${Provides}\n')
    if [ -e /usr/sbin/sendmail ] && [ "$(dpkg-query -W -f='${db:Status-Status}' postfix 2>/dev/null)" != installed ]; then
        echo /usr/sbin/sendmail
    fi
}

# Debian asks this program before it starts a service; 101 forbids it.
policy=/usr/sbin/policy-rc.d

forbid_services() {
    kept_policy="$(mktemp -d)"
    if [ -e "$policy" ]; then
        mv "$policy" "$kept_policy/"
    fi
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"
}

allow_services() {
    rm -f "$policy"
    if [ -e "$kept_policy/policy-rc.d" ]; then
        mv "$kept_policy/policy-rc.d" "$policy"
    fi
    rmdir "$kept_policy"
}

install_system_packages() {
    local other service new=()
    other="$(other_mail_server)"
    if [ -n "$other" ]; then
        echo "error: $other is this machine's mail server, and Postfix would take its place" >&2
        echo "remedy: run ./test system on another machine, or in a container" >&2
        return 1
    fi
    for service in postfix haproxy prometheus; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$service" 2>/dev/null)" = installed ] || new+=("$service")
    done
    if [ "${#new[@]}" -eq 0 ] || [ "$(id -u)" -ne 0 ]; then
        install_packages system
        return
    fi
    # In a shell of its own, whose end undoes what keeps the services quiet however it comes.
    (
        forbid_services
        trap allow_services EXIT
        trap 'exit 130' INT
        trap 'exit 143' TERM HUP
        echo 'postfix postfix/main_mailer_type select No configuration' | debconf-set-selections
        install_packages system
        for service in "${new[@]}"; do
            update-rc.d "$service" disable >/dev/null 2>&1 ||
                echo "$service may start with this machine: update-rc.d could not disable it" >&2
        done
    )
}

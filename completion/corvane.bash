# Made from the options that corvane declares; CompletionTest says how.
_corvane() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local path= word options= subcommands= directories= files= others=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case "${path:+$path }$word" in
        "scan" | "explain" | "text" | "lint" | "corpus" | "corpus run" | "corpus report" | "corpus diff" | "corpus tune" | "corpus export" | "corpus merge" | "encrypt" | "decrypt" | "ctl" | "ctl status" | "ctl metrics" | "ctl reload" | "ctl restart" | "ctl drain" | "ctl resume" | "ctl profile" | "ctl log") path=${path:+$path }$word ;;
        esac
    done
    case $path in
    "")
        options='-h --help --version'
        subcommands='scan explain text lint corpus encrypt decrypt ctl'
        directories='  '
        files='  '
        others='  '
        ;;
    "scan")
        options='-h --help --sets --strict --percent --threshold --stop --budget --sender --include -j --json --verbose --rules --set --via'
        subcommands=''
        directories=' --sets --rules '
        files=' --via '
        others=' --percent --threshold --budget --sender --include -j --set '
        ;;
    "explain")
        options='-h --help --sets --rule --percent --threshold --stop --budget --sender --include --json --rules --set'
        subcommands=''
        directories=' --sets --rules '
        files='  '
        others=' --rule --percent --threshold --budget --sender --include --set '
        ;;
    "text")
        options='-h --help --sender --json'
        subcommands=''
        directories='  '
        files='  '
        others=' --sender '
        ;;
    "lint")
        options='-h --help --stdin --strict --each --json --sarif'
        subcommands=''
        directories='  '
        files='  '
        others=' --stdin '
        ;;
    "corpus")
        options='-h --help'
        subcommands='run report diff tune export merge'
        directories='  '
        files='  '
        others='  '
        ;;
    "corpus run")
        options='-h --help --sets --class -o --output --include --shard -j --percent --threshold --stop --rules --set'
        subcommands=''
        directories=' --sets --rules '
        files=' -o --output '
        others=' --class --include --shard -j --percent --threshold --set '
        ;;
    "corpus report")
        options='-h --help --over --top --json --html'
        subcommands=''
        directories='  '
        files=' --html '
        others=' --over --top '
        ;;
    "corpus diff")
        options='-h --help --over --top --json --html --max-new-fp --max-missed'
        subcommands=''
        directories='  '
        files=' --html '
        others=' --over --top --max-new-fp --max-missed '
        ;;
    "corpus tune")
        options='-h --help -o --output --over --most --bound --signs --fp-weight --restraint --folds --seed --json'
        subcommands=''
        directories='  '
        files=' -o --output '
        others=' --over --most --bound --fp-weight --restraint --folds --seed '
        ;;
    "corpus export")
        options='-h --help --times'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "corpus merge")
        options='-h --help -o --output'
        subcommands=''
        directories='  '
        files=' -o --output '
        others='  '
        ;;
    "encrypt")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "decrypt")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "ctl")
        options='-h --help --socket'
        subcommands='status metrics reload restart drain resume profile log'
        directories='  '
        files=' --socket '
        others='  '
        ;;
    "ctl status")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "ctl metrics")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "ctl reload")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "ctl restart")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "ctl drain")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "ctl resume")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    "ctl profile")
        options='-h --help --every --sort --top --json'
        subcommands=''
        directories='  '
        files='  '
        others=' --every --sort --top '
        ;;
    "ctl log")
        options='-h --help'
        subcommands=''
        directories='  '
        files='  '
        others='  '
        ;;
    esac
    COMPREPLY=()
    if [[ $directories == *" $prev "* ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
    elif [[ $others == *" $prev "* ]]; then
        return
    elif [[ $cur == -* && $files != *" $prev "* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    elif [[ -n $subcommands && $files != *" $prev "* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$subcommands" -- "$cur")
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}
complete -F _corvane corvane

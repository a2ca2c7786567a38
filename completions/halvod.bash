# bash completion for halvod                               -*- shell-script -*-
#
# halvod's long options, and their values where they are files, folders,
# groups or a choice.  Addresses and numbers are the administrator's to type.

# Files, or folders only with -d, through bash-completion when it is loaded.
_halvod_paths()
{
    if declare -F _filedir >/dev/null; then
        _filedir "$@"
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen "${1:--f}" -- "$cur")
    fi
}

_halvod()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()

    case $prev in
    --config | --devices | --connections | --rules | --tls-cert | --tls-key | --tls-client-ca)
        _halvod_paths
        return
        ;;
    --sysfs)
        _halvod_paths -d
        return
        ;;
    --default)
        mapfile -t COMPREPLY < <(compgen -W "share block" -- "$cur")
        return
        ;;
    --admin-group)
        mapfile -t COMPREPLY < <(compgen -g -- "$cur")
        return
        ;;
    --listen | --share-listen | --share-tls-listen | --rescan-ms | --max-clients | --max-clients-per-user | \
        --reserved-clients | --memory-budget-mib | --max-unread-mib | --max-parse-mib | \
        --first-request-seconds | --idle-seconds | --payload-timeout-seconds | \
        --max-transaction-mib | --max-transactions-per-user | --share-max-per-host | \
        --share-max-hosts | --share-timeout-ms | --share-dead-peer-seconds)
        return
        ;;
    esac

    mapfile -t COMPREPLY < <(compgen -W "--config --listen --allow-remote --sysfs --devices
        --connections --rules --rules-in-memory --default --rescan-ms --admin-group
        --max-clients --max-clients-per-user --reserved-clients --memory-budget-mib
        --max-unread-mib --max-parse-mib --first-request-seconds --idle-seconds
        --payload-timeout-seconds --max-transaction-mib --max-transactions-per-user
        --share-listen --share-max-per-host --share-max-hosts --share-timeout-ms
        --share-dead-peer-seconds --share-tls-listen --tls-cert --tls-key --tls-client-ca
        --help --version" -- "$cur")
} &&
    complete -F _halvod halvod

# ex: filetype=sh

# bash completion for halvo-attach                         -*- shell-script -*-
#
# The commands and their options (files after --cert, --key, --ca); ports to
# detach from the vhci-hcd status.
# Servers and bus ids are the user's to type.

_halvo_attach()
{
    local cur=${COMP_WORDS[COMP_CWORD]}
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "list attach detach status --help --version" -- "$cur")
        return
    fi
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --cert | --key | --ca)
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        return
        ;;
    esac
    case ${COMP_WORDS[1]} in
    list)
        [[ $cur == -* ]] && mapfile -t COMPREPLY < <(compgen -W "--tls --cert --key --ca" -- "$cur")
        ;;
    attach)
        [[ $cur == -* ]] &&
            mapfile -t COMPREPLY < <(compgen -W "--persist --tls --cert --key --ca" -- "$cur")
        ;;
    detach)
        if ((COMP_CWORD == 2)); then
            local ports
            ports=$(awk '$3 != "004" && $1 ~ /^(hs|ss)$/ { print $2 + 0 }' \
                /sys/devices/platform/vhci_hcd.0/status* 2>/dev/null)
            mapfile -t COMPREPLY < <(compgen -W "--all $ports" -- "$cur")
        fi
        ;;
    esac
}
complete -F _halvo_attach halvo-attach

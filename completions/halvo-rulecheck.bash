# bash completion for halvo-rulecheck                      -*- shell-script -*-
#
# Options, then rule files; after "--" only files.

_halvo_rulecheck()
{
    local cur=${COMP_WORDS[COMP_CWORD]} i
    COMPREPLY=()

    for ((i = 1; i < COMP_CWORD; i++)); do
        [[ ${COMP_WORDS[i]} == -- ]] && break
    done
    if ((i == COMP_CWORD)) && [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--strict --help --version" -- "$cur")
    elif declare -F _filedir >/dev/null; then
        _filedir
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
} &&
    complete -F _halvo_rulecheck halvo-rulecheck

# ex: filetype=sh

# bash completion for halvoctl                             -*- shell-script -*-
#
# Device ids, hosts and process ids are asked from the running daemon through
# halvoctl itself.  Without a daemon halvoctl complains on standard error and
# exits non-zero; the completion then quietly offers nothing.

# Prints halvoctl's own output for `$@`, or nothing.  A daemon that accepts
# the connection but never answers must not hang the shell, so the call is
# bounded when timeout(1) is at hand.
_halvoctl_query()
{
    local prog=$1
    shift
    if type -P timeout >/dev/null; then
        timeout 2 "$prog" "$@" 2>/dev/null </dev/null
    else
        "$prog" "$@" 2>/dev/null </dev/null
    fi
}

# The device ids: the first column of the rows after the header of
# `halvoctl dev list`.
_halvoctl_device_ids()
{
    local id rest header=1
    while IFS=$'\t' read -r id rest; do
        if ((header)); then
            header=0
        elif [[ $id =~ ^[0-9]+$ ]]; then
            printf '%s\n' "$id"
        fi
    done < <(_halvoctl_query "$1" dev list)
}

# Column `$2` (2 or 3) of the `$3` rows (net or rdesk) of `halvoctl conn
# list`: the host or application, and the port or PID.  Tabs are whitespace
# to `read`, so the padding between the columns vanishes.
_halvoctl_connection_column()
{
    local type name number
    while IFS=$'\t' read -r type name number _; do
        [[ $type == "$3" ]] || continue
        if (($2 == 2)); then
            printf '%s\n' "$name"
        else
            printf '%s\n' "$number"
        fi
    done < <(_halvoctl_query "$1" conn list)
}

_halvoctl_files()
{
    if declare -F _filedir >/dev/null; then
        _filedir
    else
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    fi
}

_halvoctl_hosts()
{
    if declare -F _known_hosts_real >/dev/null; then
        _known_hosts_real -- "$cur"
    else
        mapfile -t COMPREPLY < <(compgen -A hostname -- "$cur")
    fi
}

_halvoctl_words()
{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$cur")
}

# Options are read only before the operand, as halvoctl's getopt does: sets
# `operand_at` to the index of the first word after the sub-command that is
# not an option (or of the current word if none is), and `prev_option` to the
# option whose value the current word is, if any.  `$1` lists the options that
# take a value.
_halvoctl_scan_options()
{
    local with_value=$1 i j word letter
    operand_at=$COMP_CWORD
    prev_option=
    for ((i = 3; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ $word == -- ]]; then
            operand_at=$((i + 1))
            return
        elif [[ $word != -?* ]]; then
            operand_at=$i
            return
        fi
        # Letters may be bundled (-rf); a value-taking letter takes the rest
        # of the word as its value, or the next word when it is the last.
        for ((j = 1; j < ${#word}; j++)); do
            letter=${word:j:1}
            [[ -n $with_value && $with_value == *"$letter"* ]] || continue
            if ((j == ${#word} - 1)); then
                if ((i + 1 == COMP_CWORD)); then
                    prev_option=-$letter
                    return
                fi
                ((i++))
            fi
            break
        done
    done
}

_halvoctl()
{
    local cur=${COMP_WORDS[COMP_CWORD]}
    local prog=${COMP_WORDS[0]}
    local command=${COMP_WORDS[1]-} sub=${COMP_WORDS[2]-}
    local operand_at prev_option
    COMPREPLY=()

    if ((COMP_CWORD == 1)); then
        _halvoctl_words "dev conn rule monitor -h --help"
        return
    fi

    case $command in
    dev)
        if ((COMP_CWORD == 2)); then
            _halvoctl_words "list unplug share block"
        elif ((COMP_CWORD == 3)) && [[ $sub =~ ^(unplug|share|block)$ ]]; then
            _halvoctl_words "$(_halvoctl_device_ids "$prog")"
        fi
        ;;
    conn)
        if ((COMP_CWORD == 2)); then
            _halvoctl_words "list drop kill"
            return
        fi
        case $sub in
        drop)
            _halvoctl_scan_options p
            if [[ $prev_option == -p ]]; then
                _halvoctl_words "$(_halvoctl_connection_column "$prog" 3 net)"
            elif ((operand_at == COMP_CWORD)); then
                if [[ $cur == -* ]]; then
                    _halvoctl_words "-p"
                else
                    _halvoctl_words "$(_halvoctl_connection_column "$prog" 2 net)"
                fi
            fi
            ;;
        kill)
            ((COMP_CWORD == 3)) &&
                _halvoctl_words "$(_halvoctl_connection_column "$prog" 3 rdesk)"
            ;;
        esac
        ;;
    rule)
        if ((COMP_CWORD == 2)); then
            _halvoctl_words "list load edit test"
            return
        fi
        case $sub in
        list)
            _halvoctl_scan_options ""
            if ((operand_at == COMP_CWORD)) && [[ " ${COMP_WORDS[*]:3:COMP_CWORD-3} " != *" -N "* ]]; then
                _halvoctl_words "-N"
            fi
            ;;
        load)
            ((COMP_CWORD == 3)) && _halvoctl_files
            ;;
        test)
            _halvoctl_scan_options fh
            case $prev_option in
            -f) _halvoctl_files ;;
            -h) _halvoctl_hosts ;;
            *)
                if ((operand_at == COMP_CWORD)); then
                    if [[ $cur == -* ]]; then
                        _halvoctl_words "-f -r -h"
                    else
                        _halvoctl_words "$(_halvoctl_device_ids "$prog")"
                    fi
                fi
                ;;
            esac
            ;;
        esac
        ;;
    esac
} &&
    complete -F _halvoctl halvoctl

# ex: filetype=sh

# SPDX-FileCopyrightText: 2026 The asd authors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of asdctl. Item names come from the running service.

_asdctl_items() {
    "${COMP_WORDS[0]}" "${_asdctl_common[@]}" --json list 2>/dev/null | sed -nE 's/^    "name": "(.*)",?$/\1/p'
}

_asdctl() {
    local cur prev words cword
    _init_completion || return
    local options='--run-dir --slot --bus --json --no-colour --help --version'
    local commands='status list show watch get read set clear errcode ipmi ekey baycfg board chip'
    local -a _asdctl_common=()
    local command='' sub='' i
    for ((i = 1; i < cword; ++i)); do
        case ${words[i]} in
            --run-dir | --slot | --bus)
                _asdctl_common+=("${words[i]}" "${words[i + 1]}")
                ((++i))
                ;;
            -*) ;;
            *) if [ -z "$command" ]; then command=${words[i]}; elif [ -z "$sub" ]; then sub=${words[i]}; fi ;;
        esac
    done
    case $prev in
        --bus) mapfile -t COMPREPLY < <(compgen -W 'private session system' -- "$cur"); return ;;
        --slot) mapfile -t COMPREPLY < <(compgen -W '0 1 2 3' -- "$cur"); return ;;
        --run-dir | --state-dir) _filedir -d; return ;;
        --file | --config | -o | --output) _filedir; return ;;
    esac
    case $command:$sub in
        :) options+=" $commands" ;;
        list:) options+=' --not-ready --unhealthy' ;;
        watch:) options+=' --for --count' ;;
        get:* | read:*) options+=' --raw --hex --text --output' ;;&
        set:*) options+=' --text --hex --file --equip --memory --truncate' ;;&
        show: | clear: | get: | read: | set:) options+=" $(_asdctl_items)" ;;
        ekey:) options+=' get put' ;;
        ekey:get | ekey:put) options+=' --chip frameboard leftear power0 power1'; _filedir ;;
        baycfg:) options+=' get put erase length' ;;
        baycfg:get | baycfg:put) options+=' --whole'; _filedir ;;
        board:) options+=' show set' ;;
        board:set) options+=' equipment-mode cpld-upgrading power-standby cpld-bit fault' ;;
        chip:) options+=' inspect dump' ;;
        chip:inspect) options+=' --config --part --item --state-dir'; _filedir ;;
        chip:dump) options+=' --config --part --offset --length'; _filedir ;;
    esac
    local -a found
    mapfile -t found < <(compgen -W "$options" -- "$cur")
    COMPREPLY+=("${found[@]}")
}
complete -F _asdctl asdctl

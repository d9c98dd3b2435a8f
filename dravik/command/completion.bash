# SPDX-License-Identifier: Apache-2.0
# What bash completes after `dravik`: its commands, their options as its own help tells them, and files.

_dravik() {
    local word=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]}
    COMPREPLY=()
    if [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W "info copy statistics draw compare --help --help-all --version" -- "$word")
    elif [[ $word == -* ]]; then
        local options
        options=$(dravik "$command" --help 2>/dev/null | grep --only-matching -e '--[a-z-]*' | sort --unique)
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$word")
    fi
}
complete -o default -F _dravik dravik

# bash completion for linxpeer: its options, the values of --speed, and scenario and capture
# files. The test of the package checks the options against what linxpeer --help prints.

_linxpeer() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    COMPREPLY=()
    case $prev in
        -x | --speed)
            mapfile -t COMPREPLY < <(compgen -W "max 1 2 10" -- "$cur")
            return
            ;;
        -n | --name | -p | --process | -t | --timeout)
            return
            ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "-n --name -p --process -v --vehicle -t --timeout
            -c --capture -r --replay -x --speed -h --help --version" -- "$cur")
        return
    fi
    # A scenario (or - for standard input), a capture to write or to replay: files.
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
}

complete -F _linxpeer linxpeer

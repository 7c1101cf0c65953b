#!/bin/sh
# The text help2man reads as a program's --help and --version, for its manual page.
#   help-text.sh tool    VERSION PROGRAM... --help|--version   the program's own answers
#   help-text.sh verbs   VERSION PROGRAM... --help|--version   also the help of every verb
#   help-text.sh process VERSION PROGRAM... --help|--version   MetadataMgr
# PROGRAM... is the program, after the emulator that runs it in a cross build. help2man gives
# the option last. MetadataMgr's command line answers --help with its usage on standard error,
# after its path, and exit status 1, and knows no --version: its usage is taken from there
# and its version is the project's.
set -eu
mode=$1
version=$2
shift 2
program=""
while [ $# -gt 1 ]; do
    program="$program '$1'"
    shift
done
option=$1

case "$mode:$option" in
    process:--version)
        echo "MetadataMgr $version"
        ;;
    process:--help)
        # "Usage:", then the program's path and its options; then the log's own line.
        eval "$program --help" 2>&1 | sed -n -e '/^Usage:$/{N;s|^Usage:\n[^ ]*/|Usage: |;p;d}' \
            -e '/^[^ ]*\[[0-9]*\]: /d' -e 'p' || true
        ;;
    verbs:--help)
        eval "$program --help"
        # Each verb of the list ("  VERB ..." under "Verbs:") with its own help.
        for verb in $(eval "$program --help" |
            sed -n '/^Verbs:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'); do
            printf '\n*%s*\n' "mdstore $verb"
            # A page breaks lines at blanks only: the JSON of an example gets one after each
            # comma between members.
            eval "$program $verb --help" | sed -e 's/^Usage: /  /' -e '/^ *{"/s/,"/, "/g'
        done
        ;;
    tool:--help)
        # A second form of the command, aligned under the first, is help2man's "or:" line;
        # lines of a list (two blanks in) are paragraphs of their own, not one run-on line.
        eval "$program --help" | sed '/^Usage:/{n;s/^ \{6,\}\([a-z]\)/   or: \1/;}' |
            awk '/^  [^ ]/ && list { print "" } { list = /^  [^ ]/; print }'
        ;;
    *:--version)
        # The first line, "PROGRAM VERSION"; what follows tells of this build's features, which
        # the verbs' help names as well, and would land at the end of the last section.
        eval "$program --version" | sed -n 1p
        ;;
    *)
        eval "$program $option"
        ;;
esac

#!/usr/bin/env bash
# manpage.sh OLE OUTPUT: writes the manual page of the ole command to OUTPUT. help2man turns the tool's
# own --help and --version into the page; the help of every command and subcommand, found by walking
# the "Subcommands:" lists, is added as a COMMANDS section, so the page never falls behind the tool.
set -euo pipefail
ole=$1 output=$2
include=$output.h2m

# subcommands ARGS...: the names listed under "Subcommands:" in `ole ARGS... --help`.
subcommands() {
    "$ole" "$@" --help | awk '/^Subcommands:/ { on = 1; next } on && /^  [a-z]/ { print $1; next } on { exit }'
}

# Roff text of one command's help, kept as it is printed: no filling, backslashes, leading dots and
# leading brackets (help2man's section marks) escaped.
describe() {
    printf '.SS "ole %s"\n.nf\n' "$*"
    "$ole" "$@" --help | sed -e 's/\\/\\e/g' -e "s/^\([.'[]\)/\\\\\&\1/"
    printf '.fi\n'
    local sub
    for sub in $(subcommands "$@"); do
        describe "$@" "$sub"
    done
}

{
    printf '[COMMANDS]\n'
    for command in $(subcommands); do
        describe "$command"
    done
    printf '[ENVIRONMENT]\n.TP\n.B QUORVANE_HOME\n'
    printf 'When set, the cookie counter, the machine number and the preferences are kept below it instead\n'
    printf 'of the user'"'"'s Quorvane directories.\n'
} > "$include"

help2man --no-info --section 1 --name "convert and check timecode, footage, frame rates, cookies and configb files" \
    --include "$include" --output "$output" "$ole"

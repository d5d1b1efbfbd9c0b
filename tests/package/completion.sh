#!/usr/bin/env bash
# quotesctl's bash completion offers the commands, their verbs and their options (every command
# of the command table, which makes the completion).
set -uo pipefail
source_dir=$1
# bash-completion's helpers, reduced to what the completion uses.
_init_completion() {
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD - 1]}
    words=("${COMP_WORDS[@]}")
    cword=$COMP_CWORD
}
_filedir() { COMPREPLY=(FILES); }
complete() { :; }
source "$source_dir/packaging/quotesctl.bash-completion"

failures=0
expect() {
    local want=$1
    shift
    COMP_WORDS=("$@")
    COMP_CWORD=$(($# - 1))
    COMPREPLY=()
    _quotesctl
    if [ "${COMPREPLY[*]}" != "$want" ]; then
        echo "completing '$*': got '${COMPREPLY[*]}', want '$want'" >&2
        failures=$((failures + 1))
    fi
}
expect "sources brokers platforms token subsystems users export import integrity rekey backup restore accounts audit ping health" \
    quotesctl ""
expect "sources subsystems" quotesctl --server host:7461 s
expect "list add modify delete probe history restore" quotesctl --data /srv/quotes sources ""
expect "--trade-type --subsystem --json" quotesctl sources list --
expect "list password enable disable rights unlock" quotesctl accounts ""
expect "--password-file" quotesctl accounts password admin --p
expect "FILES" quotesctl --ca ""
expect "" quotesctl --login ""
expect "--data --db --secrets-key --server --ca --login --login-password-file --help --version" quotesctl --
expect "FILES" quotesctl --secrets-key ""
expect "--since --until --login --action --limit --before --json prune" quotesctl audit ""
expect "--before" quotesctl audit --json prune --
expect "--trade-type --json" quotesctl brokers list --trade-type 1 --
expect "FILES" quotesctl import --dry-run ""
expect "--dry-run --backup --key --only" quotesctl import --
expect "--output" quotesctl backup --
expect "--data --key" quotesctl restore copy.db --
expect "FILES" quotesctl restore copy.db --data ""
[ $failures -eq 0 ] && echo "quotesctl completion: every case completed as expected"
exit $((failures > 0))

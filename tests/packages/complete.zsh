# Prints what zsh offers behind the words of a command line, the last of which is the one to complete: types them into
# an interactive shell whose compadd writes down what it is given.
zmodload zsh/zpty
hits=$(mktemp)
setup=$(mktemp)
cat >$setup <<EOF
PROMPT=
autoload -U compinit && compinit -u -D
compadd() {
    if [[ \${@[1,(i)(-|--)]} != *-(O|A|D)\ * ]]; then
        local -a found
        builtin compadd -A found "\$@"
        print -rl -- \$found >>$hits
    fi
    builtin compadd "\$@"
}
finish() { print end >$hits.end }
comppostfuncs=(finish)
print ready >$hits.ready
EOF
await() { repeat 200 { [[ ! -e $1 ]] || return 0; zpty -r -t shell >/dev/null; sleep 0.05 }; return 1 }
zpty -b shell zsh -f -i
zpty -w shell "source $setup"
await $hits.ready || { print -u2 "zsh does not start"; exit 1 }
zpty -w -n shell "$*"$'\t'
await $hits.end || { print -u2 "zsh completes nothing"; exit 1 }
zpty -d shell
cat $hits

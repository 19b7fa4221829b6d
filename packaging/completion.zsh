#compdef rimg
# Completion of rimg for zsh.

# The channels of the raw images on the command line; for a list, behind its last comma.
_rimg_channels() {
    local file expl
    local -a names
    for file in ${(Q)words}; do
        [[ $file == *.rimg && -f $file ]] || continue
        names+=(${(f)"$(timeout 2 rimg info --json -- $file 2>/dev/null |
            grep -o '"flags":[0-9-]*,"name":"[^"\\]*"' | cut -d '"' -f 6)"})
    done
    [[ $@[-1] != list ]] || compset -P '*,'
    _wanted channels expl channel compadd -a names
}

_rimg() {
    local curcontext=$curcontext state line
    local -A opt_args
    local -a verbs=(
@VERBS@
    )
    _arguments -C \
@OPTIONS@
        '1:verb:->verb' '*::argument:->arguments' && return
    if [[ $state == verb ]]; then
        _describe verb verbs
        return
    fi
    case $words[1] in
@CASES@
    esac
}

_rimg "$@"

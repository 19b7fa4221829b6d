# Completion of rimg for bash, which bash-completion loads.

# Where a word of a comma-separated list ends, the next begins; earlier ones stay. Names may come from any file: they
# are never expanded as shell words.
_rimg_offer()
{
    local name last=${cur##*,}
    local before=${cur%"$last"}
    [[ $1 == list ]] || { last=$cur before=; }
    shift
    for name; do
        [[ $name != "$last"* ]] || COMPREPLY+=("$before$(printf %q "$name")")
    done
    __ltrim_colon_completions "$cur"
}

# The channels of the raw images on the command line.
_rimg_channels()
{
    local word names=()
    for word in "${words[@]:2}"; do
        word=${word//\\/}
        [[ $word == *.rimg && -f $word ]] || continue
        mapfile -t -O "${#names[@]}" names < <(timeout 2 rimg info --json -- "$word" 2>/dev/null |
            grep -o '"flags":[0-9-]*,"name":"[^"\\]*"' | cut -d '"' -f 6)
    done
    _rimg_offer "$1" "${names[@]}"
}

_rimg()
{
    local cur prev words cword split verb= at
    _init_completion -s -n : || return
    for ((at = 1; at < cword; at++)); do
        if [[ ${words[at]} != -* ]]; then
            verb=${words[at]}
            break
        fi
    done
    case "$verb $prev" in
@VALUES@
    esac
    $split && return
    case $verb in
@VERBS@
    esac
} &&
    complete -F _rimg rimg

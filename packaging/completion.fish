# Completion of rimg for fish.

# Succeeds when the verb on the command line is VERB, "" for none yet.
function __rimg_verb_is -a verb
    set -l found (commandline -opc)[2..] | string match -v -- '-*'
    test "$found[1]" = "$verb"
end

# Folders, and files with these endings.
function __rimg_files
    __fish_complete_path (commandline -ct | string replace -r -- '^--[^=]*=' '') |
        string match -r -- '^[^\t]*(?:/|\.(?:'(string join '|' $argv)'))(?:\t.*)?$'
end

# These words; behind the last comma when the value is a list.
function __rimg_list
    set -l before (commandline -ct | string replace -r -- '^--[^=]*=' '' | string replace -r -- '[^,]*$' '')
    for word in $argv
        echo $before$word
    end
end

# The channels of the raw images on the command line.
function __rimg_channels
    for file in (commandline -o)[2..]
        string match -q -- '*.rimg' $file; and test -f $file; or continue
        timeout 2 rimg info --json -- $file 2>/dev/null |
            string match -ra -g -- '"flags":[0-9-]*,"name":"([^"\\\\]*)"'
    end
end

complete -c rimg -f
@COMMANDS@

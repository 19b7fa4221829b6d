# Prints what fish offers behind the words of a command line, the last of which is the one to complete.
complete -C "$argv" | string replace -r '\t.*' ''

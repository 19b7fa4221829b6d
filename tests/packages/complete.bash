# Prints what bash offers behind the words of a command line, the last of which is the one to complete.
source /usr/share/bash-completion/bash_completion
_completion_loader rimg
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
COMP_LINE=$*
COMP_POINT=${#COMP_LINE}
# Stands for a line editor, which there is none of here.
compopt() { :; }
_rimg rimg "${!#}" "${@: -2:1}" || exit 1
printf '%s\n' "${COMPREPLY[@]}"

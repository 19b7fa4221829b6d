"""The shell scripts that rimg-farm writes beside its output, for an engine to run."""
import os
import re
import shlex

PIECE = r"""#!/bin/sh
# Renders a piece of a frame, or what is left of it: piece.sh FRAME PIECE X0,Y0,X1,Y1. Written by rimg-farm; any engine
# may run it, on any machine, as often as it likes. Ends with 75 when it is to be run again.
set -u
trap 'exit 75' TERM
farm=@FARM@ rimg=@RIMG@
cd @FOLDER@ || exit 1
frame=$1 piece=$2 box=$3
name=$(printf %04d "$frame")
pieces=$farm/pieces/$name
[ ! -e "$farm/frames/$name.rimg" ] || exit 0
mkdir -p "$pieces" && exec >>"$farm/log/$name.$piece.log" 2>&1 || exit 1
@BEGIN@
exec @COMMAND@
"""

# The lock is that of the renderer, too, which inherits it, and goes when the last of both ends.
WITH_LOCK = r"""out=$pieces/$piece.rimg
exec 9>>"$pieces/$piece.lock"
flock -n 9 || { echo "piece.sh: another process renders $out"; exit 75; }
echo "$(date +%s) $piece $(hostname)" >>"$pieces/attempts"
if [ -s "$out" ]; then
    "$rimg" verify "$out"
    case $? in
    0) exit 0 ;;
    # What is sound of a damaged piece is kept; the renderer goes on from there.
    4)
        "$rimg" recover "$out" -o "$out.sound" || [ $? -eq 3 ] || exit 4
        mv -f "$out.sound" "$out" || exit 1
        ;;
    # After a power cut: less than a file header, or zeros, which are kept for whoever wants to look at them.
    5) if [ "$(wc -c <"$out")" -lt 32 ]; then rm -f "$out"; else mv -f "$out" "$out.damaged"; fi ;;
    esac
fi"""

# Other attempts may go on meanwhile, on machines that are cut off: no two write one file.
WITHOUT_LOCK = r"""attempt=${SLURM_JOB_ID:-$(hostname)-$$}-${SLURM_RESTART_COUNT:-0}
out=$pieces/$piece.$attempt.rimg
echo "$(date +%s) $piece $(hostname)" >>"$pieces/attempts"
for earlier in "$pieces/$piece".*.rimg; do
    [ -e "$earlier" ] && "$rimg" verify "$earlier" && exit 0
done
# Goes on from the largest of the earlier ones.
largest=$(ls -S "$pieces/$piece".*.rimg 2>/dev/null | head -n 1)
if [ -n "$largest" ] && [ "$largest" != "$out" ]; then
    "$rimg" recover "$largest" -o "$out" || [ $? -eq 3 ] || rm -f "$out"
fi"""

MERGE = r"""#!/bin/sh
# Merges the pieces of a frame: merge.sh FRAME. Written by rimg-farm. Ends with 1 when a piece is not whole yet, with 75
# when another merge of the frame runs, and after SIGTERM.
set -u
trap 'exit 75' TERM
farm=@FARM@ rimg=@RIMG@
name=$(printf %04d "$1")
out=$farm/frames/$name.rimg
[ ! -e "$out" ] || exit 0
mkdir -p "$farm/pieces/$name" && cd "$farm/pieces/$name" && exec >>"$farm/log/$name.merge.log" 2>&1 || exit 1
@LOCK@
# One whole file of each piece, whatever other attempts have left.
whole=merge.$(hostname)-$$
trap 'rm -f "$whole"' EXIT
ls | grep '\.rimg$' | "$rimg" verify --files-from - | sed -n 's/: good$//p' | awk -F. '!seen[$1]++' >"$whole"
[ "$(wc -l <"$whole")" -eq @COUNT@ ] || { echo "merge.sh: $name: not all of @COUNT@ pieces are whole, see rimg-farm status"; exit 1; }
"$rimg" merge@DELETE@ --files-from "$whole" -o "$out"
"""

MERGE_LOCK = r"""exec 9>>merge.lock
flock -n 9 || { echo "merge.sh: another process merges $name"; exit 75; }"""

ARRAY = r"""#!/bin/sh
# A task of a job array runs one line of a list of commands: array.sh LIST FIRST-LINE. Written by rimg-farm.
eval "exec $(sed -n "$(($2 + SLURM_ARRAY_TASK_ID))p" "$1")"
"""


def shell_word(word):
    """A word of the renderer's command, with its placeholders as variables of the script."""
    parts = re.split(r"(\{frame\}|\{box\}|\{out\})", word)
    return "".join('"$%s"' % part[1:-1] if index % 2 else shlex.quote(part) if part else ""
                   for index, part in enumerate(parts)) or "''"


def fill(template, values):
    return re.sub("@([A-Z]+)@", lambda match: values[match[1]], template)


def write(plan):
    facts = plan.facts
    values = {
        "FARM": shlex.quote(plan.folder), "RIMG": shlex.quote(facts["rimg"]), "FOLDER": shlex.quote(facts["folder"]),
        "BEGIN": WITHOUT_LOCK if facts["noLocks"] else WITH_LOCK,
        "COMMAND": " ".join(map(shell_word, facts["command"])),
        "LOCK": "" if facts["noLocks"] else MERGE_LOCK, "COUNT": str(len(plan.boxes)),
        "DELETE": " --delete-inputs" if facts["deletePieces"] else ""}
    for name, template in (("piece.sh", PIECE), ("merge.sh", MERGE), ("array.sh", ARRAY)):
        path = plan.path("jobs", name)
        with open(path, "w", encoding="utf-8") as file:
            file.write(fill(template, values))
        os.chmod(path, 0o755)

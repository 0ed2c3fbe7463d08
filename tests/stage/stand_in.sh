#!/bin/bash
# SPDX-License-Identifier: MIT
# Stands in for the download tool of whose name it is a link: records the call in the file `calls` beside it and gives
# the newest of the `answers` whose pattern fits the command line; without one it fails as on a dead network.
set -uo pipefail
folder=${0%/*}
name=${0##*/}

mapfile -d '' -t environment <"/proc/$$/environ"
settings=
[[ -r ${SYSTEM_WGETRC-} ]] && IFS= read -r -d '' settings <"$SYSTEM_WGETRC"
printf '%s\0' "$name" "$#" "$@" "${#environment[@]}" "${environment[@]}" "$settings" >>"$folder/calls"

answer=
for candidate in "$folder"/answers/*; do
    IFS= read -r pattern <"$candidate/pattern" || continue
    # shellcheck disable=SC2053  # it is meant as a pattern
    [[ "$name $*" == $pattern ]] && answer=$candidate
done
[[ $answer ]] || exit 4

# Held answers have an end of their own, so that no call outlives a killed test for long.
for ((i = 0; i < 1000; ++i)); do
    [[ -e $answer/hold ]] || break
    /bin/sleep 0.03
done
/bin/cat "$answer/stdout"
/bin/cat "$answer/stderr" >&2
IFS= read -r status <"$answer/status"
exit "$status"

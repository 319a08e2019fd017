# SPDX-License-Identifier: MIT
_hostadm() {
    mapfile -t COMPREPLY < <(hostadm complete bash "${COMP_LINE:0:COMP_POINT}" "$2" 2>/dev/null)
    [[ ${COMPREPLY[0]-} != *[=/,] ]] || compopt -o nospace 2>/dev/null
} && complete -F _hostadm hostadm

# SPDX-License-Identifier: MIT
complete -c hostadm -f -a '(hostadm complete fish (commandline -opc) "$(commandline -ct)" 2>/dev/null)'

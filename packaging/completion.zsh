#compdef vdRescan_plus

_arguments \
    '(-nc --nocheck)'{-nc,--nocheck}'[only rescan, without checking for stale disks]' \
    '(-m --mutual)'{-m,--mutual}'[ask before deleting stale disks]'

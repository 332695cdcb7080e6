#compdef vdRescan_log

_arguments \
    '(--follow --run --check --since --max-age --must-look --ignore)--all[print all runs, one line each]' \
    '(--all --follow)--run[print the run with this number]:number' \
    '(--follow --check --since --max-age --must-look --ignore)--json[print the same as data]' \
    '(--all --follow --json)--check[judge the last run as a monitoring plugin]' \
    '(--all --follow --json)--since[only a run that began then or later counts]:seconds since the epoch' \
    '(--all --follow --json)--max-age[the last run must not be older]:hours' \
    '(--all --follow --json)--must-look[the last run must have looked at disks]' \
    '(--all --follow --json)*--ignore[this disk need not be questioned]:address' \
    '(- *)--follow[print how far the run at work is, then what it did]' \
    '(- *)--help[print a summary of the options]' \
    '(- *)--version[print the version]' \
    '1:log:_files'

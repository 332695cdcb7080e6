#compdef vdRescan_log

_arguments \
    '(--run --check --since --max-age --must-look --ignore)--all[print all runs, one line each]' \
    '(--all)--run[print the run with this number]:number' \
    '(--check --since --max-age --must-look --ignore)--json[print the same as data]' \
    '(--all --json)--check[judge the last run as a monitoring plugin]' \
    '(--all --json)--since[only a run that began then or later counts]:seconds since the epoch' \
    '(--all --json)--max-age[the last run must not be older]:hours' \
    '(--all --json)--must-look[the last run must have looked at disks]' \
    '(--all --json)*--ignore[this disk need not be questioned]:address' \
    '(- *)--help[print a summary of the options]' \
    '(- *)--version[print the version]' \
    '1:log:_files'

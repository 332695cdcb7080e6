#compdef vdRescan_log

_arguments \
    '(--run --check --max-age --must-look)--all[tell of all runs, one line each]' \
    '(--all)--run[tell of the run with this number]:number' \
    '(--check --max-age --must-look)--json[write the same as data]' \
    '(--all --json)--check[judge the last run as a monitoring plugin]' \
    '(--all --json)--max-age[the last run must not be older]:hours' \
    '(--all --json)--must-look[the last run must have looked at disks]' \
    '(- *)--help[print a summary of the options]' \
    '(- *)--version[print the version]' \
    '1:log:_files'

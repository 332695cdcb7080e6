#compdef vdRescan_log

_arguments \
    '(--run --check --max-age)--all[tell of all runs, one line each]' \
    '(--all)--run[tell of the run with this number]:number' \
    '(--check --max-age)--json[write the same as data]' \
    '(--all --json)--check[judge the last run as a monitoring plugin]' \
    '(--all --json)--max-age[the last run must not be older]:hours' \
    '(- *)--help[print a summary of the options]' \
    '(- *)--version[print the version]' \
    '1:log:_files'

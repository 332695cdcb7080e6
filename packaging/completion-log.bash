# bash completion for vdRescan_log

# Offers options where a word begins with -, and files otherwise.
_vdRescan_log()
{
    local word=${COMP_WORDS[COMP_CWORD]}
    case ${COMP_WORDS[COMP_CWORD - 1]} in
    --run | --since | --max-age | --ignore) COMPREPLY=() ;;
    *) case $word in
        -*) mapfile -t COMPREPLY < <(compgen -W '--all --check --follow --help --ignore --json --max-age --must-look --run --since --version' -- "$word") ;;
        *) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        esac ;;
    esac
}
complete -o filenames -F _vdRescan_log vdRescan_log

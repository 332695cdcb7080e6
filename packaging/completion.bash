# bash completion for vdRescan_plus

# Offers the options that can follow those before the cursor: each of the two, in either spelling, once.
_vdRescan_plus()
{
    local word options='-nc --nocheck -m --mutual'
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
        -nc | --nocheck) options=${options/-nc --nocheck/} ;;
        -m | --mutual) options=${options/-m --mutual/} ;;
        *) options= ;;
        esac
    done
    mapfile -t COMPREPLY < <(compgen -W "$options" -- "${COMP_WORDS[COMP_CWORD]}")
}
# The default offers file names, which a redirection takes.
complete -o default -F _vdRescan_plus vdRescan_plus

# Completion for bash. The options are those that --help lists.
_tessview() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    case $before in
    --to) mapfile -t COMPREPLY < <(compgen -W "bmp ham6 ham8 pam png" -- "$word") ;;
    --charset) mapfile -t COMPREPLY < <(compgen -W "$(seq 0 14)" -- "$word") ;;
    --frame) mapfile -t COMPREPLY < <(compgen -W "all" -- "$word") ;;
    *)
        if [[ $word == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "$("$1" --help |
                sed -n 's/^ *\(-.,\)\{0,1\}\(--[a-z-]*\).*/\2/p')" -- "$word")
        else
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "$word")
        fi
        ;;
    esac
}
complete -F _tessview tessview

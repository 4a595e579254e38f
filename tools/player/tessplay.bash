# Completion for bash. The options are those that --help lists.
_tessplay() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    case $before in
    --bits) mapfile -t COMPREPLY < <(compgen -W "8 16 24 32 float" -- "$word") ;;
    --interpolation) mapfile -t COMPREPLY < <(compgen -W "nearest linear cubic sinc" -- "$word") ;;
    --rate) mapfile -t COMPREPLY < <(compgen -W "22050 44100 48000 96000" -- "$word") ;;
    --device) mapfile -t COMPREPLY < <(compgen -W "$("$1" --devices 2>/dev/null | cut -d: -f1)" -- "$word") ;;
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
complete -F _tessplay tessplay

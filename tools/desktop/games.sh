# Shared by the launcher and ./play: options, arguments, and playing again. Sourced by POSIX shells;
# `name` is the command as the user knows it.

usage() {
    cat <<END
Usage: $name [OPTION...] [xDim yDim nMines]

3D minesweeper on a board of turning cubes. Width and height are 2 to 64 cells, with at least one
cell free of mines; without three such numbers the field is 10 by 10 with 20 mines.

  --small     8 by 8 with 10 mines
  --medium    16 by 16 with 40 mines
  --large     30 by 16 with 99 mines
  --quiet     without sound (TESSARUVINEL_VOLUME=0 to 100 sets the level)
  --help      shows this help
  --version   shows the version

Left button: uncover. Right button: flag, question mark, covered. Escape: end the game.
END
}

# take_arguments ARGUMENT...: handles the options and sets `field` to the game's three numbers, or
# to nothing for the default field. Reports arguments that the game would reject.
take_arguments() {
    field="" why="" numbers=""
    for argument in "$@"; do
        case $argument in
        --help) usage && exit ;;
        --version) echo "Tessaruvinel 3.23" && exit ;;
        --quiet) export TESSARUVINEL_VOLUME=0 ;;
        --small) numbers="8 8 10" ;;
        --medium) numbers="16 16 40" ;;
        --large) numbers="30 16 99" ;;
        *[!0-9]* | "" | ??????????*) why=${why:-"'$argument' is not a number or option"} ;;
        *) numbers="$numbers $argument" ;;
        esac
    done
    if [ -z "$why" ] && [ -n "$numbers" ]; then
        why=$(wrong_field $numbers)
    fi
    if [ -n "$why" ]; then
        echo "$name: $why: playing 10 by 10 with 20 mines" >&2
    else
        field=$numbers
    fi
}

# Why the game would reject these numbers; nothing if it accepts them. It keeps their low 8 bits.
wrong_field() {
    if [ $# -ne 3 ]; then
        echo "not three numbers, but $#"
        return
    fi
    width=$(low_byte "$1") height=$(low_byte "$2") mines=$(low_byte "$3")
    if [ "$width" -lt 2 ] || [ "$width" -gt 64 ]; then
        echo "the width $1 is not 2 to 64"
    elif [ "$height" -lt 2 ] || [ "$height" -gt 64 ]; then
        echo "the height $2 is not 2 to 64"
    elif [ "$mines" -ge $((width * height)) ]; then
        echo "$3 mines are too many for $1 by $2"
    fi
}

# Strips leading zeros, which would mean octal.
low_byte() {
    digits=${1#"${1%%[!0]*}"}
    echo $((${digits:-0} % 256))
}

on_terminal() {
    [ -t 0 ] && [ -t 1 ]
}

# play_games PROGRAM: plays a game of `field`, on a terminal again as long as the player asks for
# it. Returns the last game's exit status.
play_games() {
    while :; do
        trap : INT # Ctrl-C stops the game's clock, but must not end this shell
        status=0
        "$1" $field || status=$?
        trap - INT
        on_terminal && [ $status -lt 128 ] || return $status
        printf 'Enter closes, a new game: n '
        read -r answer || return $status
        case $answer in
        n* | N*) ;;
        *) return $status ;;
        esac
    done
}

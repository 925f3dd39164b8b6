# bash completion of brisel-render: options come from its --help, presets from --list-presets.
# shellcheck disable=SC2207 # compgen's lines are to be split, and IFS splits nothing else
_brisel_render() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} program=${COMP_WORDS[0]}
    local IFS=$'\n' type
    COMPREPLY=()
    if [[ $word == -* ]]; then
        COMPREPLY=($(compgen -W "$("$program" --help 2>/dev/null |
            grep -oE '^  (-[a-z], )?--[a-z-]+' | grep -oE -- '--[a-z-]+')" -- "$word"))
        return
    fi
    # What the option in front takes, as the help names it: "  --modulate on|off  ...".
    type=$("$program" --help 2>/dev/null | sed -nE "s/^  (-[a-z], )?$before ([^ ]+).*/\2/p")
    case $before:$type in
    --preset:*)
        COMPREPLY=($(compgen -W "$("$program" --list-presets 2>/dev/null | cut -d' ' -f1)" -- "$word")
            $(compgen -f -- "$word")) ;;
    -o:* | --output:*) COMPREPLY=($(compgen -d -- "$word")) ;;
    --format:*) COMPREPLY=($(compgen -W $'wav\naiff\nau\nw64\nrf64\ncaf\nraw\nflac\nogg\nopus' -- "$word")) ;;
    -*:*'|'*) COMPREPLY=($(compgen -X '*[[:upper:]]*' -W "${type//|/$'\n'}" -- "$word")) ;;
    -*:TIME | -*:SHARE | -*:GAIN | -*:COUNT | -*:FRAMES | -*:NUMBER | -*:HZ | -*:A,B) ;;
    *) COMPREPLY=($(compgen -f -- "$word")) ;;
    esac
}
complete -o filenames -F _brisel_render brisel-render

# Completion of heatmeterctl in bash: commands and options as its help tells them, meters, families, ports.

_heatmeterctl() {
    local program=$1 word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command='' root=() place=0 i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case ${COMP_WORDS[i]} in
            --root) root=(--root "${COMP_WORDS[++i]}") ;;
            -*) ;;
            *) if [[ -z $command ]]; then command=${COMP_WORDS[i]}; else ((++place)); fi ;;
        esac
    done
    if [[ $word == : ]]; then # bash takes a colon for a word
        before=:
        word=''
    fi

    local files='' choices='' help plain='[A-Za-z0-9._-]+' # compgen expands its words: only plain names may come to it
    help=$("$program" ${command:+"$command"} --help 2>/dev/null)
    case $before in
        --root) files=-d ;;
        --output | --sqlite | --port) files=-f ;;
        --by | --format | --parity) choices=$(sed -nE "s/^ +$before TEXT:\{([A-Za-z,]+)\}.*/\1/p" <<<"$help" | tr , ' ') ;;
        --from | --to | --names | --for | --wait | --serial | --speed) return ;;
        :) choices="debug messages general" ;;
        *)
            case $word:$command:$place in
                -*) choices=$(sed -nE 's/^  (-.,)?(--[a-z]+).*/\2/p' <<<"$help") ;;&
                -*:check:*) choices+=" -r -j" ;;
                -*) ;;
                *::*) choices=$(sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) .*/\1/p' <<<"$help") ;;
                *:decode:0 | *:probe:0) choices="KM5 VIST VISTmodbus SA94" ;;
                *:decode:*) files=-f ;;
                *:check:0) choices="KM5 KM56i ATT VIST VISTmodbus SA94 $(
                    /usr/lib/heatmeterd/heatmeterd-care names /etc/heatmeterd 2>/dev/null | grep -xE "$plain"
                )" ;;
                *:log:0) choices=general ;;&
                *:log:0 | *:values:0 | *:archive:0 | *:gaps:0 | *:plot:0 | *:events:0 | *:poll:0 | *:status:* | *:watch:* | \
                    *:export:* | *:check:*)
                    choices+=" $("$program" "${root[@]}" list 2>/dev/null | sed -nE "2,\$s/^($plain) .*/\1/p")"
                    ;;
            esac
            ;;
    esac
    if [[ -n $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen "$files" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
    fi
}
complete -F _heatmeterctl heatmeterctl

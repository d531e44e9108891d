# Completion of heatmeter-view in bash.

_heatmeter_view() {
    local word=${COMP_WORDS[COMP_CWORD]} files='' choices=''
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --root) files=-d ;;
        --password-file) files=-f ;;
        --listen) choices="127.0.0.1:8083 0.0.0.0:8083 [::1]:8083 [::]:8083" ;;
        *) choices="--root --listen --password-file --help --version" ;;
    esac
    if [[ -n $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen "$files" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
    fi
}
complete -F _heatmeter_view heatmeter-view

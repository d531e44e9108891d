# Completion of heatmeter-uplink in bash.

_heatmeter_uplink() {
    local word=${COMP_WORDS[COMP_CWORD]}
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --root | --state) mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
        --config) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        *)
            mapfile -t COMPREPLY < <(compgen -W "--root --config --state --check --help --version" -- "$word")
            return
            ;;
    esac
    compopt -o filenames 2>/dev/null
}
complete -F _heatmeter_uplink heatmeter-uplink

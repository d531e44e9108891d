# Completion of heatmeter-store in bash.

_heatmeter_store() {
    local word=${COMP_WORDS[COMP_CWORD]} files='' choices=''
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --password-file | --ca | --cert | --key) files=-f ;;
        --nats) choices="nats://127.0.0.1:4222" ;;
        --postgres) choices="dbname=heatmeter" ;;
        --stream) choices=HEATMETER ;;
        --consumer) choices=store ;;
        --batch | --keep | --replicas | --user) ;;
        *)
            choices="--nats --postgres --stream --replicas --keep --consumer --batch --user --password-file --ca --cert --key --once
                --migrate --help --version"
            ;;
    esac
    if [[ -n $files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen "$files" -- "$word")
    else
        mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
    fi
}
complete -F _heatmeter_store heatmeter-store

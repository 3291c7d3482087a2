# bash completion for panelwright-cli: options, commands, feature names, input sources,
# setting keys, and the display ids that `detect --json` reports.

_panelwright_cli_displays() {
    # The same machine the command line would act on: with --simulate, that scenario.
    local i simulate=()
    for ((i = 1; i < ${#COMP_WORDS[@]} - 1; i++)); do
        [[ ${COMP_WORDS[i]} == --simulate ]] && simulate=(--simulate "${COMP_WORDS[i + 1]}")
    done
    panelwright-cli "${simulate[@]}" detect --json 2>/dev/null |
        sed -n 's/^ *"id": *\([0-9][0-9]*\).*/\1/p'
}

_panelwright_cli() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}
    local features="brightness contrast volume mute inputSource redGain greenGain blueGain standby"
    local sources="vga1 vga2 dvi1 dvi2 composite1 composite2 svideo1 svideo2 component1 component2 displayport1 displayport2 hdmi1 hdmi2 usbc"
    local keys="ddcRetryCount ddcCacheTTL brightnessStepPercent volumeStepPercent app.showOSD app.launchAtLogin app.startupAction"
    local options="--help --version --simulate --display --json --trace --verbose --force-i2c-address"

    case ${prev} in
        --simulate)
            COMPREPLY=($(compgen -f -X '!*.json' -- "${cur}") $(compgen -d -- "${cur}"))
            return ;;
        --display)
            COMPREPLY=($(compgen -W "$(_panelwright_cli_displays)" -- "${cur}"))
            return ;;
    esac

    # The command and the words after it.
    local i command="" args=()
    for ((i = 1; i < COMP_CWORD; i++)); do
        case ${COMP_WORDS[i]} in
            --simulate | --display) ((i++)) ;;
            -*) ;;
            *) if [[ -z ${command} ]]; then command=${COMP_WORDS[i]}; else args+=("${COMP_WORDS[i]}"); fi ;;
        esac
    done

    if [[ ${cur} == -* ]]; then
        COMPREPLY=($(compgen -W "${options}" -- "${cur}"))
        return
    fi
    case ${command} in
        "") COMPREPLY=($(compgen -W "detect getvcp setvcp config" -- "${cur}")) ;;
        getvcp) COMPREPLY=($(compgen -W "${features}" -- "${cur}")) ;;
        setvcp)
            if [[ ${#args[@]} -eq 0 ]]; then
                COMPREPLY=($(compgen -W "${features}" -- "${cur}"))
            elif [[ ${#args[@]} -eq 1 && ${args[0]} == inputSource ]]; then
                COMPREPLY=($(compgen -W "${sources}" -- "${cur}"))
            fi ;;
        config)
            if [[ ${#args[@]} -eq 0 ]]; then
                COMPREPLY=($(compgen -W "get set unset list" -- "${cur}"))
            elif [[ ${#args[@]} -eq 1 && ${args[0]} != list ]]; then
                COMPREPLY=($(compgen -W "${keys}" -- "${cur}"))
            fi ;;
    esac
}
complete -F _panelwright_cli panelwright-cli

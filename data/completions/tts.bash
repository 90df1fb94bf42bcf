# Completion of tts(1) for bash.

_tts() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands='on off status pause resume toggle skip back next restart stop mute unmute volume speed voice captions
        lexicon pair search open start quit install uninstall diag help'
    local global='--json --start --help --version'
    local voices='af_heart af_bella af_nicole af_sarah af_jessica af_sky am_adam am_michael am_puck am_eric am_onyx
        bf_emma bf_isabella bf_alice bf_lily bm_george bm_lewis bm_daniel bm_fable'
    local index command='' action='' choices=''

    # bash takes "--source=codex" for three words.
    if [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    elif [[ $word == = ]]; then
        word=''
    fi
    for ((index = 1; index < COMP_CWORD; index++)); do
        case ${COMP_WORDS[index]} in
            --source | --session | --out | --notes)
                [[ ${COMP_WORDS[index + 1]} == = ]] && ((index++))
                ((index++))
                continue ;;
            -*) continue ;;
        esac
        if [[ -z $command ]]; then
            command=${COMP_WORDS[index]}
        else
            action=${COMP_WORDS[index]}
            break
        fi
    done

    case $previous in
        --source) mapfile -t COMPREPLY < <(compgen -W 'claude-code codex gemini aider cline opencode pi' -- "$word"); return ;;
        --out) compopt -o filenames 2> /dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
        --session | --notes) return ;;
    esac

    case $command in
        '') choices=$commands ;;
        on) choices='--source --session --here' ;;
        off) choices='--session --all' ;;
        status) choices='--all' ;;
        voice) choices=$voices ;;
        captions) choices='on off' ;;
        lexicon) [[ -z $action ]] && choices='list add remove' ;;
        pair) choices='--lan --no-lan --wait --no-wait' ;;
        diag) choices='--out --notes --send --cleanup' ;;
        help) choices=$commands ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$choices $global" -- "$word")
}

complete -F _tts tts

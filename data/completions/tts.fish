# Completion of tts(1) for fish.

set -l commands on off status pause resume toggle skip back next restart stop mute unmute volume speed voice captions \
    lexicon pair search open start quit install uninstall diag help
set -l voices af_heart af_bella af_nicole af_sarah af_jessica af_sky am_adam am_michael am_puck am_eric am_onyx \
    bf_emma bf_isabella bf_alice bf_lily bm_george bm_lewis bm_daniel bm_fable

complete -c tts -f

complete -c tts -l json -d 'print the result as one JSON object'
complete -c tts -l start -d "start the service first if it isn't running"
complete -c tts -s h -l help -d 'print help and exit'
complete -c tts -l version -d 'print the version and exit'

set -l first "not __fish_seen_subcommand_from $commands"
complete -c tts -n "$first" -a on -d 'attach a session'
complete -c tts -n "$first" -a off -d 'detach a session'
complete -c tts -n "$first" -a status -d 'what runs, what is attached, and the settings'
complete -c tts -n "$first" -a pause -d 'hold the voice'
complete -c tts -n "$first" -a resume -d 'let it go on from the same place'
complete -c tts -n "$first" -a toggle -d 'pause or resume'
complete -c tts -n "$first" -a skip -d 'go on to the next piece of the reply'
complete -c tts -n "$first" -a back -d 'go back a message'
complete -c tts -n "$first" -a next -d 'go forward by a message'
complete -c tts -n "$first" -a restart -d 'speak this piece again from its start'
complete -c tts -n "$first" -a stop -d 'be silent, and drop what is in the queue'
complete -c tts -n "$first" -a mute -d 'be silent'
complete -c tts -n "$first" -a unmute -d 'speak again'
complete -c tts -n "$first" -a volume -d 'show or set the volume'
complete -c tts -n "$first" -a speed -d 'show or set the speed of speech'
complete -c tts -n "$first" -a voice -d 'list the voices, or choose one'
complete -c tts -n "$first" -a captions -d 'show or hide the captions'
complete -c tts -n "$first" -a lexicon -d 'how words are to be spoken'
complete -c tts -n "$first" -a pair -d 'show a code with which a phone becomes a remote control'
complete -c tts -n "$first" -a search -d 'open the search for sessions'
complete -c tts -n "$first" -a open -d 'attach the sessions with these addresses'
complete -c tts -n "$first" -a start -d 'start the service and the daemon'
complete -c tts -n "$first" -a quit -d 'end the service and the daemon'
complete -c tts -n "$first" -a install -d 'start at login'
complete -c tts -n "$first" -a uninstall -d "don't start at login any more"
complete -c tts -n "$first" -a diag -d 'write a redacted bundle of logs and facts for support'
complete -c tts -n "$first" -a help -d 'print help and exit'

complete -c tts -n '__fish_seen_subcommand_from on' -l source -x -a 'claude-code codex gemini aider cline opencode pi' \
    -d 'only sessions of this agent'
complete -c tts -n '__fish_seen_subcommand_from on off' -l session -x -d 'the session with this id'
complete -c tts -n '__fish_seen_subcommand_from on' -l here -d 'the newest session of this folder or one above it'
complete -c tts -n '__fish_seen_subcommand_from off' -l all -d 'every session'
complete -c tts -n '__fish_seen_subcommand_from status' -l all -d 'list old sessions too'
complete -c tts -n '__fish_seen_subcommand_from voice' -a "$voices"
complete -c tts -n '__fish_seen_subcommand_from captions' -a 'on off'
complete -c tts -n '__fish_seen_subcommand_from lexicon; and not __fish_seen_subcommand_from list add remove' \
    -a 'list add remove'
complete -c tts -n '__fish_seen_subcommand_from pair' -l lan -d 'let devices of the local network reach the bridge'
complete -c tts -n '__fish_seen_subcommand_from pair' -l no-lan -d 'let only this computer reach it'
complete -c tts -n '__fish_seen_subcommand_from pair' -l wait -d 'wait until a device has paired'
complete -c tts -n '__fish_seen_subcommand_from pair' -l no-wait -d 'print the code and return'
complete -c tts -n '__fish_seen_subcommand_from diag' -l out -r -F -d 'where to write it'
complete -c tts -n '__fish_seen_subcommand_from diag' -l notes -x -d 'what you were doing'
complete -c tts -n '__fish_seen_subcommand_from diag' -l send -d 'send it to support'
complete -c tts -n '__fish_seen_subcommand_from diag' -l cleanup -d 'remove the file once it has been sent'
complete -c tts -n '__fish_seen_subcommand_from help' -a "$commands"

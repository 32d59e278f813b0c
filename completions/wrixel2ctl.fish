# fish completion for wrixel2ctl(1)

function __wrixel2ctl_is --description 'whether these are the commands given so far'
    set -l words
    for word in (commandline -opc)[2..]
        string match -q -- '-*' $word; or set -a words $word
    end
    test (count $words) -ge (count $argv); or return 1
    for i in (seq (count $argv))
        test "$words[$i]" = "$argv[$i]"; or return 1
    end
end

function __wrixel2ctl_only --description 'the same, and no further word'
    set -l words
    for word in (commandline -opc)[2..]
        string match -q -- '-*' $word; or set -a words $word
    end
    test (count $words) -eq (count $argv); and __wrixel2ctl_is $argv
end

function __wrixel2ctl_icons
    wrixel2ctl apps icons 2>/dev/null | string replace -r '^\d+\s+(\S+)\s+' '$1\t'
end

complete -c wrixel2ctl -f
complete -c wrixel2ctl -l help -d 'Show help'
complete -c wrixel2ctl -l json -d 'Output for programs'
complete -c wrixel2ctl -n __wrixel2ctl_only -l version -d 'Show the version'

complete -c wrixel2ctl -n __wrixel2ctl_only -a status -d 'How everything is, and what is wrong'
complete -c wrixel2ctl -n __wrixel2ctl_only -a doctor -d 'Look through everything that is needed'
complete -c wrixel2ctl -n __wrixel2ctl_only -a settings -d 'Show and change the settings'
complete -c wrixel2ctl -n __wrixel2ctl_only -a apps -d 'Show and set what notifications do'
complete -c wrixel2ctl -n __wrixel2ctl_only -a notify -d 'Send a notification to the band'
complete -c wrixel2ctl -n __wrixel2ctl_only -a stop -d 'Stop what the band is doing'
complete -c wrixel2ctl -n __wrixel2ctl_only -a measure -d 'Measure the heart rate now'
complete -c wrixel2ctl -n __wrixel2ctl_only -a heart-rate -d 'Show or export the heart rates'
complete -c wrixel2ctl -n __wrixel2ctl_only -a steps -d 'Steps, distance and calories'
complete -c wrixel2ctl -n __wrixel2ctl_only -a clock -d 'Set the clock of the band'
complete -c wrixel2ctl -n __wrixel2ctl_only -a stopwatch -d 'The stopwatch on the band'
complete -c wrixel2ctl -n __wrixel2ctl_only -a key -d 'The pairing key'
complete -c wrixel2ctl -n __wrixel2ctl_only -a lock -d 'Stay with the band now known'
complete -c wrixel2ctl -n __wrixel2ctl_only -a unlock -d 'Take any band again'
complete -c wrixel2ctl -n __wrixel2ctl_only -a watch -d 'Tell what happens as it happens'

complete -c wrixel2ctl -n '__wrixel2ctl_only settings' -a 'list get set unset'
complete -c wrixel2ctl -n '__wrixel2ctl_is settings list' -l names -d 'Only the keys'
for sub in get set unset
    complete -c wrixel2ctl -n "__wrixel2ctl_only settings $sub" \
        -a '(wrixel2ctl settings list --names 2>/dev/null)'
end

complete -c wrixel2ctl -n '__wrixel2ctl_only apps' -a 'list set test icons'
complete -c wrixel2ctl -n '__wrixel2ctl_is apps list' -l names -d 'Only the identifiers'
for sub in set test
    complete -c wrixel2ctl -n "__wrixel2ctl_only apps $sub" \
        -a '(wrixel2ctl apps list --names 2>/dev/null)'
end
complete -c wrixel2ctl -n '__wrixel2ctl_is apps set' -x -l icon -a '(__wrixel2ctl_icons)' -d Icon
complete -c wrixel2ctl -n '__wrixel2ctl_is apps set' -x -l repeat -d 'Repeat once more than this'
complete -c wrixel2ctl -n '__wrixel2ctl_is apps set' -x -l pattern -a '(seq 0 8)' -d Pattern
complete -c wrixel2ctl -n '__wrixel2ctl_is apps set' -x -l preview -a 'on off' -d 'Show the text'

complete -c wrixel2ctl -n '__wrixel2ctl_is notify' -x -l app \
    -a '(wrixel2ctl apps list --names 2>/dev/null)' -d 'Whose rules apply'

set -l when 'now today yesterday 1h 1d 1w'
complete -c wrixel2ctl -n '__wrixel2ctl_is heart-rate' -x -l since -a "$when" -d 'From when on'
complete -c wrixel2ctl -n '__wrixel2ctl_is heart-rate' -x -l until -a "$when" -d 'Till when'
complete -c wrixel2ctl -n '__wrixel2ctl_is heart-rate' -l csv -d 'Comma-separated values'
complete -c wrixel2ctl -n '__wrixel2ctl_is heart-rate' -l omh -d 'Open mHealth data points'
complete -c wrixel2ctl -n '__wrixel2ctl_is heart-rate' -l plot -d 'Draw them'

complete -c wrixel2ctl -n '__wrixel2ctl_only clock' -a sync
complete -c wrixel2ctl -n '__wrixel2ctl_only stopwatch' -a 'start stop'
complete -c wrixel2ctl -n '__wrixel2ctl_only key' -a 'import show'
complete -c wrixel2ctl -n '__wrixel2ctl_is key import' -F
complete -c wrixel2ctl -n '__wrixel2ctl_is key import' -l no-check -d 'Do not try it on the band'
complete -c wrixel2ctl -n '__wrixel2ctl_is key show' -l reveal -d 'Show the key itself'

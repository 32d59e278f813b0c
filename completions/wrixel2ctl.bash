# bash completion for wrixel2ctl(1)

_wrixel2ctl() {
  local cur prev
  COMPREPLY=()
  cur=${COMP_WORDS[COMP_CWORD]}
  prev=${COMP_WORDS[COMP_CWORD - 1]}

  # Identifiers and keys have dots and may have blanks: one a line.
  local IFS=$'\n'
  local command= subcommand= word
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in
      -*) ;;
      *)
        if [ -z "$command" ]; then
          command=$word
        elif [ -z "$subcommand" ]; then
          subcommand=$word
        fi
        ;;
    esac
  done

  local choices=
  case $prev in
    --app | test) choices=$("${COMP_WORDS[0]}" apps list --names 2>/dev/null) ;;
    --icon)
      choices=$("${COMP_WORDS[0]}" apps icons 2>/dev/null | while IFS=' ' read -r _ name _; do
        printf '%s\n' "$name"
      done)
      ;;
    --preview) choices=$'on\noff' ;;
    --since | --until) choices=$'today\nyesterday\nnow\n1h\n1d\n1w' ;;
    get | set | unset)
      case $command in
        settings) choices=$("${COMP_WORDS[0]}" settings list --names 2>/dev/null) ;;
        apps) choices=$("${COMP_WORDS[0]}" apps list --names 2>/dev/null) ;;
      esac
      ;;
    import)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$cur")
      return
      ;;
  esac

  if [ -z "$choices" ]; then
    choices=$'--help\n--json'
    case $command in
      "") choices+=$'\n--version\nstatus\ndoctor\nsettings\napps\nnotify\nstop\nmeasure\nheart-rate\nsteps\nclock\nstopwatch\nkey\nlock\nunlock\nwatch' ;;
      settings)
        case $subcommand in
          "") choices+=$'\nlist\nget\nset\nunset' ;;
          list) choices+=$'\n--names' ;;
          set) choices+=$'\ntrue\nfalse' ;;
        esac
        ;;
      apps)
        case $subcommand in
          "") choices+=$'\nlist\nset\ntest\nicons' ;;
          list) choices+=$'\n--names' ;;
          set) choices+=$'\n--icon\n--repeat\n--pattern\n--preview' ;;
        esac
        ;;
      key)
        case $subcommand in
          "") choices+=$'\nimport\nshow' ;;
          import) choices+=$'\n--no-check' ;;
          show) choices+=$'\n--reveal' ;;
        esac
        ;;
      clock) [ -n "$subcommand" ] || choices+=$'\nsync' ;;
      stopwatch) [ -n "$subcommand" ] || choices+=$'\nstart\nstop' ;;
      notify) choices+=$'\n--app' ;;
      heart-rate) choices+=$'\n--since\n--until\n--csv\n--omh\n--plot' ;;
    esac
  fi
  # Not by "compgen -W", which expands its words: identifiers are what other programs say.
  while read -r word; do
    if [[ $word == "$cur"* ]]; then
      COMPREPLY+=("$(printf '%q' "$word")")
    fi
  done <<<"$choices"
}

complete -F _wrixel2ctl wrixel2ctl

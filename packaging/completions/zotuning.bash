# Completion of zotuning for bash. Commands and options come from the tool's own help, names from the project.

# The commands that the help of "$@" lists, or its options.
_zotuning_commands() {
  "$@" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'
}
_zotuning_options() {
  "$@" --help 2>/dev/null | sed -n 's/^  \(-[^ ]*\).*/\1/p' | tr ',' '\n' | sed 's/:.*//'
}

# The values that the help of "${@:2}" gives for the option $1.
_zotuning_values() {
  "${@:2}" --help 2>/dev/null | sed -n "s/^  [^ ]*$1 [^ ]*:{\([^}]*\)}.*/\1/p" | tr ',' '\n'
}

# Sets words for LABEL=VALUE, which is three words here, since "=" parts words; "$@" are further labels.
_zotuning_label_words() {
  if [[ $current == = || $previous == = ]]; then
    local label=$previous
    [[ $previous != = ]] || label=${COMP_WORDS[COMP_CWORD-2]}
    if [[ $label == sensor ]]; then
      words="default $("${tool[@]}" sensors 2>/dev/null | sed '1d; s/ .*//')"
    else
      words=$("${tool[@]}" labels 2>/dev/null |
        awk -v label="$label:" '/^[^ ]/ { inside = $1 == label; next } inside { print $1 }')
    fi
    current=${current#=}
  else
    words="$* $("${tool[@]}" labels 2>/dev/null | sed -n 's/^\([^ ]*\):.*/\1=/p')"
    compopt -o nospace
  fi
}

_zotuning() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local tool=(zotuning) project=() command=() words='' option='' i commands
  commands=$(_zotuning_commands zotuning)
  for ((i = 1; i < COMP_CWORD; i++)); do
    [[ ${COMP_WORDS[i]} != -* ]] || option=${COMP_WORDS[i]}
    if [[ ${COMP_WORDS[i]} == -C ]]; then
      project=(-C "${COMP_WORDS[++i]}")
    elif grep -qxF -e "${COMP_WORDS[i]}" <<<"$commands"; then
      command+=("${COMP_WORDS[i]}")
      commands=$(_zotuning_commands zotuning "${command[@]}")
    fi
  done
  tool+=("${project[@]}")

  COMPREPLY=()
  case $previous in
    -C | --proto | --into | -o | --out)
      compopt -o filenames
      mapfile -t COMPREPLY < <(compgen -d -- "$current")
      return
      ;;
    --sensor | --of)
      words=$("${tool[@]}" sensors 2>/dev/null | sed '1d; s/ .*//')
      [[ $previous != --of ]] || words+=' project'
      ;;
    --against) words="default $("${tool[@]}" sensors 2>/dev/null | sed '1d; s/ .*//')" ;;
    --module) words=$("${tool[@]}" modules 2>/dev/null | sed '1d; s/ .*//') ;;
    --select | --ignore | --allow | --explain)
      words=$(zotuning check --explain all | sed -n 's/^## //p')
      [[ $previous != --explain ]] || words+=' all'
      ;;
    *)
      [[ $previous != -* ]] || words=$(_zotuning_values "$previous" zotuning "${command[@]}")
      if [[ $words ]]; then
        :
      elif [[ $option == --where && $current != -* ]]; then
        _zotuning_label_words sensor=
      elif [[ ${command[*]} == 'sensors add' && $previous == --from ]]; then
        words=$("${tool[@]}" sensors 2>/dev/null | sed '1d; s/ .*//')
      elif [[ $current == -* ]]; then
        words="-C --json -v $(_zotuning_options zotuning "${command[@]}")"
      elif [[ $commands ]]; then
        words=$commands
      else
        case ${command[*]} in
          template | 'schema json') words=$("${tool[@]}" modules 2>/dev/null | sed '1d; s/ .*//') ;;
          labels) words=$("${tool[@]}" labels 2>/dev/null | sed -n 's/^\([^ ]*\):.*/\1/p') ;;
          help) words=$(_zotuning_commands zotuning) ;;
          tree | report | 'sensors remove' | 'sensors rename') words=$("${tool[@]}" sensors 2>/dev/null | sed '1d; s/ .*//') ;;
          diff) words="default $("${tool[@]}" sensors 2>/dev/null | sed '1d; s/ .*//')" ;;  # or files, by default
          'version set') words=$("${tool[@]}" version list 2>/dev/null | sed '1d; s/ .*//') ;;
          new | which)
            if [[ $previous == which ]]; then
              words=$("${tool[@]}" sensors 2>/dev/null | sed '1d; s/ .*//')
            else
              _zotuning_label_words
            fi
            ;;
        esac
      fi
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
complete -o default -F _zotuning zotuning

# bash completion for inventoryctl: commands, options, and the paths of the tree that the server has at
# this moment. A server that doesn't answer within two seconds gives none.

_inventoryctl() {
  local word=${COMP_WORDS[COMP_CWORD]} command= i
  local -a endpoint=()
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --unix | --tcp) endpoint=("${COMP_WORDS[i]}" "${COMP_WORDS[++i]}") ;;
      --timeout | --server-user) ((++i)) ;;
      -*) ;;
      *)
        command=${COMP_WORDS[i]}
        break
        ;;
    esac
  done
  # The word that the shell has taken apart at its own word breaks.
  local line=${COMP_LINE:0:COMP_POINT} given
  given=${line##*[[:blank:]]}
  local dropped=${given%"$word"}

  case $command in
    '')
      case ${COMP_WORDS[COMP_CWORD - 1]} in
        --unix) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        *) mapfile -t COMPREPLY < <(compgen -W "add decode del dump get ls replay set top types watch
            --help --json --server-user --tcp --timeout --unix" -- "$word") ;;
      esac
      ;;
    decode | replay)
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      ;;
    types)
      mapfile -t COMPREPLY < <(compgen -W "$(inventoryctl types 2>/dev/null | sed 's/:* [^ ]*$//')" \
        -- "$given")
      COMPREPLY=("${COMPREPLY[@]#"$dropped"}")
      ;;
    add | del | get | ls | set | watch)
      # Only the first word behind the command is a path.
      ((COMP_CWORD > i + 1)) && [[ $given == "$word" ]] && return
      compopt -o nospace 2>/dev/null
      mapfile -t COMPREPLY < <(inventoryctl "${endpoint[@]}" --timeout 2 complete \
        -- "${given//\\/}" 2>/dev/null)
      for i in "${!COMPREPLY[@]}"; do
        [[ ${COMPREPLY[i]} == *[[:blank:]\'\"]* ]] && COMPREPLY[i]=$(printf %q "${COMPREPLY[i]}")
        COMPREPLY[i]=${COMPREPLY[i]#"$dropped"}
      done
      ;;
  esac
}
complete -F _inventoryctl inventoryctl

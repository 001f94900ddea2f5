# bash completion for KelmorInfo

_KelmorInfo() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $previous in
    -skip | -DeltaT | -cachesize)
      return
      ;;
    -svg | -view | -salvage)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -d -- "$word")
      return
      ;;
  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(
      compgen -W '-plan -svg -check -view -salvage -json -skip -v -h -help -DeltaT -NoWipe -o -cachesize -NoGzip' \
        -- "$word")
    return
  fi
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(
    compgen -d -- "$word"
    compgen -f -X '!*.h5' -- "$word"
    compgen -f -X '!*.hdf5' -- "$word")
}

complete -F _KelmorInfo KelmorInfo

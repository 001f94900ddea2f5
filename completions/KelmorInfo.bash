# bash completion for KelmorInfo

_KelmorInfo() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $previous in
    -skip | -DeltaT | -cachesize | -show | -at | -from | -to | -columns)
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
      compgen -W '-plan -draw -svg -check -view -salvage -show -json -skip -v -h -help -version -at -from -to -columns -csv -DeltaT -NoWipe -o -cachesize -NoGzip' \
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

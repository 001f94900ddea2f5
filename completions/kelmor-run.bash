# bash completion for kelmor-run

_kelmor_run() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  COMPREPLY=()
  case $previous in
    --accept)
      mapfile -t COMPREPLY < <(compgen -W 'time nan order legend' -- "$word")
      return
      ;;
    -skip | -DeltaT | -cachesize)
      return
      ;;
    --inputs)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      return
      ;;
  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(
      compgen -W '--accept --inputs -skip -v -h -help -version -DeltaT -cachesize -NoWipe -NoGzip' -- "$word")
    return
  fi
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(
    compgen -d -- "$word"
    compgen -f -X '!*.h5' -- "$word"
    compgen -f -X '!*.hdf5' -- "$word")
}

complete -F _kelmor_run kelmor-run

# shellcheck shell=bash
# Reads a drive library (a folder of traces or a manifest) into the list of drives that
# resim.sh hands to GNU parallel, one drive a line, tab-separated:
#   line  label  key  trace  truth  options
# line: the manifest line (folder: the drive's number); label: the drive as written;
# key: SHA-256 of what decides the drive's result (the trace's and the truth's content,
# the options); trace and truth: absolute paths ("builtin" and "" when there are none);
# options: the simulator options, separated by single spaces.
# Source it; library_drives LIBRARY LIST OUT writes LIST or says what is wrong and returns 1.

# Options that name the drive's outputs or its input: the runner sets those itself.
readonly -a LIBRARY_REFUSED_OPTIONS=(-o --out --format --summary-json --path --log --record --plot --geojson
  --path-plot --result-dir --module --trace --soak --help -h --version --realtime --rate)

library_error() {
  echo "resim: $*" >&2
  return 1
}

# The SHA-256 of a file's bytes, in hex.
library_file_sha() {
  local sum
  sum=$(sha256sum <"$1") || return 1
  echo "${sum%% *}"
}

# A manifest's words are separated by spaces; quotes are not read.
library_quote_hint() {
  case "$1" in *\"* | *\'*) echo " (a manifest takes no quotes: its paths cannot hold spaces)" ;; esac
}

# library_key TRACE_SHA TRUTH_SHA OPTION...: the drive's result key.
library_key() {
  local trace_sha=$1 truth_sha=$2 sum
  shift 2
  sum=$({
    printf 'trace %s\ntruth %s\n' "$trace_sha" "$truth_sha"
    [ $# -eq 0 ] || printf 'option %s\n' "$@"
  } | sha256sum)
  echo "${sum%% *}"
}

# library_add LIST WHERE LINE LABEL TRACE TRUTH OPTION...: resolves, hashes and appends
# one drive; WHERE leads its error messages.
library_add() {
  local list=$1 where=$2 line=$3 label=$4 trace=$5 truth=$6 trace_sha=builtin truth_sha=- key
  shift 6
  local field
  for field in "$label" "$trace" "$truth"; do
    case "$field" in *$'\t'*) library_error "$where a tab in \"$field\" cannot be stored" || return 1 ;; esac
  done
  if [ "$trace" != builtin ]; then
    [ -f "$trace" ] && [ -r "$trace" ] || library_error "$where no readable trace \"$trace\"$(library_quote_hint "$trace")" || return 1
    trace=$(realpath -- "$trace") && trace_sha=$(library_file_sha "$trace") || return 1
  fi
  if [ -n "$truth" ]; then
    [ -f "$truth" ] && [ -r "$truth" ] || library_error "$where no readable truth \"$truth\"$(library_quote_hint "$truth")" || return 1
    truth=$(realpath -- "$truth") && truth_sha=$(library_file_sha "$truth") || return 1
  fi
  key=$(library_key "$trace_sha" "$truth_sha" "$@") || return 1
  printf '%s\t%s\t%s\t%s\t%s\t%s\n' "$line" "$label" "$key" "$trace" "$truth" "$*" >>"$list"
}

# library_folder FOLDER LIST SKIP: every *.csv below FOLDER but truths and what is
# below SKIP (the runner's output, when it is inside the library), in name order; a
# trace NAME.csv or NAME.trace.csv takes NAME.truth.csv beside it as its truth.
library_folder() {
  local folder=$1 list=$2 skip=$3 count=0 trace stem truth
  while IFS= read -r -d '' trace; do
    count=$((count + 1))
    stem=${trace%.csv}
    stem=${stem%.trace}
    truth=""
    [ -f "$stem.truth.csv" ] && truth=$stem.truth.csv
    library_add "$list" "$trace:" "$count" "${trace#"$folder"/}" "$trace" "$truth" || return 1
  done < <(find "$folder" -path "$skip" -prune -o -type f -name '*.csv' ! -name '*.truth.csv' -print0 |
    LC_ALL=C sort -z)
  [ "$count" -gt 0 ] || library_error "no traces (*.csv) in $folder"
}

# library_manifest MANIFEST LIST: one drive a line, "builtin" or a trace path relative
# to the manifest, then simulator options; blank lines and "#" comments are skipped.
library_manifest() {
  local manifest=$1 list=$2 base number=0 count=0 text word trace truth next refused
  base=$(cd "$(dirname -- "$manifest")" && pwd) || return 1
  while IFS= read -r text || [ -n "$text" ]; do
    number=$((number + 1))
    text=${text%%$'\r'}
    [[ $text == \#* ]] && continue
    text=${text%%[[:space:]]#*}
    local -a words=() options=()
    read -ra words <<<"$text"
    [ ${#words[@]} -gt 0 ] || continue
    trace=${words[0]}
    [ "$trace" = builtin ] || [ "${trace:0:1}" = / ] || trace=$base/$trace
    truth=""
    next=""
    for word in "${words[@]:1}"; do
      if [ "$next" = truth ]; then
        truth=$word
        next=""
        continue
      fi
      case "$word" in
        --truth) next=truth && continue ;;
        --truth=*) truth=${word#--truth=} && continue ;;
      esac
      for refused in "${LIBRARY_REFUSED_OPTIONS[@]}"; do
        if [ "${word%%=*}" = "$refused" ]; then
          library_error "$manifest:$number: $refused is the runner's to set; a drive takes only what shapes its run"
          return 1
        fi
      done
      options+=("$word")
    done
    [ -z "$next" ] || library_error "$manifest:$number: --truth needs a file" || return 1
    [ -z "$truth" ] || [ "${truth:0:1}" = / ] || truth=$base/$truth
    [ -z "$truth" ] || [ "$trace" != builtin ] || library_error "$manifest:$number: the built-in drive knows its own truth" || return 1
    count=$((count + 1))
    library_add "$list" "$manifest:$number:" "$number" "${words[*]}" "$trace" "$truth" "${options[@]}" || return 1
  done <"$manifest"
  [ "$count" -gt 0 ] || library_error "no drives in $manifest"
}

# library_drives LIBRARY LIST OUT: the drives of a folder or a manifest into LIST
# (replaced); a folder's traces below OUT are the runner's own files, not drives.
library_drives() {
  local library=$1 list=$2 out=$3
  : >"$list" || return 1
  if [ -d "$library" ]; then
    library_folder "$(cd "$library" && pwd)" "$list" "$out"
  elif [ -f "$library" ] && [ -r "$library" ]; then
    library_manifest "$library" "$list"
  else
    library_error "no library \"$library\": give a folder of traces or a manifest file"
  fi
}

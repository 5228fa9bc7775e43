#!/usr/bin/env bash
# The .dlt file of a run opened in DLT Viewer, as the engineers read it: Debian's
# dlt-viewer, headless, converts positioning-sim's --log dlt:FILE.dlt to CSV, and every
# row of the module is held against the text log (--log FILE) of the same drive:
# message count, ECU, application and context ids, level per category, time stamp
# (the simulated time), argument count and the values.
set -euo pipefail
source "$(dirname "$0")/../lib.sh"
need_packages "${BASE_PACKAGES[@]}" dlt-viewer
build_native >/dev/null
sim="$BUILD/tools/positioning-sim/positioning-sim"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export QT_QPA_PLATFORM=offscreen

# convert NAME: $work/NAME.dlt to $work/NAME.csv in DLT Viewer. Debian's viewer 2.23
# now and then crashes on its way out (seen with a fresh home folder), after it wrote
# the whole CSV: the conversion counts when the viewer said it finished the export,
# whatever it exited with, and a crash before that gets two more tries. What the CSV
# holds is checked row by row afterwards, so a cut-short file still fails.
convert() {
  local name=$1 try status
  for try in 1 2 3; do
    status=0
    timeout 300 dlt-viewer -s -csv -c "$work/$name.dlt" "$work/$name.csv" >"$work/$name.viewer" 2>&1 || status=$?
    if grep -q "DLT export CSV done" "$work/$name.viewer" && [ -s "$work/$name.csv" ]; then
      [ "$status" -eq 0 ] || echo "   $name: dlt-viewer exited with status $status after writing the CSV"
      return 0
    fi
    echo "   $name: dlt-viewer stopped with status $status before it finished the export (try $try of 3)"
  done
  cat "$work/$name.viewer"
  echo "FAILED: dlt-viewer did not convert $name.dlt"
  exit 1
}

# check NAME SIM-ARGUMENTS...: one drive, as DLT and as text, compared row by row.
check() {
  local name=$1
  shift
  "$sim" "$@" --quiet --log "dlt:$work/$name.dlt" >/dev/null
  "$sim" "$@" --quiet --log "$work/$name.log" >/dev/null
  convert "$name"
  # Columns: Index, Time, Timestamp, Count, Ecuid, Apid, Ctid, SessionId, Type, Subtype,
  # Mode, #Args, Payload. The payload joins the arguments with blanks (function, file,
  # line, pieces); the text line joins the pieces as they are: both are compared without
  # blanks, with file:line as file line, and addresses (different in every run) as 0x.
  if ! awk -F'","' -v name="$name" '
    function squeeze(text) { gsub(/0x[0-9a-f]+/, "0x", text); gsub(/[ :]/, "", text); return text }
    NR == FNR { line[++lines] = $0; next }
    FNR == 1 { next }
    {
      sub(/"$/, "", $13)
      if ($7 == "SIM") { notes++; next }
      rows++
      if ($5 != "SIMU" || $6 != "PSIM" || $9 != "log" || $11 != "verbose") {
        print name ": row " rows ": not a verbose log message of SIMU PSIM: " $0; bad++; next
      }
      split(line[rows], field, " ")
      level["Error"] = "error"; level["Info"] = "info"; level["Info2"] = "debug"; level["Interface"] = "verbose"
      context = field[3] == "FeatureFw" ? "FFW" : "POSI"
      stamp = sprintf("%.4f", field[1] / 1000)
      text = line[rows]
      sub(/^[^ ]+ [^ ]+ [^ ]+ /, "", text)
      if ($7 != context || $10 != level[field[2]] || $3 != stamp || $12 < 5 || squeeze($13) != squeeze(text)) {
        if (++bad <= 5) print name ": row " rows " differs:\n  viewer: " $0 "\n  text:   " line[rows]
      }
    }
    END {
      if (rows != lines) { print name ": " rows " rows of the module in the viewer, " lines " lines in the text log"; bad++ }
      if (notes < 1) { print name ": no note on the time base"; bad++ }
      printf "   %s: %d messages of the module in DLT Viewer, as the text log has them%s\n", name, rows, bad ? ", " bad " wrong" : ""
      exit bad > 0
    }' "$work/$name.log" "$work/$name.csv"; then
    echo "FAILED: DLT Viewer does not show $name.dlt as the text log has it"
    exit 1
  fi
}

check can --duration 60
check external --diversity EXTERNAL --duration 60 --service-leave 20:30 --late-client 40 --main-unit-unplugged
echo "-- dlt-viewer: both files read as written"

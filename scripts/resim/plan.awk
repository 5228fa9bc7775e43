# Shares the drives resim.sh is to run out into groups of about equal guessed cost, one
# `positioning-sim batch` list a group, so that a program start serves many drives
# while every job slot stays busy to the end. Reads drive list lines (library.py list)
# sorted by cost, dearest first; writes GROUPS/NNNNN.txt and the groups' paths, one a
# line, into GROUPS/list.
#
#   awk -F '\t' -v groups=DIR -v slots=N -v results=DIR -v build=ID -v module=PATH \
#       -f plan.awk DRIVES
#
# A group is given at least target_ms of guessed work where there is that much: a
# batch's start (the program, GNU parallel's job) costs some 20 to 30 ms of CPU, about
# 5 % of 0.6 s. Each slot gets at most 4 groups, the last ones evening out the ends.

# A word as positioning-sim batch reads it back: as it is when it holds nothing that
# splits or quotes, else '...', a ' inside as '"'"'.
function quoted(word) {
  if (word ~ /^[A-Za-z0-9_.,:\/=+@%-]+$/) return word
  gsub(/'/, "'\"'\"'", word)
  return "'" word "'"
}

{
  count++
  cost[count] = $7 + 0
  total += cost[count]
  text = "--module " quoted(module) " --result-dir " quoted(results "/" $3 "/" build)
  if ($4 != "builtin") text = text " --trace " quoted($4)
  if ($5 != "") text = text " --truth " quoted($5)
  words = split($6, option, " ")
  for (word = 1; word <= words; word++) text = text " " quoted(option[word])
  line[count] = text
}

END {
  if (target_ms == "") target_ms = 600
  if (slots < 1) slots = 1
  per_slot = int(total / (slots * target_ms))
  if (per_slot < 1) per_slot = 1
  if (per_slot > 4) per_slot = 4
  n = slots * per_slot
  if (n > count) n = count
  # Dearest first, dealt back and forth over the groups (each round evens out the
  # last), a group's file written whole, one file open at a time.
  for (group = 0; group < n; group++) {
    file = sprintf("%s/%05d.txt", groups, group + 1)
    for (round = 0; round * n < count; round++) {
      at = round * n + (round % 2 == 0 ? group : n - 1 - group)
      if (at < count) print line[at + 1] > file
    }
    close(file)
    print file > (groups "/list")
  }
}

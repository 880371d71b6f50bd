# The grammar of `vorn_tool -h`, one line per command, operation and keyword:
#   cmd MAJOR COMMAND            ("cmd -i -ip")
#   op MAJOR COMMAND OP          ("op -i -ip -s", "op -a -cfg recovery")
#   kw MAJOR COMMAND OP KEYWORD  ("kw -i -ip -s address")
# from the help's blocks: "vorn_tool -i devid -ip", then "   [-s]        : ...",
# "   [-s down]   : ..." and "       address %s : ..." lines.
/^vorn_tool / { major = $2; cmd = $NF; op = ""; print "cmd", major, cmd; next }
/^   \[/ {
  line = $0; sub(/^   \[/, "", line); sub(/\].*/, "", line)
  n = split(line, w, " "); op = w[1]; print "op", major, cmd, op
  if (n > 1) print "kw", major, cmd, op, w[2]
  next
}
/^       [^ ]/ {
  word = $1; sub(/:$/, "", word)
  if (word != "or" && word !~ /^\.+$/ && op != "") print "kw", major, cmd, op, word
}

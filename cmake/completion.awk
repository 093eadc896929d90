# What a program prints for --help, as a completion for bash.
#   PROGRAM --help | awk -v name=PROGRAM -f completion.awk
# An option line is "  --NAME VALUE", or several with commas between. The value says what completes: a path or a prefix of
# paths, or one of the words between "|"; for anything else there is no proposal.

/^  --/ {
  n = split(substr($0, 3), parts, /, (--)/)
  for (i = 1; i <= n; ++i) {
    option = parts[i]
    sub(/^(--)?/, "--", option)
    value = option
    sub(/ .*/, "", option)
    sub(/^[^ ]+ ?/, "", value)
    if (!(option in known)) {
      known[option] = 1
      options = options (options == "" ? "" : " ") option
      if (value ~ /^(path|PATH|FILE|PREFIX)$/) {
        paths = paths (paths == "" ? "" : "|") option
      } else if (value ~ /^[a-z0-9_.|-]+$/ && index(value, "|") > 0) {
        gsub(/\|/, " ", value)
        choices = choices "    " option ")\n      COMPREPLY=($(compgen -W '" value "' -- \"$cur\"))\n      return\n      ;;\n"
      } else if (value != "") {
        others = others (others == "" ? "" : "|") option
      }
    }
  }
}
END {
  function_name = "_" name
  gsub(/-/, "_", function_name)
  print "# bash completion for " name
  print function_name "() {"
  print "  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}"
  print "  COMPREPLY=()"
  print "  case $prev in"
  if (paths != "") {
    print "    " paths ")\n      compopt -o filenames 2>/dev/null\n      mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n      return\n      ;;"
  }
  printf "%s", choices
  if (others != "") {
    print "    " others ")\n      return\n      ;;"
  }
  print "  esac"
  print "  COMPREPLY=($(compgen -W '" options "' -- \"$cur\"))"
  print "}"
  print "complete -F " function_name " " name
}

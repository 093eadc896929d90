# What a program prints for --help, as a manual page (section 1).
#   PROGRAM --help | awk -v name=PROGRAM -v version=VERSION -f man_page.awk
# Usage lines first, then a paragraph that says what the program does, then headings that end with a colon, options that begin
# with two blanks and two dashes, their descriptions, "Example" and "Status".

function roff(text) {
  gsub(/\\/, "\\e", text)
  gsub(/-/, "\\-", text)
  if (text ~ /^[.']/) {
    text = "\\&" text
  }
  return text
}

function section(title) {
  if (literal) {
    print ".fi"
    literal = 0
  }
  print ".SH " title
}

function begin_literal() {
  if (!literal) {
    print ".PP\n.nf"
    literal = 1
  }
}

# The name and the first sentence of the description come before what was read before it.
function title_and_synopsis(paragraph,    sentence) {
  sentence = paragraph
  sub(/[.;:].*/, "", sentence)
  sentence = tolower(substr(sentence, 1, 1)) substr(sentence, 2)
  printf ".TH %s 1 \"\" \"TAVO %s\" \"User Commands\"\n", roff(toupper(name)), version
  print ".SH NAME\n" roff(name) " \\- " roff(sentence)
  print ".SH SYNOPSIS\n.nf"
  for (i = 1; i <= n_usage; ++i) {
    print roff(usage[i])
  }
  print ".fi\n.SH DESCRIPTION"
}

NR == 1 || (in_usage && /^ /) {
  in_usage = 1
  line = $0
  sub(/^(usage:)? +/, "", line)
  usage[++n_usage] = line
  next
}
{ in_usage = 0 }
!described && /^$/ { next }
!described {
  title_and_synopsis($0)
  described = 1
}
/^Examples?:/ {
  section("EXAMPLES")
  sub(/^Examples?: */, "")
  if ($0 != "") {
    print roff($0)
  }
  in_examples = 1
  next
}
/^Status:/ {
  section("EXIT STATUS")
  sub(/^Status: */, "")
  print roff($0)
  in_examples = 0
  next
}
in_examples {
  if ($0 != "") {
    begin_literal()
    print roff($0)
  } else if (literal) {
    print ".fi"
    literal = 0
  }
  next
}
/^  --/ {
  if (!in_options) {
    in_options = 1
    section("OPTIONS")
    if (heading != "") {
      print ".SS " roff(heading)
      heading = ""
    }
  }
  sub(/^ +/, "")
  print ".TP\n.B " roff($0)
  next
}
# A heading stands in front of options, which may not have begun.
/^[A-Z].*:$/ {
  sub(/:$/, "")
  if (in_options) {
    print ".SS " roff($0)
  } else {
    heading = $0
  }
  next
}
/^$/ {
  print ".PP"
  next
}
{
  remark = $0 ~ /^  ? ?[^ ]/ && $0 ~ /^ /
  sub(/^ +/, "")
  if (remark) {
    print ".PP"
  }
  print roff($0)
}

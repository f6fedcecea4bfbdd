# Prints the reference of every public name, docs/api.md of an installation, from the public header: each with its
# declaration and its contract, the comment before it. Ends with status 1, after naming the places, if a declaration has
# no comment.

function flush_text() { text = "" }

function paragraph(line) {
  if (line ~ /^\\file/) return ""
  if (line ~ /^ *\\code/) { in_code = 1; return "```cpp" }
  if (line ~ /^ *\\endcode/) { in_code = 0; return "```" }
  if (in_code) sub(/^  /, "", line)
  return line
}

# The name that a declaration declares.
function name_of(declaration,   name) {
  name = declaration
  sub(/\(.*/, "", name)
  sub(/ *[=;{].*/, "", name)
  sub(/\[.*/, "", name)
  sub(/^.*[ *&]/, "", name)
  return name
}

function finish(   name) {
  name = name_of(declaration)
  if (text == "" && !shares) {
    printf "src/ZoTuningUtils.h:%d: %s has no comment\n", begin, name > "/dev/stderr"
    faults++
  }
  if (!shares) printf "%s# `%s`\n\n%s\n", depth, name, text
  gsub(/ZOTUNING_EXPORT /, "", shown)
  printf "```cpp\n%s```\n\n", shown
  declaration = shown = ""
}

BEGIN {
  print "# The public interface"
  print ""
  print "<!-- Written from ZoTuningUtils.h when the library was installed. -->"
  print ""
}

/^\/\/ ---- Inline bodies/ { exit }
/^ *\/\/ NOLINT/ { next }
/^ *\/\/ ---- / {
  heading = $0
  sub(/^ *\/\/ ---- /, "", heading)
  sub(/ -+$/, "", heading)
  sub(/ \(src\/[^)]*\)/, "", heading)
  depth = scope ? "###" : "##"
  printf "%s %s\n\n", depth, heading
  flush_text()
  after = 0
  next
}
/^ *\/\/\/ ?/ {
  line = $0
  sub(/^ *\/\/\/ ?/, "", line)
  text = text paragraph(line) "\n"
  after = 0
  next
}
/^#pragma once/ {
  sub(/^\n/, "", text)
  print text
  flush_text()
  next
}
/^#/ { next }
# A comment that does not belong to a name.
/^ *\/\/ / { sub(/^ *\/\/ /, ""); note = note $0 "\n"; next }
/^ *$/ {
  if (!in_declaration) {
    if (note != "") printf "%s\n", note
    note = ""
    after = 0
  }
  next
}
/^(class|namespace) .*\{$/ {
  scope = $1 " " ($1 == "class" ? $3 : $2)
  printf "## %s\n\n%s\n", scope, text
  flush_text()
  next
}
/^ public:/ { next }
/^}/ && !in_declaration { scope = ""; flush_text(); next }
{
  if (!in_declaration) {
    begin = NR
    shares = after && text == ""
    in_declaration = 1
    is_struct = $0 ~ /^struct /
  }
  line = $0
  sub(/^  /, "", line)
  if (is_struct) line = $0
  shown = shown line "\n"
  declaration = declaration " " $0
  if (is_struct ? $0 ~ /^};/ : $0 ~ /;$/) {
    finish()
    flush_text()
    in_declaration = 0
    after = 1
  }
}
END { exit faults > 0 }

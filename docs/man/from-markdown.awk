# Makes the body of a manual page in the form of scdoc from a document in Markdown: headings,
# paragraphs, lists, tables, code that is indented by four blanks, `code`, **bold** and *italic*.
# The document's title is left to the frame of the page.

# Text that scdoc would take for markup means itself.
function plain(text) { gsub(/\\/, "&&", text); gsub(/[*_<]/, "\\\\&", text); return text }

# What was markup becomes scdoc's: `code` and **bold** are bold, *italic* is underlined.
function inline(text,    code, count, i, result) {
  gsub(/\*\*`|`\*\*/, "`", text)
  count = split(text, code, "`")
  for (i = 1; i <= count; ++i) result = result (i % 2 ? italic(code[i]) : "*" plain(code[i]) "*")
  return result
}
function italic(text,    parts, count, i, result) {
  count = split(text, parts, "*")
  result = plain(parts[1])
  for (i = 2; i <= count; ++i) result = result "_" plain(parts[i])
  return result
}
function heading(text) { gsub(/`/, "", text); return toupper(plain(text)) }

# A row of a table; the head makes the last column take the room that is left.
function row(line, head,    cells, count, i) {
  gsub(/^\| */, "", line); gsub(/ *\|$/, "", line)
  count = split(line, cells, / *\| */)
  for (i = 1; i <= count; ++i) {
    if (head && cells[i] != "") cells[i] = "`" cells[i] "`"
    print (i == 1 ? "|" : ":") (!head ? " " : i == count ? "<" : "[") " " inline(cells[i])
  }
}

# Whether a part of another kind begins here; code stands between its marks.
function begin(kind) {
  if (part == kind) return 0
  if (part == "code") print "```"
  if (part != "") print ""
  if (kind == "code") print "```"
  part = kind
  return 1
}

# Empty lines end all parts but code, where they wait for what comes next.
/^$/ { if (part == "code") waiting = waiting "\n"; else if (part != "") begin(""); next }
/^    / { begin("code"); gsub(/\\/, "&&"); print waiting substr($0, 5); waiting = ""; next }
{ waiting = "" }
/^# / || /^\|---/ { next }
/^## / { begin("heading"); print "# " heading(substr($0, 4)); next }
/^\|/ { row($0, begin("table")); next }
{ begin("text"); print inline($0) }
END { begin("") }

# Fills the sections of guides into a manual page, so that each is written once:
#
#     awk -v guides=DIRECTORY -v plugins=DIRECTORY -f sections.awk page.7.in
#
# A line "@section FILE.md HEADING" in the page stands for the part of that guide below "## HEADING";
# everything else is copied, with the directory of the parser plug-ins for "@plugins@". Of Markdown it knows what the guides use: paragraphs, bullets, tables,
# code blocks, third-level headings, code, bold and links inside a line.

# Text as roff reads it: no backslash is an escape, and code and bold are set in bold.
function inline(text,    out, code, at) {
    gsub(/\\\|/, "|", text)
    gsub(/\\/, "\\e", text)
    gsub(/…/, "...", text)
    gsub(/\*\*/, "`", text)
    text = unlink(text)
    while ((at = index(text, "`")) > 0) {
        out = out substr(text, 1, at - 1) (code ? "\\fR" : "\\fB")
        code = !code
        text = substr(text, at + 1)
    }
    return out text
}

function unlink(text,    label) {
    while (match(text, /\[[^]]*\]\([^)]*\)/)) {
        label = substr(text, RSTART + 1, RLENGTH - 1)
        sub(/\].*/, "", label)
        text = substr(text, 1, RSTART - 1) label substr(text, RSTART + RLENGTH)
    }
    return text
}

function guarded(line) { return line ~ /^[.']/ ? "\\&" line : line }

# Each sentence begins a line, and lines stay short.
function print_text(text,    words, count, i, line) {
    count = split(text, words, " ")
    for (i = 1; i <= count; i++) {
        if (line != "" && length(line) + length(words[i]) > 76) {
            print guarded(line)
            line = ""
        }
        line = line == "" ? words[i] : line " " words[i]
        if (words[i] ~ /[^B][.!?](\\fR)?[)"']?(\\fR)?$/) {
            print guarded(line)
            line = ""
        }
    }
    if (line != "") print guarded(line)
}

function end_paragraph() {
    if (paragraph == "") return
    if (bullet) print ".It"
    else if (!fresh) print ".Pp"
    print_text(inline(paragraph))
    paragraph = ""
    bullet = fresh = 0
}

function begin_list(kind) {
    if (list == kind) return
    end_list()
    print kind == "bullet" ? ".Bl -bullet" : ".Bl -tag -width Ds"
    list = kind
}

function end_list() {
    end_paragraph()
    if (list != "") print ".El"
    if (list != "") fresh = 0
    list = ""
}

function table_row(line,    cells, count, i, main, text) {
    gsub(/\\\|/, "\001", line)
    count = split(line, cells, "|")
    for (i = 2; i < count; i++) {
        gsub(/^ +| +$/, "", cells[i])
        gsub(/\001/, "|", cells[i])
        if (!in_table) titles[i] = cells[i]
    }
    if (!in_table) { in_table = 1; return }
    if (cells[2] ~ /^-+$/) return
    begin_list("table")
    text = inline(cells[2])
    gsub(/"/, "\\(dq", text)
    print ".It \"" text "\""
    main = 3
    for (i = 3; i < count; i++) if (titles[i] ~ /^(Meaning|Runs when)$/) main = i
    print_text(inline(cells[main]))
    for (i = 3; i < count; i++) {
        if (i == main || cells[i] == "" || cells[i] == "``") continue
        if (cells[main] != "") print ".br"
        print_text((titles[i] != "" ? titles[i] ": " : "") inline(cells[i]))
    }
}

function convert(line) {
    if (line ~ /^```/) {
        if (!in_code) end_list()
        print in_code ? ".Ed" : (fresh ? "" : ".Pp\n") ".Bd -literal -offset indent -compact"
        in_code = !in_code
        fresh = 0
    } else if (in_code) {
        gsub(/\\/, "\\e", line)
        print guarded(line)
    } else if (line ~ /^\|/) {
        end_paragraph()
        table_row(line)
    } else if (line ~ /^### /) {
        end_list()
        print ".Ss " substr(line, 5)
        fresh = 1
    } else if (line ~ /^- /) {
        end_paragraph()
        begin_list("bullet")
        bullet = 1
        paragraph = substr(line, 3)
    } else if (line == "") {
        end_paragraph()
        if (in_table) end_list()
        in_table = 0
    } else {
        if (list == "bullet" && paragraph == "") end_list()
        sub(/^ +/, "", line)
        paragraph = paragraph == "" ? line : paragraph " " line
    }
}

function section(file, heading,    line, inside, found) {
    while ((status = (getline line < file)) > 0) {
        if (line ~ /^## /) inside = substr(line, 4) == heading
        else if (inside) convert(line)
        if (inside) found = 1
    }
    close(file)
    end_list()
    if (found) return
    print "sections.awk: " file ": no section \"" heading "\"" > "/dev/stderr"
    exit 1
}

$1 == "@section" {
    file = $2
    sub(/^@section +[^ ]+ +/, "")
    fresh = 1
    section(guides "/" file, $0)
    next
}
{ gsub(/@plugins@/, plugins); print }

# Fills the tables of docs/areas.md, so that they say what the definitions say:
#
#     awk -v etc=packaging/etc/ucfgd -f docs/areas.awk docs/areas.md
#
# What stands between "<!-- area NAME -->" and "<!-- end -->" is made of features/NAME; the rest is
# copied. An area that the page does not have is an error. The definitions are read as far as the
# shipped ones go: one expression a key, and no "include:".

# Reads a definition file and calls nothing: entries are kept as node, key, value, in order.
function read_definition(file,    line, path, depth, names, name, key, value) {
    count = 0
    depth = 0
    comment = ""
    while ((getline line < file) > 0) {
        sub(/^[ \t]+/, "", line)
        sub(/[ \t]+$/, "", line)
        if (line ~ /^#/) {
            comment = comment (comment == "" ? "" : " ") substr(line, 3)
        } else if (line ~ /\{$/) {
            name = substr(line, 1, length(line) - 2)
            names[++depth] = name
            keep(joined(names, depth), "(node)", comment)
            comment = ""
        } else if (line == "}") {
            depth--
            comment = ""
        } else if (match(line, /^[a-z-]+:/)) {
            key = substr(line, 1, RLENGTH - 1)
            value = substr(line, RLENGTH + 2)
            while (is_open(value) && (getline line < file) > 0) {
                sub(/^[ \t]+/, "", line)
                value = value " " line
            }
            keep(joined(names, depth), key, value)
            comment = ""
        } else {
            comment = ""
        }
    }
    close(file)
}

function keep(node, key, value) {
    count++
    nodes[count] = node
    keys[count] = key
    values[count] = value
}

function joined(names, depth,    i, text) {
    for (i = 1; i <= depth; i++) text = text (i > 1 ? "." : "") names[i]
    return text
}

# Whether a "(" outside of quotes waits for its end.
function is_open(text,    i, c, quote, open) {
    for (i = 1; i <= length(text); i++) {
        c = substr(text, i, 1)
        if (quote != "") {
            if (c == "\\") i++
            else if (c == quote) quote = ""
        } else if (c == "'" || c == "\"") quote = c
        else if (c == "(") open++
        else if (c == ")") open--
    }
    return open > 0
}

# The words of an expression that makes a text: its constants, with "..." for what is only known
# when it runs. Of helpof() and of a condition the first text counts.
function words_of(text,    i, c, quote, depth, part, made, level) {
    for (i = 1; i <= length(text); i++) {
        c = substr(text, i, 1)
        if (quote != "") {
            if (c == "\\") part = part substr(text, ++i, 1)
            else if (c != quote) part = part c
            else {
                quote = ""
                if (depth == level && part != "") made = made part
            }
        } else if (c == "'" || c == "\"") {
            quote = c
            part = ""
        } else if (c == "(") {
            depth++
            if (substr(text, 1, i) ~ /(^|[^a-z])helpof\($/ && made == "") level = depth
        } else if (c == ")") depth--
        else if (c == "," && depth == level && level > 0) break
        else if (c == "$" && depth == level) made = made "..."
    }
    gsub(/ \(\.\.\.\)/, "", made)
    sub(/[.]+$/, "", made)
    return made
}

function help_of(area, text,    name, i, file) {
    if (text !~ /^[a-z]+\(\)$/) return words_of(text)
    name = substr(text, 1, length(text) - 2)
    file = etc "/features/" area "/functions"
    return words_of(function_of(file, name))
}

# The last expression of a function, from its helpof() on.
function function_of(file, name,    line, inside, text) {
    while ((getline line < file) > 0) {
        if (line == name " {") inside = 1
        else if (line == "}") inside = 0
        else if (inside && line ~ /^ *expr: /) text = line
    }
    close(file)
    if (match(text, /helpof\(/)) text = substr(text, RSTART)
    return text
}

# What a value must be, by the checks of the node at an index of entries.
function values_of(node, has,    text, a) {
    if ((node, "type") in has) return type_help[has[node, "type"]]
    text = has[node, "choices"]
    if (text ~ /^list\(/) return listed(text)
    text = has[node, "sanity"]
    if (match(text, /oneof\(\$_, '[^']*'/)) {
        text = substr(text, RSTART + 11, RLENGTH - 12)
        gsub(/ /, ", ", text)
        return text
    }
    if (match(text, /between\('[^']*', \$_, [0-9]+, [0-9]+/)) {
        split(substr(text, RSTART, RLENGTH), a, /, /)
        return a[3] " to " a[4]
    }
    if (match(text, /seterror\(\$_ \.\. ' is (not|neither) [^']*'/)) {
        text = substr(text, RSTART, RLENGTH - 1)
        sub(/^.* is (not|neither) /, "", text)
        sub(/ nor /, " or ", text)
        return text
    }
    if ((node, "len") in has) return "up to " has[node, "len"] " characters"
    return ""
}

function cell(text) {
    gsub(/\|/, "\\|", text)
    gsub(/</, "\\&lt;", text)
    gsub(/\*/, "\\*", text)
    return text
}

function shown(path) {
    gsub(/\.\*/, ".NAME", path)
    gsub(/\|/, "`, `", path)
    return "`" path "`"
}

function read_types(    i) {
    read_definition(etc "/types.conf")
    for (i = 1; i <= count; i++) {
        if (keys[i] == "help") type_help[nodes[i]] = words_of(values[i])
        if (keys[i] == "choices" && !(nodes[i] in type_help)) type_help[nodes[i]] = listed(values[i])
    }
}

# The words of list('a', 'b').
function listed(text) {
    gsub(/^list\(|\)$|'/, "", text)
    return text
}

# "#   WHAT   words" in apply says what the system is told.
function read_apply(    line, what) {
    while ((getline line < (etc "/apply")) > 0) {
        if (line !~ /^#   [a-z]+  /) continue
        sub(/^#   /, "", line)
        what = line
        sub(/ .*/, "", what)
        sub(/^[a-z]+ +/, "", line)
        told[what] = line
    }
    close(etc "/apply")
}

function read_hooks(area,    i, what, note) {
    read_definition(etc "/features/" area "/hooks")
    for (i = 1; i <= count; i++) {
        if (keys[i] == "(node)") note = values[i]
        if (keys[i] !~ /^post-commit/) continue
        what = values[i]
        if (match(what, /applied\('[a-z]+'/)) {
            what = substr(what, RSTART + 9, RLENGTH - 10)
            what = what in told ? told[what] : "`apply " what "`"
        } else what = note != "" ? note : "`" what "`"
        hook[area, nodes[i]] = what
    }
}

function print_files(area,    i, name, n, at, kind, note) {
    read_hooks(area)
    read_definition(etc "/features/" area "/modules")
    for (i = 1; i <= count; i++) {
        if (keys[i] != "(node)") { module[n, keys[i]] = module[n, keys[i]] (module[n, keys[i]] == "" ? "" : " ") values[i]; continue }
        names_of[++n] = nodes[i]
        note_of[n] = values[i]
        split("module file dir pattern pipe-in check flags", fields, " ")
        for (at in fields) module[n, fields[at]] = ""
    }
    if (n == 0) return
    print "| File | Format | |"
    print "|---|---|---|"
    for (i = 1; i <= n; i++) {
        at = module[i, "file"] != "" ? module[i, "file"] : module[i, "dir"] != "" ? module[i, "dir"] "/" module[i, "pattern"] : ""
        kind = module[i, "module"] == "" ? names_of[i] : module[i, "module"]
        note = note_of[i]
        if (module[i, "flags"] ~ /readonly/) note = note (note == "" ? "" : " ") "Never written."
        if (module[i, "check"] != "") note = note (note == "" ? "" : " ") "Before a commit: `" module[i, "check"] "`."
        if ((area, names_of[i]) in hook) note = note (note == "" ? "" : " ") "After a commit: " hook[area, names_of[i]] "."
        gsub(/\.\./, ".", note)
        print "| " (at != "" ? "`" at "`" : module[i, "pipe-in"] != "" ? "a program's words" : "none") " | " kind " | " cell(note) " |"
    }
    print ""
}

# A row for each node with a value; lists say what can be done with their entries.
function print_parameters(area,    i, has, order, n, node, what, title, package) {
    read_definition(etc "/features/" area "/param")
    for (i = 1; i <= count; i++) {
        if (keys[i] != "flags" || !match(values[i], /installed\([^,]*, '[^']*'/)) continue
        package = substr(values[i], RSTART, RLENGTH - 1)
        sub(/^.*'/, "", package)
        print "`" nodes[i] "` is for the package " package ".\n"
    }
    for (i = 1; i <= count; i++) {
        if (keys[i] == "(node)") order[++n] = nodes[i]
        else if (keys[i] == "sanity" || !((nodes[i], keys[i]) in has)) has[nodes[i], keys[i]] = has[nodes[i], keys[i]] " " values[i]
        sub(/^ /, "", has[nodes[i], keys[i]])
    }
    for (i = 1; i <= n; i++) {
        node = order[i]
        if (!((node, "get") in has || (node, "set") in has || (node, "add") in has || (node, "list") in has)) continue
        if ((node, "list") in has) what = (node, "add") in has ? "a list; entries are added" ((node, "del") in has ? " and deleted" : "") ((node, "move") in has ? ", and moved" : "") : "a list, to look at"
        else what = (node, "set") in has ? values_of(node, has) : "to look at"
        if (!title++) print "| Parameter | | Values |\n|---|---|---|"
        print "| " shown(node) " | " cell(help_of(area, has[node, "help"])) " | " cell(what) " |"
    }
    if (title) print ""
}

function print_management(area,    i, has, order, n, node, title) {
    read_definition(etc "/features/" area "/management")
    for (i = 1; i <= count; i++) {
        if (keys[i] == "(node)") order[++n] = nodes[i]
        has[nodes[i], keys[i]] = values[i]
    }
    for (i = 1; i <= n; i++) {
        node = order[i]
        if (!((node, "info") in has || (node, "admin") in has)) continue
        if (!title++) print "| To be asked for, or done | |\n|---|---|"
        print "| " ((node, "admin") in has ? "admin " : "info ") shown(node) " | " cell(help_of(area, has[node, "help"])) " |"
    }
    if (title) print ""
}

BEGIN {
    read_types()
    read_apply()
}

/^<!-- area [a-z]+ -->$/ {
    print
    seen[$3] = 1
    print ""
    print_files($3)
    print_parameters($3)
    print_management($3)
    skipping = 1
}

/^<!-- end -->$/ { skipping = 0 }

!skipping

END {
    ("cd " etc "/features && echo *.conf") | getline all
    n = split(all, areas, " ")
    for (i = 1; i <= n; i++) {
        sub(/\.conf$/, "", areas[i])
        if (!(areas[i] in seen)) { print "no area " areas[i] " in the page" > "/dev/stderr"; failed = 1 }
    }
    exit failed
}

# Whether a new main file is in effect: reads what "effective" says of the old one, "new", and what
# it says of the new one. Each keyword that our parameters manage and that the new file sets in
# another way must be what sshd goes by then.

function refuse(text) {
    if (!refused) print text
    refused = 1
}
# PLACE is a line of the main file.
function ours(place) { return index(place, main ":") == 1 }

# The first of the VALUES in the words of "sshd -T"; one that it may put in others is what it says.
function plain(key, values,    lines, words) {
    split(values, lines, "\n")
    gsub(/["']/, "", lines[2])
    split(tolower(lines[2]), words, " ")
    if (words[1] == "prohibit-password") return "without-password"
    if (words[1] ~ /^[0-9]+$/) return words[1] + 0
    return words[1] ~ /^(yes|no)$/ ? words[1] : in_effect[key]
}

BEGIN {
    managed = " port permitrootlogin passwordauthentication pubkeyauthentication x11forwarding" \
              " maxauthtries clientaliveinterval "
}
$1 == "new" { is_new = 1; next }
/^by-/ {
    key = substr($1, 4)
    value = $0
    sub(/^[^ ]+ [^ ]+ /, "", value)
    if (is_new && !(key in first)) first[key] = $2
    if (is_new && !ours($2)) elsewhere[key] = $2
    if (ours($2)) said[is_new + 0, key] = said[is_new + 0, key] "\n" value
}
is_new && index(managed, " " $1 " ") { in_effect[$1] = $2 }
$1 == "ports" && is_new { for (i = 2; i <= NF; i++) listening[$i] = 1 }
/^match-/ && is_new { overridden[substr($1, 7)] = $2 }
/^by-listenaddress / && is_new && $3 ~ /^"?(\[.*\]|[^:]*):[0-9]+"?$/ { bound = $2 }
/^(password|pubkey|kbdinteractive|gssapi|hostbased|kerberos)authentication yes/ { open[is_new + 0] = 1 }
$1 == "error" { broken = 1 }

END {
    count = split(managed, keys, " ")
    for (i = 1; i <= count; i++) {
        key = keys[i]
        if (broken || said[1, key] == "" || said[0, key] == said[1, key]) continue
        if (!ours(first[key])) refuse(first[key] " sets " key " before " main " does")
        else if (key != "port" && plain(key, said[1, key]) != in_effect[key])
            refuse("it would go by " key " " in_effect[key] " (SSHD_OPTS in /etc/default/ssh)")
        if (key in overridden) refuse(overridden[key] " sets " key " for every connection")
        if (key == "port" && key in elsewhere) refuse(elsewhere[key] " sets a port as well, and ports add up")
        if (key == "port" && bound) refuse(bound " sets an address with a port of its own")
    }
    # Whatever else there is, such as options on the command line.
    count = said[0, "port"] == said[1, "port"] || broken ? 0 : split(said[1, "port"], lines, "\n")
    for (i = 2; i <= count; i++) {
        gsub(/"/, "", lines[i])
        split(lines[i], words, " ")
        wanted[words[1] + 0] = 1
        if (!(words[1] + 0 in listening)) refuse("it would not listen on port " words[1])
    }
    for (port in listening)
        if (count && !(port in wanted)) refuse("it would also listen on port " port)
    if (!open[1] && (open[0] || broken)) refuse("no way to log in would be left")
    if (!refused) print "done"
}

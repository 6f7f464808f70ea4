# Takes what "sshd -T -ddd" prints apart; see "effective". FILE was read in place of MAIN.

# Names of files stand between blanks and must have none; what is watched may be a pattern.
function pattern(name) { gsub(/[ \t]/, "?", name); return name }

# "FILE:LINE setting KEYWORD VALUE", in the order in which the values count. What is set once more,
# when all files have been read, stands in blocks that hold for every connection.
{ sub(/\r$/, "") }
{ sub(/^debug3: reprocess config:/, "debug3: " file ":") }
/^debug3: .+:[0-9]+ setting / {
    match($0, /:[0-9]+ setting /)
    value = substr($0, RSTART + RLENGTH)
    place = pattern(substr($0, 9, RSTART + RLENGTH - 18))
    if (index(place, pattern(file) ":") == 1) place = main substr(place, length(file) + 1)
    key = tolower(value)
    sub(/ .*/, "", key)
    sub(/^[^ ]+ ?/, "", value)
    print (again ? "match-" : "by-") key " " place " " value
    next
}
/^debug2: .* config reprocess config / { again = 1 }
/^debug2: .* line [0-9]+: new include / { sub(/^.*: new include /, ""); print "depends " pattern($0); next }
/^debug[123]: / { next }
/^loglevel / { next }
/^listenaddress / {
    port = $2
    sub(/^.*:/, "", port)
    if (!(port in seen)) ports = ports (ports == "" ? "" : " ") port
    seen[port] = 1
}
/^[a-z0-9]+ / { print }
END { print "ports " ports }

# Takes what "sshd -T -ddd" prints apart; see "effective". FILE was read in place of MAIN.

# "FILE:LINE setting KEYWORD VALUE", in the order in which the values count. What is set once more,
# when all files have been read, stands in blocks that hold for every connection.
{ sub(/\r$/, "") }
{ sub(/^debug3: reprocess config:/, "debug3: " file ":") }
/^debug3: [^ ]+:[0-9]+ setting / {
    place = $2
    if (index(place, file ":") == 1) place = main substr(place, length(file) + 1)
    value = $0
    sub(/^debug3: [^ ]+ setting [^ ]+ ?/, "", value)
    print (again ? "match-" : "by-") tolower($4) " " place " " value
    next
}
/^debug2: .* config reprocess config / { again = 1 }
/^debug2: .* line [0-9]+: new include / { print "depends " $NF }
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

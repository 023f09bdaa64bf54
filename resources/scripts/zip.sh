#!/bin/sh
#
#   zip.exe ARCHIVE FILE
#
# Puts the file into an archive of the working folder, in place of the entry of that name, whatever the case of its
# letters, so that the archive has one manifest. The installed zip does the work.
[ $# -eq 2 ] || exit 16
# Options that a user keeps for zip would change what is packed.
unset ZIPOPT ZIP
pattern=$(printf '%s' "$2" | awk '{
    for (i = 1; i <= length($0); ++i) {
        c = substr($0, i, 1)
        printf "%s", tolower(c) == toupper(c) ? c : "[" tolower(c) toupper(c) "]"
    }
}')
# Without such an entry there is nothing to drop, which zip calls a failure.
zip -q -d "./$1" "$pattern" || [ $? -eq 12 ] || exit
exec zip -q -X "./$1" "$2"

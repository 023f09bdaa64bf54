#!/bin/sh
#
#   zip.exe ARCHIVE FILE
#
# Puts the file into an archive of the working folder, in place of the entry of that name, whatever the case of its
# letters, so that the archive has one manifest. The installed zip does the work.
[ $# -eq 2 ] || exit 16
# Options that a user keeps for zip would change what is packed.
unset ZIPOPT ZIP
# Each letter in both cases, "[aA]", without a process of its own.
rest=$2
pattern=
while [ -n "$rest" ]; do
    letter=${rest%"${rest#?}"}
    rest=${rest#?}
    for both in aA bB cC dD eE fF gG hH iI jJ kK lL mM nN oO pP qQ rR sS tT uU vV wW xX yY zZ; do
        case $both in *"$letter"*) letter="[$both]" && break ;; esac
    done
    pattern=$pattern$letter
done
# Without such an entry there is nothing to drop, which zip calls a failure.
zip -q -d "./$1" "$pattern" || [ $? -eq 12 ] || exit
exec zip -q -X "./$1" "$2"

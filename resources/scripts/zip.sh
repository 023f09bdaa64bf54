#!/bin/sh
#
#   zip.exe ARCHIVE FILE
#
# Puts the file into an archive of the working folder, in the place of the entry of that name, whatever the case of its
# letters, and under that entry's own spelling: who reads the archive as a stream finds the manifest where archives have
# it. Further entries of the name go; without one, the file is added. The installed zip does the work.
[ $# -eq 2 ] || exit 16
# Options that a user keeps for zip would change what is packed.
unset ZIPOPT ZIP
archive=./$1 file=$2
IFS='
'
set -f
# zip lists each name behind two blanks.
set -- $(zip -sf "$archive" | LC_ALL=C grep -ixF "  $file")
entry=${1:-  $file}
entry=${entry#  }
folder=${entry%/*}
made=
if [ "$entry" != "$file" ]; then
    [ -d "$folder" ] || { mkdir "$folder" && made=1; }
    cp "$file" "$entry" || exit
fi
zip -q -X "$archive" "$entry"
status=$?
[ "$entry" = "$file" ] || rm "$entry"
[ -z "$made" ] || rmdir "$folder"
for other; do
    [ "$other" = "  $entry" ] || zip -q -d "$archive" "${other#  }"
done
exit $status

#!/bin/sh
# libc_only_check.sh READELF FILE...: each file NEEDS libc, else only the loader and our own libraries.
readelf=$1
shift
for f; do
    needed=$("$readelf" -d "$f" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p') || exit 1
    echo "$needed" | grep -q '^libc\.so\.' || { echo "$f: no libc among its needs: $needed"; exit 1; }
    other=$(echo "$needed" | grep -v -E '^(libc|ld-linux[-a-z0-9_]*|libvxclient|libmconf|libmutil)\.so\.[0-9]+$') &&
        { echo "$f needs $other"; exit 1; }
done
exit 0

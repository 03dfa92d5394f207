#!/usr/bin/env bash
# The archive has the files of an AAR, and classes.jar the classes without the module's description.
# usage: android_archive_test.sh CMAKE ARCHIVE
set -euo pipefail
export LC_ALL=C
cmake=$1
archive=$(realpath "$2")
folder=$(mktemp -d)
trap 'rm -r "$folder"' EXIT
cd "$folder"
"$cmake" -E tar xf "$archive"

for each in AndroidManifest.xml R.txt classes.jar proguard.txt jni; do
    [ -e "$each" ] || { echo "no $each"; exit 1; }
done
for each in jni/*/; do
    [ -d "$each" ] || continue
    [ -f "$each/libkestrin_profile_jni.so" ] || { echo "no library in $each"; exit 1; }
done
classes=$("$cmake" -E tar tf classes.jar)
grep -qx kestrin/profile/Household.class <<<"$classes" || { echo "no classes"; exit 1; }
if grep -q module-info <<<"$classes"; then echo "a module's description"; exit 1; fi

#!/bin/sh
# conformance.sh FOLDER LIBRARY: plays the conformance cases against the library. Exit status 77 where
# the folder is absent, which ctest reports as skipped.
folder=$1
library=$2
if [ ! -x "$folder/check" ]; then
  echo "no $folder/check, skipped"
  exit 77
fi
exec "$folder/check" "$library"

#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
# Writes the files of the page, and the description of the API, as C++ on standard output.
set -eu
page=$1
openapi=$2

printf '#include "server/resources.h"\n\nnamespace studio {\n\n'
names=
number=0
embed() { # FILE PATH
    printf 'static const unsigned char file_%d[] = {' "$number"
    od -An -v -tu1 "$1" | sed 's/[0-9][0-9]*/&,/g'
    printf '0};\n'
    names="$names    {\"$2\", file_$number, sizeof file_$number - 1},
"
    number=$((number + 1))
}
for file in $(cd "$page" && find . -type f ! -name '.*' | LC_ALL=C sort); do
    embed "$page/$file" "/${file#./}"
done
embed "$openapi" /api/openapi.json
printf '\nconst Resource resources[] = {\n%s};\nconst size_t resource_count = %d;\n\n} // namespace studio\n' "$names" "$number"

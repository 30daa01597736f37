#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the site of the project: build/docs/site/index.html. Broken links, undocumented functions and
# faulty manual pages are errors. Needs a Debian 12 machine; it installs what is missing first.
set -euo pipefail
cd "$(dirname "$0")/.."

work=build/docs
pages=$work/pages

lay_out_the_pages() {
    rm -rf "$pages" "$work/site"
    mkdir -p "$pages/man"
    cp docs/*.md docs/*.svg docs/*.png docs/site/site.css "$pages/"
    cp docs/site/offline.js "$pages/"
    cp -r docs/site/mkdocs.yml docs/site/hooks.py docs/site/theme "$work/"
    sed 's|](docs/|](|g' CHANGELOG.md >"$pages/changelog.md"
    cp CONTRIBUTING.md "$pages/contributing.md"
}

# The manual pages as HTML, and a list of them.
add_the_manuals() {
    printf '# Manual pages\n\n| page | |\n|---|---|\n' >"$pages/manuals.md"
    for page in docs/man/*.[135]; do
        name=$(basename "$page")
        mandoc -Tlint -Wwarning "$page"
        {
            printf '# %s(%s)\n\n' "${name%.*}" "${name##*.}"
            mandoc -Thtml -O fragment,man=%N.%S.html "$page" | sed '/^ *$/d'
        } >"$pages/man/$name.md"
        printf '| [%s(%s)](man/%s.md) | %s |\n' "${name%.*}" "${name##*.}" "$name" \
            "$(sed -n 's/^\.Nd //p' "$page")" >>"$pages/manuals.md"
    done
}

add_the_references() {
    local page
    for page in api api-cpp; do
        rm -rf "$work/doxygen/html"
        doxygen "docs/site/Doxyfile${page#api}"
        python3 docs/site/references.py "$work/doxygen/html" "$pages/$page"
    done
}

packaging/install-packages.sh doc
mkdir -p "$work/doxygen"
lay_out_the_pages
add_the_manuals
add_the_references
mkdocs build --quiet --strict --config-file "$work/mkdocs.yml"
rm "$work/site/404.html" # for a web server's root only
python3 docs/site/check_links.py "$work/site"
echo "The site is in $work/site/index.html"

#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes doxygen's pages pages of the site, with its theme, navigation and search.

    docs/site/references.py DOXYGEN_HTML PAGES
"""
import re
import sys
from pathlib import Path

# Lists that the site's search replaces.
LISTS = re.compile(r"(files|classes|annotated|hierarchy|inherits|namespaces|namespacemembers|functions|globals|dir_)")


def main(source, target):
    target.mkdir(parents=True, exist_ok=True)
    for path in sorted(source.glob("*.html")):
        if LISTS.match(path.name) and not path.name.startswith("classnyxus"):
            continue
        text = path.read_text()
        title = re.search(r'<div class="title">(.*?)(?:<div class="ingroups">.*?</div>)?</div>', text, re.S)
        body = re.search(r'<div class="contents">(.*)</div><!-- contents -->', text, re.S)
        if not title or not body:
            sys.exit(f"{path}: this is not doxygen's page")
        name = re.sub(r"<.*?>|&#160;", " ", title[1]).replace(" File Reference", "").strip()
        (target / path.with_suffix(".md").name).write_text(
            f"# {name}\n\n<div class=\"doxygen\">{body[1]}</div>\n")
    print(f"{source}: {len(list(target.glob('*.md')))} pages")


main(Path(sys.argv[1]), Path(sys.argv[2]))

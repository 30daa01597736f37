#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Every link of a built site leads somewhere, and nothing of a page comes from another host.

    docs/site/check_links.py SITE
"""
import sys
from html.parser import HTMLParser
from pathlib import Path
from urllib.parse import unquote, urlsplit

LOADED = {"img", "script", "link", "iframe", "source", "object"}


class Page(HTMLParser):
    def __init__(self, path):
        super().__init__()
        self.links, self.anchors = [], {"", "top", "__comments"}
        self.feed(path.read_text(errors="replace"))

    def handle_starttag(self, tag, attributes):
        values = dict(attributes)
        self.anchors.update(filter(None, (values.get("id"), values.get("name"))))
        for key in ("href", "src", "data"):
            if values.get(key):
                self.links.append((tag, values[key], values.get("rel")))


def main(site):
    pages = {path.resolve(): Page(path) for path in site.rglob("*.html")}
    broken = []
    for path, page in pages.items():
        for tag, link, rel in page.links:
            url = urlsplit(link)
            if url.scheme in ("data", "mailto", "javascript"):
                continue
            if url.scheme or url.netloc:
                if tag in LOADED and rel != "canonical":
                    broken.append((path, link, "is loaded from another host"))
                continue
            target = (path.parent / unquote(url.path)).resolve() if url.path else path
            if not target.exists():
                broken.append((path, link, "does not exist"))
            elif target in pages and unquote(url.fragment) not in pages[target].anchors:
                broken.append((path, link, "has no such place"))
    for path, link, why in broken:
        print(f"{path.relative_to(site.resolve())}: {link} {why}")
    print(f"{len(pages)} pages, {sum(len(page.links) for page in pages.values())} links, "
          f"{len(broken)} broken")
    return 1 if broken else 0


sys.exit(main(Path(sys.argv[1])))

# SPDX-License-Identifier: Apache-2.0
"""What differs between a page on a code-hosting site and on ours, and the search's index as a script."""
import re
from pathlib import Path

from mkdocs.exceptions import PluginError


def on_page_markdown(markdown, page, **_):
    """Links to the project's other files become their names: the site does not hold them."""
    def name(match):
        if not Path("docs", match[2]).exists():
            raise PluginError(f"{page.file.src_path}: there is no {match[2]}")
        return match[1]

    # There, a '|' in the code of a table needs a backslash; here, that would be shown.
    def row(match):
        return re.sub(r"`([^`]*\\\|[^`]*)`", code, match[0])

    def code(match):
        text = match[1].replace("&", "&amp;").replace("<", "&lt;").replace(r"\|", "&#124;")
        return f"<code>{text}</code>"

    markdown = re.sub(r"\[([^\]]+)\]\((\.\./[^)]+)\)", name, markdown)
    return re.sub(r"^\|.*$", row, markdown, flags=re.MULTILINE)


def on_post_build(config, **_):
    """For offline.js."""
    index = Path(config["site_dir"], "search", "search_index.json")
    index.with_suffix(".js").write_text(f"search_index = {index.read_text()};\n")

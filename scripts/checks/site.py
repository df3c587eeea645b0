#!/usr/bin/env python3
"""Looks at every page of a built site: each relative link leads to a file that is there.  site.py FOLDER"""

import html.parser
import os
import sys
import urllib.parse


class Links(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.targets = set()

    def handle_starttag(self, tag, attrs):
        self.targets |= {value for name, value in attrs if name in ("href", "src") and value}


def faults(page):
    links = Links()
    with open(page, encoding="utf-8") as text:
        links.feed(text.read())
    for target in sorted(links.targets):
        parts = urllib.parse.urlsplit(target)
        if parts.scheme or parts.netloc or not parts.path:
            continue
        path = os.path.normpath(os.path.join(os.path.dirname(page), urllib.parse.unquote(parts.path)))
        if not os.path.exists(path):
            yield f"{page}: {target}: no such file"


def main():
    pages = [os.path.join(folder, name) for folder, _, names in os.walk(sys.argv[1])
             for name in names if name.endswith(".html")]
    # Doxygen checks its own links; a page that the theme makes for wrong addresses has absolute ones.
    pages = [page for page in pages if "/reference/" not in page and not page.endswith("404.html")]
    found = [fault for page in sorted(pages) for fault in faults(page)]
    print(*found, f"{len(pages)} pages, {len(found)} wrong links", sep="\n")
    return 1 if found or len(pages) < 10 else 0


if __name__ == "__main__":
    sys.exit(main())

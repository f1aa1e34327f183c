#!/usr/bin/env python3
"""Fails where a link of a document leads nowhere.

    links.py DOCUMENT...

Looks at links to files of this tree and to headings in them, not at the web.
"""

import os
import re
import sys

LINK = re.compile(r'\]\(([^()\s]+)\)|\b(?:src|href)="([^"]+)"')
ELSEWHERE = re.compile(r'[a-z]+:')


def text_of(path):
    """The document without its blocks of code."""
    with open(path, encoding='utf-8') as file:
        return re.sub(r'^```.*?^```$', '', file.read(), flags=re.M | re.S)


def anchor(heading):
    """As the usual viewers of Markdown make it of a heading."""
    heading = re.sub(r'\[([^]]*)\]\([^)]*\)', r'\1', heading).strip().lower()
    return re.sub(r'[^\w\- ]', '', heading).replace(' ', '-')


def anchors(path):
    return {anchor(x) for x in re.findall(r'^#+ (.*)$', text_of(path), flags=re.M)}


def wrong(document):
    for match in LINK.finditer(text_of(document)):
        link = match[1] or match[2]
        if ELSEWHERE.match(link):
            continue
        path, _, heading = link.partition('#')
        target = os.path.join(os.path.dirname(document), path) if path else document
        if not os.path.exists(target):
            yield f'{document}: {link}: no such file'
        elif heading and heading not in anchors(target):
            yield f'{document}: {link}: no such heading'


def main():
    found = [text for document in sys.argv[1:] for text in wrong(document)]
    print('\n'.join(found), end='\n' if found else '')
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())

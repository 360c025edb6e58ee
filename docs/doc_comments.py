#!/usr/bin/env python3
"""Turns a header's contract comments into doxygen comments, in place.

Usage: doc_comments.py HEADER...

A `//` block that opens the header (after #pragma once) becomes the file's description (`/// @file`); a
`//` block directly above a declaration at namespace or class level becomes that declaration's
description; a `//` comment after a member or enumerator on its line becomes `///<`. Comments inside
function bodies, section rulers (`// ---`) and blocks followed by a blank line are left alone. Running it
again changes nothing. Run clang-format afterwards, then build the docs target: it names any public class
or free function still without a description (a comment above two declarations describes only the first;
bracket such a group with `///@{` after the comment and `///@}` after the last declaration).
"""
import re
import sys

SCOPE = re.compile(r'\b(class|struct|union|enum|namespace)\b[^(]*$|extern\s+"C"')
ACCESS = re.compile(r'(public|private|protected)\s*:')
RULER = re.compile(r'\s*// ?-{2,}')


def split_comment(line):
    """The code and the `//` comment of a line, ignoring // inside string and character literals."""
    quote = None
    i = 0
    while i < len(line):
        c = line[i]
        if quote:
            if c == '\\':
                i += 1
            elif c == quote:
                quote = None
        elif c in '"\'':
            quote = c
        elif line.startswith('//', i):
            return line[:i], line[i:]
        i += 1
    return line, ''


def scope_levels(lines):
    """For each line, whether it starts outside every function body."""
    stack, pending, result = [], '', []
    for line in lines:
        result.append(all(kind == 'scope' for kind in stack))
        code, _ = split_comment(line)
        if code.lstrip().startswith('#'):
            continue
        for c in code:
            if c == '{':
                stack.append('scope' if SCOPE.search(pending) else 'body')
                pending = ''
            elif c == '}':
                if stack:
                    stack.pop()
                pending = ''
            elif c == ';':
                pending = ''
            else:
                pending += c
    return result


def plain_comment(line):
    text = line.strip()
    return text.startswith('//') and not text.startswith('///') and not RULER.match(line)


def declaration(line):
    text = line.strip()
    return bool(text) and not text.startswith(('//', '#', '}')) and not ACCESS.match(text)


def convert(lines):
    at_scope = scope_levels(lines)
    out = list(lines)
    first = next((i for i, l in enumerate(lines) if l.strip() and l.strip() != '#pragma once'), len(lines))
    i = 0
    while i < len(lines):
        if plain_comment(lines[i]):
            j = i
            while j < len(lines) and plain_comment(lines[j]):
                j += 1
            after = lines[j] if j < len(lines) else ''
            intro = i == first and not declaration(after)
            if intro or (declaration(after) and at_scope[i]):
                for k in range(i, j):
                    out[k] = out[k].replace('//', '///', 1)
                if intro:
                    out[i] = '/// @file\n' + out[i]
            i = j
            continue
        code, comment = split_comment(lines[i])
        tail = code.rstrip()
        if (comment and not comment.startswith('///') and at_scope[i] and tail and tail[-1] in ';,}'
                and not code.strip().startswith(('#', '}'))):
            out[i] = code + '///<' + comment[2:]
        i += 1
    return out


def main(paths):
    for path in paths:
        with open(path) as f:
            lines = f.read().split('\n')
        with open(path, 'w') as f:
            f.write('\n'.join(convert(lines)))


if __name__ == '__main__':
    main(sys.argv[1:])

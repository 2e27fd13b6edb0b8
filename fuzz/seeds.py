#!/usr/bin/env python3
"""Makes the seed corpus of each fuzz target from the project's case files.

usage: seeds.py OUT CASE_FILE_OR_FOLDER...

Each file of a case gives a makefile seed (behind a switch byte of 0) or, when
it opens with the version keyword, a workspace seed; its condition lines give
condition seeds, its lines with a reference expansion seeds (in 16-bit units
behind a mode byte), and MAKEFLAGS with the argument line of a case an options
seed. OUT/<target>/ receives the seeds, named by their content's hash.
"""
import hashlib
import os
import re
import sys


def files_of(paths):
    for path in paths:
        if os.path.isdir(path):
            for name in sorted(os.listdir(path)):
                if name.endswith('.case'):
                    yield os.path.join(path, name)
        elif os.path.isfile(path):
            yield path


def blocks_of(case_file):
    """(directive, rest, lines) of every directive of the file."""
    directive, rest, lines = None, '', []
    for raw in open(case_file, encoding='utf-8').read().split('\n') + ['=== end']:
        if raw.startswith(('=== ', '--- ')):
            if directive:
                yield directive, rest, lines
            directive, rest, lines = None, '', []
            if raw.startswith('--- '):
                directive, _, rest = raw[4:].partition(' ')
        elif directive:
            lines.append(raw)


def save(out, target, data):
    folder = os.path.join(out, target)
    os.makedirs(folder, exist_ok=True)
    name = hashlib.sha1(data).hexdigest()[:16]
    with open(os.path.join(folder, name), 'wb') as f:
        f.write(data)


def main():
    out = sys.argv[1]
    for case_file in files_of(sys.argv[2:]):
        makeflags, args = '', ''
        for directive, rest, lines in blocks_of(case_file):
            if directive == 'file' and 'escapes' not in rest:
                text = '\n'.join(lines) + '\n'
                data = text.encode('utf-8')
                if text.lower().startswith('qex_workspace_version'):
                    save(out, 'workspace', data)
                else:
                    save(out, 'makefile', b'\x00' + data)
                for line in lines:
                    match = re.match(r'!\s*(?:else\s*)?if\s+(.*)', line, re.I)
                    if match:
                        save(out, 'condition', match.group(1).encode('utf-8'))
                    if '$' in line or '%' in line:
                        save(out, 'expand', b'\x01' + line.encode('utf-16-le'))
            elif directive == 'env' and rest.startswith('MAKEFLAGS='):
                makeflags = rest[len('MAKEFLAGS='):]
            elif directive == 'args':
                args = rest
                save(out, 'options', (makeflags + '\n' + args).encode('utf-8'))


if __name__ == '__main__':
    main()

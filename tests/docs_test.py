#!/usr/bin/env python3
"""Runs the examples of the README and of docs/*.md, so that no page drifts
from the program.

usage: docs_test.py --tolmek PATH [--windows --launcher wine] PAGE...

An example is one or more fenced blocks that are files, followed by a block
marked `console`. A block marked `makefile` is the file makefile of a fresh
folder; a block marked with a kind and a name (`makefile lib/lib.mak`,
`workspace all.ws`) is the file of that name. In the console block
each line `$ tolmek WORDS` runs the program with those words, and the lines up
to the next `$ ` line are what it prints, standard output and standard error
together; `$ touch NAME` makes a file NAME (or sets its time to now). Since the
last example, comments of the page can prepare the folder and choose a
build: `<!-- files: a.c b.h@2026-11-23T09:00:00 -->` makes files 1000 seconds
old or of that time (UTC), and
`<!-- only posix -->` or `<!-- only windows -->` keeps the example to one
build. The same checks as the case runner's apply.
"""
import argparse
import calendar
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import run_cases  # noqa: E402  (the runner's settings and helpers)

BLOCK = re.compile(r'^```(\w*)( [^\n]+)?\n(.*?)^```', re.M | re.S)


def examples(page):
    """(line, {file name: text}, console, page text since the last example)."""
    text = open(page, encoding='utf-8').read()
    files, start = {}, 0
    for match in BLOCK.finditer(text):
        kind, name, body = match.group(1), match.group(2), match.group(3)
        if kind == 'console' and files:
            between = text[start:match.start()]
            line = text.count('\n', 0, match.start()) + 1
            yield line, files, body, between
            files, start = {}, match.end()
        elif name or kind == 'makefile':
            files[name.strip() if name else 'makefile'] = body


def run_example(files, console, between, opts):
    only = re.search(r'<!-- only (posix|windows) -->', between)
    if only and only.group(1) != ('windows' if opts.windows else 'posix'):
        return None
    work = tempfile.mkdtemp(prefix='tolmek-docs-')
    try:
        for name, text in files.items():
            os.makedirs(os.path.dirname(os.path.join(work, name)), exist_ok=True)
            with open(os.path.join(work, name), 'w') as f:
                f.write(text)
        empty = re.search(r'<!-- files: (.*?) -->', between)
        for word in (empty.group(1).split() if empty else []) + list(files):
            name, _, at = word.partition('@')
            path = os.path.join(work, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            open(path, 'a').close()
            when = calendar.timegm(time.strptime(at, '%Y-%m-%dT%H:%M:%S')) if at else time.time() - 1000
            os.utime(path, (when, when))
        env = {'PATH': os.environ.get('PATH', '/usr/bin:/bin'), 'HOME': os.environ.get('HOME', '/'), 'LANG': 'C.UTF-8',
               'TZ': 'UTC', 'TMP': work, 'TEMP': work, 'WINEDEBUG': '-all'}
        env.update((k, v) for k, v in os.environ.items() if k.startswith(('WINE', 'ASAN_', 'UBSAN_')))
        runs = re.split(r'^\$ ', console, flags=re.M)[1:]
        for run in runs:
            command, _, expected = run.partition('\n')
            words = shlex.split(command)
            if words[0] == 'touch':
                path = os.path.join(work, words[1])
                open(path, 'a').close()
                os.utime(path)
                continue
            proc = subprocess.run(opts.launcher + [opts.tolmek] + words[1:], cwd=work, env=env,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, timeout=60)
            got = run_cases.normalise(proc.stdout, 'cp1252' if opts.windows else 'utf-8')
            if got != expected.rstrip():
                return '$ %s\n--- expected\n%s\n--- actual\n%s' % (command, expected.rstrip(), got)
        return ''
    finally:
        shutil.rmtree(work, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--tolmek', required=True)
    parser.add_argument('--windows', action='store_true')
    parser.add_argument('--launcher', default='')
    parser.add_argument('pages', nargs='+')
    opts = parser.parse_args()
    opts.tolmek = os.path.abspath(opts.tolmek)
    opts.launcher = shlex.split(opts.launcher)
    counts = {'passed': 0, 'failed': 0, 'skipped': 0}
    for page in opts.pages:
        for line, files, console, between in examples(page):
            problem = run_example(files, console, between, opts)
            outcome = 'skipped' if problem is None else 'failed' if problem else 'passed'
            counts[outcome] += 1
            if problem:
                print('FAIL %s:%d\n    %s' % (page, line, problem.replace('\n', '\n    ')))
    print('%(passed)d passed, %(failed)d failed, %(skipped)d skipped' % counts)
    return 1 if counts['failed'] else 0


if __name__ == '__main__':
    sys.exit(main())

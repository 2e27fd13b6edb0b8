#!/usr/bin/env python3
"""The bundled example project builds a real C program with TOLMEK, rebuilds
only what a change touches, and says so when nothing is out of date.

usage: example_test.py --tolmek PATH --example DIR
Works on a copy of the example; file times are set explicitly.
"""
import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import time


def run(tolmek, cwd, *args):
    proc = subprocess.run([tolmek, *args], cwd=cwd, capture_output=True, text=True)
    return proc.returncode, proc.stdout.replace('\r\n', '\n'), proc.stderr


def age(path, seconds):
    t = time.time() - seconds
    os.utime(path, (t, t))


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('--tolmek', required=True)
    ap.add_argument('--example', required=True)
    opts = ap.parse_args()
    opts.tolmek = os.path.abspath(opts.tolmek)
    failures = []

    def check(what, condition, detail=''):
        if not condition:
            failures.append('%s\n%s' % (what, detail))

    with tempfile.TemporaryDirectory() as tmp:
        work = os.path.join(tmp, 'hello')
        shutil.copytree(opts.example, work, ignore=shutil.ignore_patterns('hello', '*.o'))
        for name in os.listdir(work):
            age(os.path.join(work, name), 1000)

        code, out, err = run(opts.tolmek, work)
        check('first build succeeds', code == 0 and err == '', out + err)
        check('first build compiles both objects and links',
              out.count(' -c ') == 2 and 'cc -o hello hello.o greet.o' in out, out)
        program = subprocess.run([os.path.join(work, 'hello')], capture_output=True, text=True)
        check('the program runs', program.returncode == 0 and program.stdout != '', program.stdout)

        # Everything built is now newer than the sources; make the times plain.
        for name in ('hello.o', 'greet.o', 'hello'):
            age(os.path.join(work, name), 500)
        code, out, err = run(opts.tolmek, work)
        check('nothing to do says OK', code == 0 and out == "'hello' is OK.\n", out + err)

        age(os.path.join(work, 'greet.c'), 100)
        code, out, err = run(opts.tolmek, work)
        check('a touched source rebuilds its object and the program only',
              code == 0 and 'greet.c' in out and 'hello.c' not in out and 'cc -o hello' in out,
              out + err)

        for name in ('hello.o', 'greet.o', 'hello'):
            age(os.path.join(work, name), 50)
        age(os.path.join(work, 'greet.h'), 10)
        code, out, err = run(opts.tolmek, work)
        check('the shared header rebuilds both objects',
              code == 0 and 'hello.c' in out and 'greet.c' in out, out + err)

        code, out, err = run(opts.tolmek, work, 'clean')
        check('clean removes what was built',
              code == 0 and not os.path.exists(os.path.join(work, 'hello')), out + err)

    for f in failures:
        print('FAIL ' + f)
    print('%d passed, %d failed' % (6 - len(failures), len(failures)))
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())

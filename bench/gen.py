#!/usr/bin/env python3
"""Generates the benchmark projects. Each kind writes a makefile that both
TOLMEK and GNU make read (plain NAME = value, $(NAME), target: deps, tab
commands), and the files it needs, into a folder.

  gen.py macros DIR [N]     N macros and N description lines referring to them
  gen.py null DIR N         N targets, 4 sources each (some shared), all up to date
  gen.py changed DIR N      the same with the source of the middle target changed
  gen.py commands DIR N     N targets, each running the command `true`
  gen.py chain DIR N        a chain of N targets, each depending on the next
  gen.py repeated DIR N     N lines adding two dependents from a pool of 100 names to one target
  gen.py wide DIR N         one target with N dependents, whose command uses $** and $?
  gen.py macrochain DIR N   N macros each naming the next, expanded once in a command
  gen.py suffixes DIR N     N suffixes and N rules .sK.obj, and N/2 names made by them
  gen.py phony DIR N        N phony targets, each with a command
  gen.py appends DIR N      N lines appending to one macro with +=, which a command uses
"""
import os
import sys
import time


def write(path, text):
    with open(path, 'w') as f:
        f.write(text)


def set_time(path, age):
    t = time.time() - age
    os.utime(path, (t, t))


def macros(d, n):
    lines = ['first:\n']
    for i in range(n):
        lines.append('M%d = value%d $(M%d)\n' % (i, i, max(i - 1, 0)) if i % 10 else 'M%d = value%d\n' % (i, i))
    for i in range(n):
        lines.append('t%d: $(M%d) d%d\n' % (i, i, i))
    write(os.path.join(d, 'makefile'), ''.join(lines))


def null_build(d, n):
    os.makedirs(os.path.join(d, 'src'), exist_ok=True)
    os.makedirs(os.path.join(d, 'obj'), exist_ok=True)
    shared = ['src/common%d.h' % k for k in range(20)]
    for s in shared:
        write(os.path.join(d, s), '')
        set_time(os.path.join(d, s), 2000)
    lines = ['all: prog\n\n', 'prog:']
    lines += [' obj/f%d.obj%s' % (i, ' \\\n' if i % 100 == 99 else '') for i in range(n)]
    lines.append('\n\techo link\n\n')
    for i in range(n):
        src = 'src/f%d.c src/f%d.h src/g%d.h %s' % (i, i, i, shared[i % len(shared)])
        lines.append('obj/f%d.obj: %s\n\techo compile f%d\n' % (i, src, i))
        for s in ('src/f%d.c' % i, 'src/f%d.h' % i, 'src/g%d.h' % i):
            write(os.path.join(d, s), '')
            set_time(os.path.join(d, s), 2000)
        write(os.path.join(d, 'obj/f%d.obj' % i), '')
        set_time(os.path.join(d, 'obj/f%d.obj' % i), 1000)
    write(os.path.join(d, 'prog'), '')
    write(os.path.join(d, 'makefile'), ''.join(lines))


def changed(d, n):
    # The command only echoes, so the object stays old and every run compiles it.
    null_build(d, n)
    set_time(os.path.join(d, 'src/f%d.c' % (n // 2)), 500)


def commands(d, n):
    lines = ['all:' + ''.join(' t%d%s' % (i, ' \\\n' if i % 100 == 99 else '') for i in range(n)) + '\n\n']
    for i in range(n):
        lines.append('t%d:\n\ttrue\n' % i)
    write(os.path.join(d, 'makefile'), ''.join(lines))


def chain(d, n):
    lines = []
    for i in range(n - 1):
        lines.append('c%d: c%d\n' % (i, i + 1))
    lines.append('c%d:\n' % (n - 1))
    write(os.path.join(d, 'makefile'), ''.join(lines))


def repeated(d, n):
    lines = ['tt: a%d b\n' % (i % 100) for i in range(n)] + ['\techo done\n']
    for i in range(100):
        write(os.path.join(d, 'a%d' % i), '')
    write(os.path.join(d, 'b'), '')
    write(os.path.join(d, 'makefile'), ''.join(lines))


def wide(d, n):
    lines = ['tt:' + ''.join(' w%d%s' % (i, ' \\\n' if i % 100 == 99 else '') for i in range(n)),
             '\n\techo $** $?\n']
    for i in range(n):
        write(os.path.join(d, 'w%d' % i), '')
    write(os.path.join(d, 'makefile'), ''.join(lines))


def macrochain(d, n):
    lines = ['A%d = $(A%d)\n' % (i, i + 1) for i in range(1, n)]
    lines += ['A%d = end\n' % n, 'all:\n\techo $(A1)\n']
    write(os.path.join(d, 'makefile'), ''.join(lines))


def suffixes(d, n):
    lines = ['.SUFFIXES:\n']
    for k in range(0, n, 100):
        lines.append('.SUFFIXES:%s %s\n' % (' .obj' if k == 0 else '',
                                            ' '.join('.s%d' % i for i in range(k, min(n, k + 100)))))
    for i in range(n):
        lines.append('.s%d.obj:\n\techo $@\n' % i)
    names = n // 2
    for k in range(0, names, 100):
        lines.append('all: %s\n' % ' '.join('f%d.obj' % j for j in range(k, min(names, k + 100))))
    for j in range(names):
        write(os.path.join(d, 'f%d.s%d' % (j, (j * 7) % n)), '')
    write(os.path.join(d, 'makefile'), ''.join(lines))


def phony(d, n):
    lines = []
    for k in range(0, n, 200):
        names = ' '.join('p%d' % i for i in range(k, min(n, k + 200)))
        lines.append('.PHONY: %s\nall: %s\n' % (names, names))
    for i in range(n):
        lines.append('p%d:\n\techo p%d\n' % (i, i))
    write(os.path.join(d, 'makefile'), ''.join(lines))


def appends(d, n):
    lines = ['A += x%d\n' % i for i in range(n)] + ['all:\n\techo $(A:x1=y)\n']
    write(os.path.join(d, 'makefile'), ''.join(lines))


def main():
    kind, d = sys.argv[1], sys.argv[2]
    n = int(sys.argv[3]) if len(sys.argv) > 3 else 20000
    os.makedirs(d, exist_ok=True)
    {'macros': macros, 'null': null_build, 'changed': changed, 'commands': commands,
     'chain': chain, 'repeated': repeated, 'wide': wide, 'macrochain': macrochain,
     'suffixes': suffixes, 'phony': phony, 'appends': appends}[kind](d, n)


if __name__ == '__main__':
    main()

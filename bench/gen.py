#!/usr/bin/env python3
"""Generates the benchmark projects. Each kind writes a makefile that both
TOLMEK and GNU make read (plain NAME = value, $(NAME), target: deps, tab
commands), and the files it needs, into a folder.

  gen.py macros DIR [N]     N macros and N description lines referring to them
  gen.py null DIR N         N targets, 4 sources each (some shared), all up to date
  gen.py changed DIR N      the same with the source of the middle target changed
  gen.py commands DIR N     N targets, each running the command `true`
  gen.py chain DIR N        a chain of N targets, each depending on the next
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


def main():
    kind, d = sys.argv[1], sys.argv[2]
    n = int(sys.argv[3]) if len(sys.argv) > 3 else 20000
    os.makedirs(d, exist_ok=True)
    {'macros': macros, 'null': null_build, 'changed': changed, 'commands': commands,
     'chain': chain}[kind](d, n)


if __name__ == '__main__':
    main()

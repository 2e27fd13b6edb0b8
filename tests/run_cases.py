#!/usr/bin/env python3
r"""End-to-end case runner for TOLMEK.

A case file holds cases, each opened by '=== title' and made of '--- ' lines,
each with the block of lines up to the next one:

  --- file PATH [age=S|at=YYYY-MM-DDTHH:MM:SS] [noeol] [crlf] [escapes] [enc=CODEC] [bom]
  --- touch PATH age=S         --- mkdir PATH
  --- env NAME=VALUE           --- unenv NAME
  --- args WORDS               split like a POSIX shell splits words
  --- exit N                   expected exit status (default 0)
  --- stdout|stderr [re|has|crlf]   expected output
  --- after exists|absent|file|hex PATH
  --- only posix|windows       --- skip REASON       --- note TEXT

A file without age is 1000 seconds old. With 'escapes', \xNN is the byte NN
and \\ a backslash, and no line ends are added. Output is compared after CR LF
becomes LF and trailing white space at the very end is dropped; 're' takes a
regular expression for the whole output, 'has' lines that must each occur,
'crlf' the raw text with CR LF line ends. {DIR} (the case folder), {WDIR} (the
same as the program sees it), {TOLMEK} and {TAB} are replaced in args, env,
files and expected texts. Each case runs in a fresh folder with PATH, HOME,
LANG=C.UTF-8, TZ=UTC and a private TMP and TEMP as its environment.

--windows runs a native Windows build under --launcher (such as wine): cases
marked 'only posix' are skipped, {WDIR} and {TOLMEK} take Windows forms, and
output is read in code page 1252.
"""
import argparse
import calendar
import concurrent.futures
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
PASSED_ON = ('ASAN_', 'UBSAN_', 'LSAN_')
WINE_VARIABLES = ('WINE', 'XDG_RUNTIME_DIR', 'USER', 'LOGNAME')


class Case:
    def __init__(self, title, source, line):
        self.title, self.source, self.line = title, source, line
        self.steps, self.checks, self.after = [], [], []
        self.env, self.unenv = {}, []
        self.args, self.exit, self.skip, self.only = '', 0, None, None

    def ident(self):
        return '%s:%d %s' % (os.path.basename(self.source), self.line, self.title)


def parse_file(path):
    with open(path, encoding='utf-8') as f:
        lines = f.read().split('\n')
    if lines and lines[-1] == '':
        lines.pop()
    cases, directive, block = [], None, []
    for number, raw in enumerate(lines + ['=== end'], 1):
        if raw.startswith(('=== ', '--- ')):
            if cases and directive:
                add_directive(cases[-1], directive, block)
            directive, block = None, []
            if raw.startswith('=== '):
                cases.append(Case(raw[4:].strip(), path, number))
            else:
                kind, _, rest = raw[4:].partition(' ')
                directive = (kind, rest.strip())
        elif directive:
            block.append(raw)
    return cases[:-1]


def add_directive(case, directive, block):
    kind, rest = directive
    if kind in ('file', 'touch', 'mkdir'):
        case.steps.append((kind, rest, block))
    elif kind == 'env':
        name, _, value = rest.partition('=')
        case.env[name] = value
    elif kind in ('stdout', 'stderr'):
        case.checks.append((kind, rest or 'exact', block))
    elif kind == 'after':
        what, _, path = rest.partition(' ')
        case.after.append((what, path.strip(), block))
    elif kind in ('unenv', 'args', 'exit', 'skip', 'only', 'note'):
        if kind == 'unenv':
            case.unenv.append(rest)
        elif kind != 'note':
            setattr(case, kind, int(rest) if kind == 'exit' else rest or kind)
    else:
        raise ValueError('%s: unknown directive %r' % (case.ident(), kind))


def fill_in(text, ctx, quote=lambda value: value):
    for key in ('DIR', 'WDIR', 'TOLMEK'):
        text = text.replace('{%s}' % key, quote(ctx[key]))
    return text.replace('{TAB}', '\t')


def file_bytes(block, options, ctx):
    text = fill_in('\n'.join(block), ctx)
    if 'escapes' in options:
        out, i, text = bytearray(), 0, text.replace('\n', '')
        while i < len(text):
            if text.startswith('\\x', i):
                out.append(int(text[i + 2:i + 4], 16))
                i += 4
            else:
                step = 2 if text.startswith('\\\\', i) else 1
                out += text[i].encode('utf-8')
                i += step
        return bytes(out)
    eol = '\r\n' if 'crlf' in options else '\n'
    text = text.replace('\n', eol) + (eol if block and 'noeol' not in options else '')
    return (('\ufeff' if 'bom' in options else '') + text).encode(options.get('enc') or 'utf-8')


def set_up(case, work, ctx):
    for kind, rest, block in case.steps:
        words = rest.split()
        path = os.path.join(work, fill_in(words[0], ctx))
        options = dict((w.partition('=')[0], w.partition('=')[2]) for w in words[1:])
        if kind == 'mkdir':
            os.makedirs(path, exist_ok=True)
        elif kind == 'file':
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, 'wb') as f:
                f.write(file_bytes(block, options, ctx))
        when = (calendar.timegm(time.strptime(options['at'], '%Y-%m-%dT%H:%M:%S'))
                if 'at' in options else time.time() - float(options.get('age', 1000)))
        os.utime(path, (when, when), follow_symlinks=False)


def run_program(argv, work, env, timeout):
    """Runs argv in a process group of its own, so that a timeout ends its children too."""
    proc = subprocess.Popen(argv, cwd=work, env=env, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            start_new_session=True)
    try:
        out, err = proc.communicate(timeout=timeout)
        return proc.returncode, out, err
    except subprocess.TimeoutExpired:
        os.killpg(proc.pid, signal.SIGKILL)
        proc.communicate()
        return None, b'', b''


def normalise(data, encoding):
    return data.decode(encoding, errors='replace').replace('\r\n', '\n').rstrip()


def check_stream(name, mode, block, raw, ctx):
    expected = fill_in('\n'.join(block), ctx, re.escape if mode == 're' else str).rstrip()
    actual = normalise(raw, ctx['encoding'])
    if mode == 'exact' and actual != expected:
        return '%s differs:\n--- expected\n%s\n--- actual\n%s' % (name, expected, actual)
    if mode == 're' and not re.fullmatch(expected, actual, re.DOTALL | re.MULTILINE):
        return '%s does not match /%s/:\n%s' % (name, expected, actual)
    if mode == 'has':
        missing = [line for line in expected.split('\n') if line and line not in actual]
        if missing:
            return '%s lacks %r:\n%s' % (name, missing[0], actual)
    if mode == 'crlf':
        wanted = ''.join(line + '\r\n' for line in expected.split('\n')) if block else ''
        got = raw.decode(ctx['encoding'], errors='replace')
        if got != wanted:
            return '%s (raw) differs:\n%r\n%r' % (name, wanted, got)
    return None


def check_after(what, name, block, work, ctx):
    path = os.path.join(work, fill_in(name, ctx))
    if what in ('exists', 'absent'):
        return None if os.path.lexists(path) == (what == 'exists') else '%s: not %s' % (name, what)
    if not os.path.isfile(path):
        return '%s missing' % name
    with open(path, 'rb') as f:
        data = f.read()
    if what == 'file':
        got, wanted = normalise(data, 'utf-8'), fill_in('\n'.join(block), ctx).rstrip()
    else:
        got, wanted = data.hex(), re.sub(r'\s', '', ''.join(block)).lower()
    return None if got == wanted else '%s differs:\n%s\n%s' % (name, wanted, got)


def windows_path(path, cache={}):
    """The Windows form of a folder, asked of winepath once per folder."""
    if path not in cache:
        cache[path] = subprocess.run(['winepath', '-w', path], stdout=subprocess.PIPE,
                                     stderr=subprocess.DEVNULL, check=True
                                     ).stdout.decode('utf-8').strip().rstrip('\\')
    return cache[path]


def run_case(case, opts):
    root = tempfile.mkdtemp(prefix='tolmek-case-')
    try:
        work, tmp = os.path.join(root, 'w'), os.path.join(root, '.tmp')
        os.makedirs(work)
        os.makedirs(tmp)
        work = os.path.realpath(work)
        ctx = {'DIR': work, 'WDIR': work, 'TOLMEK': opts.tolmek, 'encoding': 'utf-8'}
        if opts.windows:
            ctx['encoding'] = 'cp1252'
        if opts.windows and opts.launcher:  # the program sees Windows forms of the paths
            ctx.update(WDIR=windows_path(os.path.dirname(work)) + '\\w',
                       TOLMEK=windows_path(os.path.dirname(opts.tolmek)) + '\\' +
                       os.path.basename(opts.tolmek))
        set_up(case, work, ctx)
        env = {'PATH': os.environ.get('PATH', '/usr/bin:/bin'), 'HOME': os.environ.get('HOME', '/'),
               'LANG': 'C.UTF-8', 'TZ': 'UTC', 'TMP': tmp, 'TEMP': tmp}
        passed_on = PASSED_ON + (WINE_VARIABLES if opts.windows else ())
        env.update((k, v) for k, v in os.environ.items() if k.startswith(passed_on))
        if opts.windows:
            env.setdefault('WINEDEBUG', '-all')  # Wine's own remarks are no output of ours
        env.update((k, fill_in(v, ctx)) for k, v in case.env.items())
        for name in case.unenv:
            env.pop(name, None)
        argv = opts.launcher + [opts.tolmek] + shlex.split(fill_in(case.args, ctx))
        status, out, err = run_program(argv, work, env, opts.timeout)
        if status is None:
            return ['timed out after %ss' % opts.timeout]
        problems = [] if status == case.exit else ['exit %d, expected %d' % (status, case.exit)]
        for stream, mode, block in case.checks:
            problems.append(check_stream(stream, mode, block, out if stream == 'stdout' else err, ctx))
        for what, name, block in case.after:
            problems.append(check_after(what, name, block, work, ctx))
        problems = [p for p in problems if p]
        if problems and err and not any(c[0] == 'stderr' for c in case.checks):
            problems.append('(stderr: %s)' % normalise(err, ctx['encoding'])[:400])
        return problems
    except Exception as e:  # a case that cannot be set up counts as failed
        return ['runner error: %r' % e]
    finally:
        shutil.rmtree(root, ignore_errors=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--tolmek', required=True, help='the program under test')
    parser.add_argument('paths', nargs='*', default=[os.path.join(HERE, 'cases')],
                        help='case files or folders of them')
    parser.add_argument('--windows', action='store_true', help='a native Windows build')
    parser.add_argument('--launcher', default='', help='put in front of the program, e.g. wine')
    parser.add_argument('-k', dest='substring', help='only cases whose "file:line title" holds this')
    parser.add_argument('-v', dest='verbose', action='store_true', help='list every case')
    parser.add_argument('-j', dest='jobs', type=int, default=2, help='cases run at once')
    parser.add_argument('--timeout', type=float, default=60, help='seconds per case')
    opts = parser.parse_args()
    opts.tolmek = os.path.abspath(opts.tolmek)
    opts.launcher = shlex.split(opts.launcher)
    if opts.launcher:  # looked up now, since a case may unset PATH
        opts.launcher[0] = shutil.which(opts.launcher[0]) or opts.launcher[0]
    files = []
    for path in opts.paths:
        files += (sorted(os.path.join(path, n) for n in os.listdir(path) if n.endswith('.case'))
                  if os.path.isdir(path) else [path])
    platform = 'windows' if opts.windows else 'posix'
    cases = [c for f in files for c in parse_file(f)
             if not opts.substring or opts.substring in c.ident()]
    counts = {'passed': 0, 'failed': 0, 'skipped': 0}
    # Under Wine the user's formats live in one registry that every starting
    # program rewrites for its own locale: a case that sets one runs alone.
    alone = lambda c: opts.windows and any(n.startswith(('LC_', 'LANG')) for n in c.env)
    runnable = [not c.skip and c.only in (None, platform) for c in cases]
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, opts.jobs)) as pool:
        runs = [pool.submit(run_case, c, opts) if ok and not alone(c) else None
                for c, ok in zip(cases, runnable)]
    with concurrent.futures.ThreadPoolExecutor(max_workers=1) as pool:
        runs = [pool.submit(run_case, c, opts) if ok and alone(c) else run
                for c, ok, run in zip(cases, runnable, runs)]
        for case, run in zip(cases, runs):
            problems = run.result() if run else None
            outcome = 'skipped' if run is None else 'failed' if problems else 'passed'
            counts[outcome] += 1
            if problems:
                detail = '\n'.join(problems)[:3000]
                print('FAIL %s\n    %s' % (case.ident(), detail.replace('\n', '\n    ')))
            elif opts.verbose:
                print('%-4s %s' % ('ok' if run else 'skip', case.ident()))
            sys.stdout.flush()
    print('%(passed)d passed, %(failed)d failed, %(skipped)d skipped' % counts)
    return 1 if counts['failed'] or not counts['passed'] + counts['skipped'] else 0


if __name__ == '__main__':
    sys.exit(main())

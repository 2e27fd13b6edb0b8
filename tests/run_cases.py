#!/usr/bin/env python3
r"""End-to-end case runner for TOLMEK.

A case file holds one or more cases, each opened by a '=== title' line and
made of '--- ' directives, each with the block of lines up to the next one:

  --- file PATH [age=S] [noeol] [crlf] [escapes]   create a file, block = content
  --- touch PATH age=S         set the time of an existing file or folder
  --- mkdir PATH               create a folder
  --- env NAME=VALUE           --- unenv NAME
  --- args WORDS               split like a POSIX shell splits words
  --- exit N                   expected exit status (default 0)
  --- stdout|stderr [re|has|crlf]   expected output, block = text
  --- after exists|absent|file|hex PATH
  --- skip REASON              --- note TEXT

age=S puts a time S seconds in the past (negative: the future); a file or
--- mkdir folder without one is 1000 seconds old. With 'escapes', \xNN is the byte
NN and \\ a backslash, and only line ends written as \x0a or \x0d count.
Output is compared exactly after CR LF is folded to LF and trailing
whitespace at the very end is dropped; 're' takes a regular expression for
the whole output, 'has' a list of lines each of which must occur, 'crlf' the
raw bytes with CR LF line ends.

{DIR} (the case's folder), {TOLMEK} (the program path) and {TAB} are
replaced in args, env, file contents and expected texts. Each case runs in a
fresh temporary folder whose 'w' subfolder is the current directory, with
PATH, HOME, LANG=C.UTF-8, TZ=UTC and a private TMP and TEMP as environment
(plus the sanitizer options, and WINE* with a launcher, when they are set).

Besides the checks the case states, every expected line holding 'NAME(N): '
where NAME is a file of the case must point at an existing, non-blank line N
of that file, so that an edit above a diagnosed line cannot shift it unseen.

--accept rewrites the exact stdout/stderr blocks of failing cases from what
the program printed; read the result in 'git diff' before committing it.
"""
import argparse
import concurrent.futures
import os
import re
import shlex
import signal
import shutil
import subprocess
import sys
import tempfile
import threading
import time
from dataclasses import dataclass, field
from typing import List, Optional

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_AGE = 1000.0
STREAM_MODES = ('exact', 're', 'has', 'crlf')
AFTER_KINDS = ('exists', 'absent', 'file', 'hex')
SANITIZER_VARIABLES = ('ASAN_OPTIONS', 'UBSAN_OPTIONS', 'LSAN_OPTIONS')


@dataclass
class Block:
    """The lines of a directive and where they stand in the case file."""
    lines: List[str]
    first: int  # index into the file's lines of the first block line
    end: int    # index one past the last block line


@dataclass
class Check:
    stream: str  # 'stdout' or 'stderr'
    mode: str
    block: Block


@dataclass
class Case:
    title: str
    source: str
    line: int
    steps: list = field(default_factory=list)   # (kind, rest, Block)
    args_text: str = ''
    exit: int = 0
    checks: List[Check] = field(default_factory=list)
    after: list = field(default_factory=list)   # (kind, path, Block)
    env: dict = field(default_factory=dict)
    unenv: list = field(default_factory=list)
    skip: Optional[str] = None
    broken: Optional[str] = None  # why the case cannot be run as written

    def ident(self):
        return '%s:%d %s' % (os.path.basename(self.source), self.line, self.title)


@dataclass
class Outcome:
    problems: List[str]
    stdout: bytes = b''
    stderr: bytes = b''
    ran: bool = False
    differing: List[Check] = field(default_factory=list)  # exact checks that failed
    ctx: Optional[dict] = None


# ---------------------------------------------------------------- reading

def read_case_lines(path):
    """Lines as the parser numbers them: CR LF and lone CR count as LF."""
    with open(path, encoding='utf-8') as f:
        lines = f.read().split('\n')
    if lines and lines[-1] == '':
        lines.pop()
    return lines


def parse_case_file(path):
    cases = []
    case = None
    directive = None
    start = 0
    lines = read_case_lines(path)

    def close_directive(end):
        if case is not None and directive is not None:
            add_directive(case, directive[0], directive[1], Block(lines[start:end], start, end))

    for index, raw in enumerate(lines):
        if raw.startswith('=== '):
            close_directive(index)
            directive = None
            case = Case(raw[4:].strip(), path, index + 1)
            cases.append(case)
        elif raw.startswith('--- ') or raw == '---':
            close_directive(index)
            kind, _, rest = raw[4:].partition(' ')
            directive = (kind, rest.strip())
            start = index + 1
    close_directive(len(lines))
    return cases


def add_directive(case, kind, rest, block):
    if kind in ('file', 'touch', 'mkdir'):
        case.steps.append((kind, rest, block))
    elif kind == 'env':
        name, _, value = rest.partition('=')
        case.env[name] = value
    elif kind == 'unenv':
        case.unenv.append(rest)
    elif kind == 'args':
        case.args_text = rest
    elif kind == 'exit':
        try:
            case.exit = int(rest)
        except ValueError:
            case.broken = 'bad exit status %r' % rest
    elif kind in ('stdout', 'stderr'):
        mode = rest or 'exact'
        if mode not in STREAM_MODES:
            case.broken = 'unknown check mode %r' % mode
        case.checks.append(Check(kind, mode, block))
    elif kind == 'after':
        what, _, path = rest.partition(' ')
        if what not in AFTER_KINDS:
            case.broken = 'unknown after check %r' % what
        case.after.append((what, path.strip(), block))
    elif kind == 'skip':
        case.skip = rest or 'skipped'
    elif kind == 'note':
        pass
    else:
        case.broken = 'unknown directive %r' % kind


# ---------------------------------------------------------------- setting up

def fill_in(text, ctx):
    return (text.replace('{DIR}', ctx['DIR'])
                .replace('{TOLMEK}', ctx['TOLMEK'])
                .replace('{TAB}', '\t'))


def decode_escapes(text):
    r"""\xNN is the byte NN and \\ a backslash; everything else is UTF-8."""
    out = bytearray()
    i = 0
    while i < len(text):
        if text[i] == '\\' and i + 1 < len(text):
            follower = text[i + 1]
            if follower == 'x':
                out.append(int(text[i + 2:i + 4], 16))
                i += 4
                continue
            if follower == '\\':
                out.append(0x5C)
                i += 2
                continue
        out.extend(text[i].encode('utf-8'))
        i += 1
    return bytes(out)


def split_step(rest):
    words = rest.split()
    options = {}
    for word in words[1:]:
        key, _, value = word.partition('=')
        options[key] = value
    return (words[0] if words else None), options


def file_content(block, options, ctx):
    if 'escapes' in options:
        return decode_escapes(fill_in('\n'.join(block.lines), ctx).replace('\n', ''))
    eol = '\r\n' if 'crlf' in options else '\n'
    text = eol.join(fill_in(line, ctx) for line in block.lines)
    if block.lines and 'noeol' not in options:
        text += eol
    return text.encode('utf-8')


def set_age(path, age):
    when = time.time() - age
    os.utime(path, (when, when), follow_symlinks=False)


def set_up_files(case, work, ctx):
    """Creates the case's files; returns {relative path: content} for the lint."""
    written = {}
    for kind, rest, block in case.steps:
        name, options = split_step(rest)
        if name is None:
            raise ValueError('--- %s needs a path' % kind)
        name = fill_in(name, ctx)
        path = os.path.join(work, name)
        age = float(options.get('age', DEFAULT_AGE))
        if kind == 'mkdir':
            os.makedirs(path, exist_ok=True)
        elif kind == 'file':
            os.makedirs(os.path.dirname(path) or work, exist_ok=True)
            data = file_content(block, options, ctx)
            with open(path, 'wb') as f:
                f.write(data)
            written[os.path.normpath(name)] = data
        set_age(path, age)
    return written


def make_environment(case, tmp, ctx, launcher):
    env = {
        'PATH': os.environ.get('PATH', '/usr/bin:/bin'),
        'HOME': os.environ.get('HOME', '/root'),
        'LANG': 'C.UTF-8',
        'TZ': 'UTC',
        'TMP': tmp,
        'TEMP': tmp,
    }
    # These configure the sanitizer build or the launcher, not TOLMEK.
    passed_on = SANITIZER_VARIABLES + (('WINE',) if launcher else ())
    env.update((k, v) for k, v in os.environ.items() if k.startswith(passed_on))
    for name, value in case.env.items():
        env[name] = fill_in(value, ctx)
    for name in case.unenv:
        env.pop(name, None)
    return env


# ---------------------------------------------------------------- running

live_groups = set()
live_lock = threading.Lock()


def run_program(argv, work, env, timeout):
    """Runs argv in its own process group, so that a timeout also ends its children."""
    proc = subprocess.Popen(argv, cwd=work, env=env, stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            start_new_session=True)
    with live_lock:
        live_groups.add(proc.pid)
    try:
        out, err = proc.communicate(timeout=timeout)
        return proc.returncode, out, err
    except subprocess.TimeoutExpired:
        kill_group(proc.pid)
        proc.communicate()
        return None, b'', b''
    finally:
        with live_lock:
            live_groups.discard(proc.pid)


def kill_group(pid):
    try:
        os.killpg(pid, signal.SIGKILL)
    except (ProcessLookupError, PermissionError):
        pass


def normalise(data):
    return data.decode('utf-8', errors='replace').replace('\r\n', '\n').rstrip()


def check_stream(check, raw, ctx):
    expected = fill_in('\n'.join(check.block.lines), ctx)
    actual = normalise(raw)
    name = check.stream
    if check.mode == 'exact':
        if actual != expected.rstrip():
            return '%s differs:\n--- expected\n%s\n--- actual\n%s' % (name, expected.rstrip(), actual)
    elif check.mode == 're':
        if not re.fullmatch(expected.rstrip(), actual, re.DOTALL | re.MULTILINE):
            return '%s does not match /%s/:\n%s' % (name, expected.rstrip(), actual)
    elif check.mode == 'has':
        for line in expected.split('\n'):
            if line and line not in actual:
                return '%s lacks %r:\n%s' % (name, line, actual)
    elif check.mode == 'crlf':
        wanted = ''.join(line + '\r\n' for line in expected.split('\n')) if check.block.lines else ''
        got = raw.decode('utf-8', errors='replace')
        if got != wanted:
            return '%s (raw) differs:\n--- expected\n%r\n--- actual\n%r' % (name, wanted, got)
    return None


def check_after(what, name, block, work, ctx):
    path = os.path.join(work, fill_in(name, ctx))
    if what == 'exists':
        return None if os.path.lexists(path) else '%s should exist' % name
    if what == 'absent':
        return '%s should not exist' % name if os.path.lexists(path) else None
    if not os.path.isfile(path):
        return '%s missing' % name
    with open(path, 'rb') as f:
        data = f.read()
    if what == 'file':
        got = normalise(data)
        wanted = fill_in('\n'.join(block.lines), ctx).rstrip()
        if got != wanted:
            return '%s content differs:\n--- expected\n%s\n--- actual\n%s' % (name, wanted, got)
    else:
        wanted = re.sub(r'\s', '', ''.join(block.lines)).lower()
        if data.hex() != wanted:
            return '%s bytes differ: expected %s, got %s' % (name, wanted, data.hex())
    return None


# ---------------------------------------------------------------- position lint

POSITION = re.compile(r'(?:^|(?<=[\s/\\\'"]))([^\s/\\\'"():]+)\((\d+)\): ')


def makefile_lines(data):
    """Physical lines as the reader counts them: CR, LF and CR LF each end one."""
    if data.startswith(b'\xff\xfe') and not data.startswith(b'\xff\xfe\x00\x00'):
        text = data[2:len(data) & ~1].decode('utf-16-le', errors='replace')
    elif data.startswith(b'\xfe\xff'):
        text = data[2:len(data) & ~1].decode('utf-16-be', errors='replace')
    else:
        text = data.decode('utf-8', errors='replace')
    text = text.split('\x1a', 1)[0]
    lines = re.split(r'\r\n|\r|\n', text)
    if lines and lines[-1] == '':
        lines.pop()
    return lines


def lint_positions(case, written, ctx):
    by_name = {}
    for path, data in written.items():
        by_name.setdefault(os.path.basename(path).lower(), []).append((path, data))
    problems = []
    for check in case.checks:
        if check.mode == 're':
            continue
        for text in fill_in('\n'.join(check.block.lines), ctx).split('\n'):
            for match in POSITION.finditer(text):
                files = by_name.get(match.group(1).lower())
                if not files:
                    continue
                number = int(match.group(2))
                verdicts = [position_problem(path, makefile_lines(data), number)
                            for path, data in files]
                if all(verdicts):
                    problems.append('expected %s names %s(%d), but %s'
                                    % (check.stream, match.group(1), number,
                                       '; '.join(verdicts)))
    return problems


def position_problem(path, lines, number):
    if number < 1 or number > len(lines):
        return '%s has %d line%s' % (path, len(lines), '' if len(lines) == 1 else 's')
    if not lines[number - 1].strip():
        return 'line %d of %s is blank' % (number, path)
    return None


# ---------------------------------------------------------------- one case

def run_case(case, tolmek, launcher, timeout):
    if case.broken:
        return Outcome(['case cannot be run: %s' % case.broken])
    if not os.path.exists(tolmek):
        return Outcome(['no program at %s' % tolmek])
    root = tempfile.mkdtemp(prefix='tolmek-case-')
    try:
        tmp = os.path.join(root, '.tmp')
        work = os.path.join(root, 'w')
        os.makedirs(tmp)
        os.makedirs(work)
        work = os.path.realpath(work)
        ctx = {'DIR': work, 'TOLMEK': tolmek}
        written = set_up_files(case, work, ctx)
        env = make_environment(case, tmp, ctx, launcher)
        args = shlex.split(fill_in(case.args_text, ctx))
        status, out, err = run_program(launcher + [tolmek] + args, work, env, timeout)
        if status is None:
            return Outcome(['timed out after %ss' % timeout], ctx=ctx)
        outcome = Outcome([], out, err, True, ctx=ctx)
        if status != case.exit:
            outcome.problems.append('exit %d, expected %d' % (status, case.exit))
        for check in case.checks:
            problem = check_stream(check, out if check.stream == 'stdout' else err, ctx)
            if problem:
                outcome.problems.append(problem)
                if check.mode == 'exact':
                    outcome.differing.append(check)
        for what, name, block in case.after:
            problem = check_after(what, name, block, work, ctx)
            if problem:
                outcome.problems.append(problem)
        outcome.problems += lint_positions(case, written, ctx)
        if outcome.problems and err and not any(c.stream == 'stderr' for c in case.checks):
            outcome.problems.append('(stderr: %s)' % normalise(err)[:400])
        return outcome
    except Exception as e:  # a case that cannot be set up counts as failed
        return Outcome(['runner error: %r' % e])
    finally:
        shutil.rmtree(root, ignore_errors=True)


# ---------------------------------------------------------------- accepting

def accepted_lines(check, outcome):
    """The block that would make the check pass, or a reason why there is none."""
    raw = outcome.stdout if check.stream == 'stdout' else outcome.stderr
    text = normalise(raw)
    if '\r' in text:
        return None, 'a lone CR cannot stand in a case file'
    places = sorted(((outcome.ctx['DIR'], '{DIR}'), (outcome.ctx['TOLMEK'], '{TOLMEK}')),
                    key=lambda pair: -len(pair[0]))
    for value, placeholder in places:
        text = text.replace(value, placeholder)
    lines = text.split('\n') if text else []
    if any(line.startswith(('=== ', '--- ')) or line == '---' for line in lines):
        return None, 'a line of the output looks like a directive'
    return lines, None


def accept_outputs(results):
    """Rewrites differing exact blocks, bottom up so that earlier indices stay valid."""
    edits = {}
    for case, outcome in results:
        for check in outcome.differing:
            lines, reason = accepted_lines(check, outcome)
            if reason:
                print('not accepted: %s %s: %s' % (case.ident(), check.stream, reason))
                continue
            edits.setdefault(case.source, []).append((check.block, lines))
    for source, changes in edits.items():
        with open(source, encoding='utf-8', newline='') as f:
            raw = f.read()
        eol = '\r\n' if '\r\n' in raw else '\n'
        lines = read_case_lines(source)
        for block, new_lines in sorted(changes, key=lambda c: -c[0].first):
            kept_blank = len(block.lines) - len(trim_blank_end(block.lines))
            lines[block.first:block.end] = new_lines + [''] * kept_blank
        with open(source, 'w', encoding='utf-8', newline='') as f:
            f.write(eol.join(lines) + eol)
        print('accepted %d block(s) in %s' % (len(changes), source))


def trim_blank_end(lines):
    end = len(lines)
    while end and not lines[end - 1].strip():
        end -= 1
    return lines[:end]


# ---------------------------------------------------------------- driver

def collect_files(paths):
    files = []
    for path in paths:
        if os.path.isdir(path):
            files += sorted(os.path.join(path, name) for name in os.listdir(path)
                            if name.endswith('.case'))
        else:
            files.append(path)
    return files


def load_cases(files, substring):
    cases = []
    for path in files:
        try:
            found = parse_case_file(path)
        except (OSError, UnicodeDecodeError) as e:
            broken = Case('(unreadable)', path, 0, broken=str(e))
            found = [broken]
        cases += [c for c in found if not substring or substring in c.ident()]
    return cases


def report_outcome(case, outcome, verbose):
    if outcome is None:
        if verbose:
            print('skip %s (%s)' % (case.ident(), case.skip))
    elif outcome.problems:
        detail = '\n'.join(outcome.problems).replace('\n', '\n    ')
        print('FAIL %s\n    %s' % (case.ident(), detail))
    elif verbose:
        print('ok   %s' % case.ident())
    sys.stdout.flush()


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument('--tolmek', required=True, help='the program under test')
    parser.add_argument('paths', nargs='*', default=[os.path.join(HERE, 'cases')],
                        help='case files or folders of them')
    parser.add_argument('--launcher', default='',
                        help='command put in front of the program, e.g. "wine"')
    parser.add_argument('-k', dest='substring', default=None,
                        help='run only cases whose "file:line title" holds this')
    parser.add_argument('-v', dest='verbose', action='store_true', help='list every case')
    parser.add_argument('-j', dest='jobs', type=int, default=2, help='cases run at once')
    parser.add_argument('--timeout', type=float, default=20, help='seconds per case')
    parser.add_argument('--accept', action='store_true',
                        help='rewrite failing exact output blocks from the actual output')
    opts = parser.parse_args()

    tolmek = os.path.abspath(opts.tolmek)
    launcher = shlex.split(opts.launcher)
    cases = load_cases(collect_files(opts.paths), opts.substring)
    passed = failed = skipped = 0
    results = []
    with concurrent.futures.ThreadPoolExecutor(max_workers=max(1, opts.jobs)) as pool:
        futures = [None if case.skip else
                   pool.submit(run_case, case, tolmek, launcher, opts.timeout)
                   for case in cases]
        try:
            for case, future in zip(cases, futures):
                outcome = future.result() if future else None
                report_outcome(case, outcome, opts.verbose)
                if outcome is None:
                    skipped += 1
                elif outcome.problems:
                    failed += 1
                    results.append((case, outcome))
                else:
                    passed += 1
        except KeyboardInterrupt:
            for future in futures:
                if future:
                    future.cancel()
            with live_lock:
                for pid in list(live_groups):
                    kill_group(pid)
            print('interrupted')
            return 130
    if opts.accept:
        accept_outputs([(c, o) for c, o in results if o.ran])
    print('%d passed, %d failed, %d skipped' % (passed, failed, skipped))
    return 1 if failed else 0


if __name__ == '__main__':
    sys.exit(main())

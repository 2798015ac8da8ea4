#!/usr/bin/env python3
"""Mutation run: applies each mutant of a data file to the product code,
rebuilds, runs the tests and reports whether the tests noticed (killed) or
not (survived). The tree is restored after every mutant, also on ^C.

  scripts/mutate.py                    every mutant of scripts/mutants.txt
  scripts/mutate.py --check            only checks that each mutant applies
  scripts/mutate.py --only a,b         the named mutants
  scripts/mutate.py --ctest-args '-L client'
  scripts/mutate.py --matrix kills.txt  runs every test on every mutant and
                                       writes the tests that failed on each

It builds in its own tree (build-mut, release settings) so that the normal
builds stay untouched. A mutant whose build fails is reported as stillborn.
"""
import argparse, os, subprocess, sys, time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def unescape(text):
    out, i = [], 0
    while i < len(text):
        if text[i] == '\\' and i + 1 < len(text) and text[i + 1] in 'n\\':
            out.append('\n' if text[i + 1] == 'n' else '\\')
            i += 2
        else:
            out.append(text[i])
            i += 1
    return ''.join(out)


def load(path):
    mutants, cur = [], None
    for n, line in enumerate(open(path), 1):
        line = line.rstrip('\n')
        if line.startswith('@ '):
            name, _, file = line[2:].partition('|')
            cur = {'name': name.strip(), 'file': file.strip(), 'line': n}
            mutants.append(cur)
        elif line.startswith('- ') and cur is not None:
            cur['old'] = unescape(line[2:])
        elif line.startswith('+ ') and cur is not None:
            cur['new'] = unescape(line[2:])
    for m in mutants:
        if 'old' not in m or 'new' not in m:
            sys.exit(f"{path}:{m['line']}: mutant {m['name']} lacks a - or + line")
    return mutants


def run(cmd, timeout=40 * 60):
    return subprocess.run(cmd, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, timeout=timeout)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument('--mutants', default=os.path.join(ROOT, 'scripts', 'mutants.txt'))
    ap.add_argument('--build-dir', default='build-mut')
    ap.add_argument('--only', default='')
    ap.add_argument('--check', action='store_true')
    ap.add_argument('--ctest-args', default='')
    ap.add_argument('--timeout', type=int, default=120, help='seconds per test')
    ap.add_argument('--matrix', default='', help='file for "mutant: failed tests" lines')
    args = ap.parse_args()

    mutants = load(args.mutants)
    if args.only:
        wanted = set(args.only.split(','))
        mutants = [m for m in mutants if m['name'] in wanted]
    bad = 0
    for m in mutants:
        text = open(os.path.join(ROOT, m['file'])).read()
        if text.count(m['old']) != 1:
            print(f"BAD {m['name']}: found {text.count(m['old'])} times in {m['file']}")
            bad += 1
    if bad or args.check:
        print(f"{len(mutants)} mutants, {bad} do not apply")
        return 1 if bad else 0

    b = args.build_dir
    r = run(['cmake', '-S', '.', '-B', b, '-G', 'Ninja', '-DCMAKE_BUILD_TYPE=RelWithDebInfo'])
    if r.returncode != 0 or run(['cmake', '--build', b]).returncode != 0:
        sys.exit('the unmutated tree does not build')
    ctest = ['ctest', '--test-dir', b, '-j2', '--timeout', str(args.timeout)]
    ctest += ([] if args.matrix else ['--stop-on-failure']) + args.ctest_args.split()
    matrix = open(args.matrix, 'w') if args.matrix else None

    def failed_names(output):
        _, marker, tail = output.partition('The following tests FAILED:')
        return {line.split(' - ', 1)[1].rsplit(' (', 1)[0].strip()
                for line in tail.splitlines() if marker and ' - ' in line}

    # A test that fails once is run again, so that a test troubled by a busy
    # machine does not count as a kill (or stop the run).
    def fails(name=None):
        first = run(ctest)
        if first.returncode == 0:
            again = set()
        else:
            again = failed_names(run(ctest + ['--rerun-failed']).stdout) & failed_names(first.stdout)
        if matrix and name:
            matrix.write(f"{name}: {' | '.join(sorted(again))}\n")
            matrix.flush()
        return bool(again)

    t0 = time.time()
    if fails():
        sys.exit('the tests fail on the unmutated tree')
    print(f"unmutated suite: {time.time() - t0:.0f} s", flush=True)

    killed, survived, stillborn = [], [], []
    for m in mutants:
        path = os.path.join(ROOT, m['file'])
        original = open(path).read()
        try:
            open(path, 'w').write(original.replace(m['old'], m['new']))
            t0 = time.time()
            if run(['cmake', '--build', b]).returncode != 0:
                verdict = 'STILLBORN'
                stillborn.append(m['name'])
            else:
                try:
                    failed = fails(m['name'])
                except subprocess.TimeoutExpired:
                    failed = True
                verdict = 'KILLED' if failed else 'SURVIVED'
                (killed if failed else survived).append(m['name'])
            print(f"{verdict:9} {m['name']} ({time.time() - t0:.0f} s)", flush=True)
        finally:
            open(path, 'w').write(original)
    run(['cmake', '--build', b])
    total = len(killed) + len(survived)
    print(f"\nkilled {len(killed)} of {total}, survived {len(survived)}, stillborn {len(stillborn)}")
    if survived:
        print('survivors: ' + ', '.join(survived))
    return 0


if __name__ == '__main__':
    sys.exit(main())

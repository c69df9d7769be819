#!/usr/bin/python3
"""The schema compiler: makes the C++ of a module from its schema. Run by the build.

moxc.py --out DIR [--depfile F [--depfile-target T]] [--import-dir DIR]... [--list-outputs] [--dump-model] SCHEMA.mox
moxc.py --compare OLD.mox [--import-dir DIR]... SCHEMA.mox

Exit code 0: done; 1: the schema is wrong, or a file can't be written (the reasons stand on standard
error and nothing was written), or a compared one has edits that are unsafe; 2: the command line is
wrong.
"""

import argparse
import json
import os
import sys

MODULE_DIR = os.path.dirname(os.path.abspath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, MODULE_DIR)

import loader  # noqa: E402
from errors import Errors  # noqa: E402


def main(arguments):
    options = _options(arguments)
    errors = Errors()
    module = loader.load(options.schema, options.importDirs, errors)
    if module is None:
        for line in errors.lines():
            print(line, file=sys.stderr)
        return 1
    module.publicHeaders = options.publicHeaders
    if options.compare:
        return compare(options, module)
    if options.dumpModel:
        import dump

        json.dump(dump.dump(module), sys.stdout, indent=2, ensure_ascii=False)
        print()
        return 0

    import writer  # only here: the template engine is slow to load

    made = writer.Writer(module)
    if options.listOutputs:
        for path in made.paths():
            print(os.path.join(options.out, path))
        return 0
    try:
        made.write(options.out)
        if options.depfile:
            writer.writeIfChanged(options.depfile, depfile(module, made, options))
    except (writer.TemplateError, OSError) as failure:
        print('moxc: %s' % failure, file=sys.stderr)
        return 1
    return 0


def compare(options, module):
    """Prints what leads from the older schema to this one."""
    import upgrade

    errors = Errors()
    older = loader.load(options.compare, options.importDirs, errors)
    if older is None:
        for line in errors.lines():
            print(line, file=sys.stderr)
        return 1
    edits = upgrade.compare(older, module)
    for edit in edits:
        print(edit)
    return 1 if any(edit.verdict == upgrade.UNSAFE for edit in edits) else 0


def _options(arguments):
    parser = argparse.ArgumentParser(prog='moxc.py', description='Makes the C++ of a schema.',
                                     allow_abbrev=False)
    parser.add_argument('--out', metavar='DIR', help='directory of the generated files')
    parser.add_argument('--depfile', metavar='F', help='writes what the output depends on')
    parser.add_argument('--depfile-target', metavar='T', dest='depfileTarget',
                        help='what depends on it there, in place of the generated files')
    parser.add_argument('--import-dir', metavar='DIR', dest='importDirs', action='append',
                        default=[], help='where imports are looked for, behind the own directory')
    parser.add_argument('--public-header', metavar='H', dest='publicHeaders', action='append',
                        default=[], help="a hand-written header that the module's own includes")
    parser.add_argument('--list-outputs', dest='listOutputs', action='store_true',
                        help='prints the files that would be generated')
    parser.add_argument('--dump-model', dest='dumpModel', action='store_true',
                        help='prints the checked model as JSON')
    parser.add_argument('--compare', metavar='OLD.mox',
                        help='prints which edits lead from that schema to this one, and whether '
                             'processes of both can work together')
    parser.add_argument('schema', metavar='SCHEMA.mox')
    options = parser.parse_args(arguments)
    if options.out is None and not options.dumpModel and not options.compare:
        parser.error('--out is needed')
    return options


def depfile(module, made, options):
    """The dependencies in the form that Ninja and Make read."""
    compiler = [os.path.join(MODULE_DIR, name) for name in sorted(os.listdir(MODULE_DIR))
                if name.endswith('.py')]
    schemas = [module.path] + [imported.path for imported in module.allImports]
    inputs = [os.path.abspath(path) for path in schemas + made.templateFiles() + compiler]
    outputs = [os.path.join(options.out, path) for path in made.paths()]
    if options.depfileTarget:
        outputs = [options.depfileTarget]
    return '%s: \\\n  %s\n' % (' '.join(_escape(path) for path in outputs),
                               ' \\\n  '.join(_escape(path) for path in inputs))


def _escape(path):
    return path.replace('$', '$$').replace('#', '\\#').replace(' ', '\\ ')


if __name__ == '__main__':
    sys.exit(main(sys.argv[1:]))

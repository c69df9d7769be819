"""What the tests of the schema compiler share: compiling texts and the project's schemas."""

import os
import sys
import tempfile

TEST_DIR = os.path.dirname(os.path.abspath(__file__))
ROOT_DIR = os.path.dirname(os.path.dirname(TEST_DIR))
MOXC_DIR = os.path.join(ROOT_DIR, 'moxc')
SCHEMA_DIR = os.path.join(ROOT_DIR, 'schema')
COMPILER = os.path.join(MOXC_DIR, 'moxc.py')

sys.dont_write_bytecode = True
if MOXC_DIR not in sys.path:
    sys.path.insert(0, MOXC_DIR)

import loader  # noqa: E402
from errors import Errors  # noqa: E402


def compileFiles(files, main='t.mox', importDirs=()):
    """Compiles `files` ({name: text or bytes}) from a directory of their own.

    Gives (Module or None, messages); file names in the messages are relative to that directory.
    """
    with tempfile.TemporaryDirectory() as directory:
        for name, text in files.items():
            path = os.path.join(directory, name)
            os.makedirs(os.path.dirname(path), exist_ok=True)
            with open(path, 'wb') as file:
                file.write(text if isinstance(text, bytes) else text.encode('utf-8'))
        errors = Errors()
        module = loader.load(os.path.join(directory, main),
                            [os.path.join(directory, name) for name in importDirs], errors)
        return module, [line.replace(directory + os.sep, '') for line in errors.lines()]


def compileText(text):
    """Compiles one schema; gives (Module or None, messages)."""
    return compileFiles({'t.mox': text})


def loadSchema(name):
    """The Module of a schema of the project."""
    errors = Errors()
    module = loader.load(os.path.join(SCHEMA_DIR, name), [], errors)
    assert module is not None, '\n'.join(errors.lines())
    return module


def entityNamed(module, name):
    return next(entity for entity in module.entities if name in (entity.name, entity.qualified))


def attrNamed(entity, name):
    return next(attr for attr in entity.allAttrs if attr.name == name)

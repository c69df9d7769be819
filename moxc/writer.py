"""Renders the templates over a model and writes what changed. Called by moxc.py.

OUTPUTS is the one table of what is generated: add a row and a template for a new facet.
"""

import os
import tempfile
from typing import NamedTuple

import jinja2

import cpp
from layout import layout

# The form of the generated code; the run-time's model/GeneratedFormat.h must name the same.
GENERATED_FORMAT = 2

TEMPLATE_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), 'templates')


class Output(NamedTuple):
    """One kind of generated file."""

    template: str       # file in templates/
    scope: str          # 'module': once; 'entity', 'enum', 'identifier': once for each such type,
                        # given to the template under that name
    path: str           # below the output directory; {module} and, for a type, {stem}
    declares: str = ''  # 'entity', 'enum', 'identifier': this is the header that declares such
                        # types, and what the filter `header` gives for one


OUTPUTS = [
    Output('module.h.j2', 'module', '{module}.h'),
    Output('schema.h.j2', 'module', '{module}/Schema.h'),
    Output('values.h.j2', 'module', '{module}/Values.h', 'enum identifier'),
    Output('entity.h.j2', 'entity', '{module}/{stem}.h', 'entity'),
    Output('entity.cc.j2', 'entity', '{module}/{stem}.cc'),
    Output('attrlog.h.j2', 'entity', '{module}/{stem}AttrLog.h'),
    Output('attrlog.cc.j2', 'entity', '{module}/{stem}AttrLog.cc'),
    Output('type.h.j2', 'entity', '{module}/{stem}Type.h'),
    Output('type.cc.j2', 'entity', '{module}/{stem}Type.cc'),
    Output('generic.h.j2', 'entity', '{module}/{stem}Generic.h'),
    Output('generic.cc.j2', 'entity', '{module}/{stem}Generic.cc'),
    Output('carriers.h.j2', 'module', '{module}/Carriers.h'),
    Output('carriers.cc.j2', 'module', '{module}/Carriers.cc'),
    Output('types.h.j2', 'module', '{module}/Types.h'),
    Output('types.cc.j2', 'module', '{module}/Types.cc'),
    Output('wireschema.cc.j2', 'module', '{module}/WireSchema.cc'),
]


class TemplateError(Exception):
    """A template is wrong; the text has its file and line."""


class Writer:
    """Makes all files of a module; in tests with tables and templates of their own."""

    def __init__(self, module, outputs=None, templateDir=TEMPLATE_DIR):
        self._module = module
        self._outputs = OUTPUTS if outputs is None else outputs
        self._environment = jinja2.Environment(
            loader=jinja2.FileSystemLoader(templateDir), undefined=jinja2.StrictUndefined,
            trim_blocks=True, lstrip_blocks=True, keep_trailing_newline=True, autoescape=False)
        self._environment.filters.update(header=self._header, doc=cpp.docComment,
                                         docText=cpp.docText, fill=cpp.fill,
                                         hex=hexNumber, cppText=cpp.text)
        self._templateDir = templateDir

    def paths(self):
        """What would be written, relative to the output directory, in the table's order."""
        return [path for _, path, _ in self._files()]

    def templateFiles(self):
        """The template files in use, with all that stand beside them: what the output hangs on."""
        return sorted(os.path.join(root, name) for root, _, files in os.walk(self._templateDir)
                      for name in files)

    def render(self):
        """All files as {path: text}; TemplateError if a template is wrong."""
        rendered = {}
        for output, path, context in self._files():
            try:
                template = self._environment.get_template(output.template)
                text = template.render(module=self._module, outputPath=path,
                                       generatedFormat=GENERATED_FORMAT, **context)
            except jinja2.TemplateNotFound as failure:
                raise TemplateError('no template %s' % failure) from failure
            except jinja2.TemplateSyntaxError as failure:
                raise TemplateError('%s:%d: %s' % (failure.name, failure.lineno,
                                                   failure.message)) from failure
            except Exception as failure:  # whatever an expression in the template raises
                place = self._templatePlace(failure) or output.template
                raise TemplateError('%s: %s' % (place, failure)) from failure
            rendered[path] = layout(text)
        return rendered

    def write(self, outDir):
        """Renders everything, then writes the files that differ; gives the paths written."""
        written = []
        for path, text in self.render().items():
            if writeIfChanged(os.path.join(outDir, path), text):
                written.append(path)
        return written

    def _files(self):
        """(Output, path, template context) of every file."""
        for output in self._outputs:
            if output.scope == 'module':
                yield output, output.path.format(module=self._module.name), {}
                continue
            types = {'entity': self._module.entities, 'enum': self._module.enums,
                     'identifier': self._module.identifiers}[output.scope]
            for type in types:
                yield output, self._path(output, type), {output.scope: type}

    def _templatePlace(self, failure):
        """`template:line` of an error inside a template, the innermost; None outside of one."""
        place = None
        trace = failure.__traceback__
        while trace is not None:
            file = trace.tb_frame.f_code.co_filename
            if file.startswith(self._templateDir):
                place = '%s:%d' % (os.path.relpath(file, self._templateDir), trace.tb_lineno)
            trace = trace.tb_next
        return place

    @staticmethod
    def _path(output, type):
        return output.path.format(module=type.module.name, stem=type.stem)

    def _header(self, type):
        """Filter: the header to include for a type, of this or another module."""
        if type.isValue:
            return type.header
        for output in self._outputs:
            if type.kind in output.declares.split():
                return self._path(output, type)
        raise KeyError("no row of OUTPUTS declares types of kind '%s' (%s)"
                       % (type.kind, type.qualified))


def writeIfChanged(path, text):
    """Puts `text` into the file in one step; leaves a file with the same text untouched. True if it
    was written."""
    data = text.encode('utf-8')
    try:
        with open(path, 'rb') as file:
            if file.read() == data:
                return False
    except FileNotFoundError:
        pass
    directory = os.path.dirname(path) or '.'
    os.makedirs(directory, exist_ok=True)
    handle, temporary = tempfile.mkstemp(dir=directory, prefix='.' + os.path.basename(path))
    try:
        with os.fdopen(handle, 'wb') as file:
            file.write(data)
        os.chmod(temporary, 0o666 & ~_umask())
        os.replace(temporary, path)
    except BaseException:
        os.unlink(temporary)
        raise
    return True


def _umask():
    mask = os.umask(0)
    os.umask(mask)
    return mask


def hexNumber(number, digits=0):
    """Filter: 0x102, or with digits 0x00000102."""
    return '0x%0*x' % (digits, number)

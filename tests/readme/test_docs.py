"""Code in the documents is code of the examples, which are built and run; links lead somewhere."""

import glob
import os
import re
import unittest

ROOT_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


def read(path):
    with open(path, encoding='utf-8') as file:
        return file.read()


class Documents(unittest.TestCase):
    def setUp(self):
        self.documents = {os.path.basename(path): read(path) for path in
                          glob.glob(os.path.join(ROOT_DIR, 'docs', '*.md'))}
        self.assertTrue(self.documents)

    def test_code_is_code_of_the_examples(self):
        examples = [read(path) for path in
                    glob.glob(os.path.join(ROOT_DIR, 'examples', '**'), recursive=True)
                    if os.path.isfile(path)]
        blocks = 0
        for name, text in self.documents.items():
            for language, block in re.findall(r'```(cpp|cmake|mox)\n(.*?)```', text, re.DOTALL):
                if (name, language) == ('schema-language.md', 'mox'):
                    continue  # The schema compiler's tests compile these.
                blocks += 1
                self.assertTrue(any(block in example for example in examples),
                                '%s: not in examples/:\n%s' % (name, block))
        self.assertGreater(blocks, 5)

    def test_links_lead_somewhere(self):
        for name, text in self.documents.items():
            for link in re.findall(r'\]\(([^)#]+)(?:#[^)]*)?\)', text):
                if not re.match(r'\w+://', link):
                    self.assertTrue(os.path.exists(os.path.join(ROOT_DIR, 'docs', link)),
                                    '%s: %s' % (name, link))


if __name__ == '__main__':
    unittest.main()

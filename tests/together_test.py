#!/usr/bin/env python3
"""Which sources may be compiled as one, and which may not (cmake/together.py)."""

import pathlib
import sys
import tempfile
import unittest

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "cmake"))
from together import groups_of  # noqa: E402


class Together(unittest.TestCase):
    def number_of_groups(self, *texts):
        with tempfile.TemporaryDirectory() as folder:
            sources = [pathlib.Path(folder) / f"{number}.cpp" for number in range(len(texts))]
            for source, text in zip(sources, texts):
                source.write_text(text)
            return len(groups_of(sources))

    def test_different_names_go_together(self):
        self.assertEqual(self.number_of_groups("int first() {\n}\n", "int second() {\n}\n"), 1)

    def test_the_same_function_keeps_sources_apart(self):
        self.assertEqual(self.number_of_groups("int same() {\n}\n", "bool same(int) {\n}\n"), 2)

    def test_so_does_one_with_an_attribute(self):
        self.assertEqual(self.number_of_groups("[[noreturn]] void same() {\n}\n",
                                               "[[nodiscard]] [[maybe_unused]] int same() {\n}\n"), 2)

    def test_so_does_one_whose_namespace_stands_before_its_name(self):
        self.assertEqual(self.number_of_groups("int same() {\n}\n", "int internal::same() {\n}\n"), 2)

    def test_enumerations_with_different_names_go_together(self):
        self.assertEqual(self.number_of_groups("enum class First {\n};\n", "enum class Second {\n};\n"), 1)

    def test_a_member_is_none(self):
        self.assertEqual(self.number_of_groups("int First::same() {\n}\n", "int Second::same() {\n}\n"), 1)

    def test_a_macro_may_define_the_main_function(self):
        self.assertEqual(self.number_of_groups("int main() {\n}\n", "BENCHMARK_MAIN();\n"), 2)

    def test_an_alias_may_be_repeated(self):
        alias = "namespace json = boost::json;\n"
        self.assertEqual(self.number_of_groups(alias, alias), 1)
        self.assertEqual(self.number_of_groups(alias, "namespace json = other::json;\n"), 2)

    def test_so_does_an_enumerator_of_a_used_enumeration(self):
        using = "using enum HalvardSling::SlingErrorKind;\n"
        self.assertEqual(self.number_of_groups(using, "void cancelled() {\n}\n"), 2)
        self.assertEqual(self.number_of_groups(using, using), 1)


if __name__ == "__main__":
    unittest.main()

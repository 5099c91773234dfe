"""What an INF's characters mean: encodings, comments, quotation marks, continued lines, string tokens."""

import pathlib
import tempfile
import unittest
from random import Random

from examples import VALID, examples, expected, text_of
from inf_check.check import check_file
from inf_check.document import Document
from inf_check.text import Unreadable, decode


def values(text, section="S"):
    document = Document(text)
    return [(entry.key, entry.values) for entry in document.section(section).entries]


class Encoding(unittest.TestCase):
    def check(self, data):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "a.inf"
            path.write_bytes(data)
            return check_file(path, "w")

    def test_utf_16_with_mark_reads_as_ascii_does(self):
        self.assertEqual(self.check(b"\xff\xfe" + text_of(VALID).encode("utf-16-le")), [])

    def test_utf_16_may_hold_any_character(self):
        text = text_of(VALID).replace('"Lamp disk"', '"Lámpara, 灯"')
        self.assertEqual(self.check(b"\xff\xfe" + text.encode("utf-16-le")), [])

    def test_any_line_ends_give_the_same_lines(self):
        wrong = text_of(VALID).replace("%Disk%", "%Dusk%")
        for end in ("\n", "\r\n", "\r"):
            self.assertEqual([finding.line for finding in self.check(wrong.replace("\n", end).encode())], [13])

    def test_what_is_no_text_is_refused(self):
        for data in (b"MZ\x90\0\3\0\0\0" * 100, b"\xff\xfea", b"\xff\xfe\0\xd8x\0", b"\xfe\xff\0;\0\n", b"\0"):
            with self.subTest(data=data[:8]), self.assertRaises(Unreadable) as refused:
                self.check(data)
            self.assertEqual(refused.exception.number, 1003)

    def test_end_of_file_mark_of_old_editors_is_no_text(self):
        self.assertEqual(decode(b"[S]\r\n\x1a"), ("[S]\n", None))


class Damage(unittest.TestCase):
    def test_damaged_files_are_judged_or_refused_but_never_break_the_checker(self):
        random, lines = Random(1), [line for path in examples("wrong") for line in text_of(path).split("\n")]
        refused = 0
        for _ in range(500):
            damaged = text_of(VALID).split("\n")
            for _ in range(random.randint(1, 5)):
                at = random.randrange(len(damaged))
                cut = random.randrange(len(damaged[at]) + 1)
                damaged[at] = random.choice((random.choice(lines), damaged[at][cut:],
                                             damaged[at][:cut] + random.choice('",=%\\[];@.') + damaged[at][cut:]))
            with tempfile.NamedTemporaryFile(suffix=".inf") as file:
                file.write("\n".join(damaged).encode())
                file.flush()
                try:
                    check_file(file.name, "w")
                except Unreadable:
                    refused += 1
        self.assertTrue(0 < refused < 400, refused)


class Lines(unittest.TestCase):
    def test_comments_end_lines_but_not_quoted_texts_or_tokens(self):
        self.assertEqual(values('[S]\na = 1 ; 2\n; b = 3\nc = "x;y" ; z\nd = %a;b%\n'),
                         [("a", ["1"]), ("c", ["x;y"]), ("d", ["%a;b%"])])

    def test_two_quotation_marks_within_a_quotation_are_one(self):
        self.assertEqual(values('[S]\na = "say ""so"", now"\n'), [("a", ['say "so", now'])])

    def test_quoted_and_plain_parts_join_and_only_plain_blanks_are_trimmed(self):
        self.assertEqual(values('[S]\na = " b "c , d\n'), [("a", [" b c", "d"])])

    def test_backslash_at_the_end_continues_a_line(self):
        self.assertEqual(values('[S]\na = 1, \\\n  2, \\ ; comment\n  3\nb = 4\n'),
                         [("a", ["1", "2", "3"]), ("b", ["4"])])

    def test_backslash_within_quotation_marks_continues_nothing(self):
        self.assertEqual(values('[S]\na = "dir\\"\nb = dir\\file\n'), [("a", ["dir\\"]), ("b", ["dir\\file"])])

    def test_omitted_values_are_empty_ones(self):
        self.assertEqual(values("[S]\nHKR,,Name,,\n=x\n"), [(None, ["HKR", "", "Name", "", ""]), ("", ["x"])])

    def test_a_line_that_is_continued_without_end_is_refused(self):
        with self.assertRaises(Unreadable) as refused:
            Document("[S]\na = 1" + ", \\\n1" * 5000)
        self.assertEqual((refused.exception.line, refused.exception.number), (2, 1002))

    def test_unreadable_examples_are_refused_where_they_are_marked(self):
        for path in examples("unreadable"):
            with self.subTest(path=path.name), self.assertRaises(Unreadable) as refused:
                check_file(path, "w")
            error = refused.exception
            self.assertEqual({(error.line, "error", error.number)}, expected(text_of(path)))


class Tokens(unittest.TestCase):
    def test_tokens_are_replaced_in_any_case_and_within_quotation_marks(self):
        text = '[S]\n%Key% = "%value%-%VALUE%"\n[Strings]\nkey = k\nValue = "v w"\n'
        self.assertEqual(values(text), [("k", ["v w-v w"])])

    def test_numbers_stand_for_folders_and_two_percent_signs_for_one(self):
        document = Document("[S]\na = %13%\\x, 100%%, %%a%%\n")
        self.assertEqual(document.section("s").entries[0].values, ["%13%\\x", "100%", "%a%"])
        self.assertEqual(document.undefined, [])

    def test_tokens_without_definition_are_told_with_their_line(self):
        self.assertEqual(Document("[S]\na = 1\nb = %c%\n[Strings]\nd = e\n").undefined, [(3, "c")])

    def test_sections_of_one_name_are_one(self):
        self.assertEqual(values("[S]\na = 1\n[T]\n[s]\nb = 2\n"), [("a", ["1"]), ("b", ["2"])])

#!/usr/bin/env python3
"""Tests of the reference interpreter's numbers and of the generator's repeatability; they need no compiler."""

import sys
import unittest

import interpreter
from arithmetic import Failure, arithmetic, common_type, convert, float_text, single
from generator import generate
from model import BYTE, DOUBLE, FLOAT, INT, LONG, SBYTE, SHORT, UINT, ULONG, USHORT
from printer import print_program
from trial import make
from variants import VARIANTS

sys.setrecursionlimit(6000)


class Numbers(unittest.TestCase):
    def test_whole_numbers_wrap_around(self):
        self.assertEqual(arithmetic("+", 2**31 - 1, 1, INT), -2**31)
        self.assertEqual(arithmetic("-", 7, 8, UINT), 2**32 - 1)
        self.assertEqual(arithmetic("/", -2**31, -1, INT), -2**31)
        self.assertEqual(arithmetic("**", 2, 31, INT), -2**31)

    def test_division_truncates_or_rounds_down(self):
        self.assertEqual([arithmetic(op, -7, 2, INT) for op in ("/", "//", "%")], [-3, -4, 1])
        self.assertEqual([arithmetic(op, -7.5, 2.0, DOUBLE) for op in ("//", "%")], [-4.0, 0.5])
        with self.assertRaises(Failure):
            arithmetic("%", 1, 0, LONG)

    def test_common_types(self):
        cases = [(BYTE, BYTE, INT), (UINT, INT, LONG), (UINT, USHORT, UINT), (ULONG, LONG, None), (FLOAT, SHORT, FLOAT), (FLOAT, INT, DOUBLE)]
        for a, b, expected in cases:
            self.assertEqual(common_type(a, b), expected, (a, b))

    def test_conversions(self):
        self.assertEqual(convert(300, INT, BYTE), 44)
        self.assertEqual(convert(200, INT, SBYTE), -56)
        self.assertEqual(convert(1e30, DOUBLE, LONG), 2**63 - 1)
        self.assertEqual(convert(float("nan"), DOUBLE, INT), 0)

    def test_texts_of_floating_numbers(self):
        cases = [(100000.0, "1e+05"), (1e16, "1e+16"), (123456789.0, "123456789.0"), (0.0001, "1e-04"), (-0.0, "-0.0"), (0.125, "0.125"), (1.5, "1.5")]
        for value, text in cases:
            self.assertEqual(float_text(value, False), text)
        self.assertEqual(float_text(single(0.1), True), "0.1")
        self.assertEqual(float_text(single(0.1), False), "0.10000000149011612")
        self.assertEqual(float_text(16777216.0, True), "16777216.0")


class Programs(unittest.TestCase):
    def test_a_seed_makes_the_same_program_each_time(self):
        for seed in ("1.0", "1.1", "7.3"):
            name, program, outcome = make(seed)
            again = generate(name)
            self.assertEqual(print_program(program).files, print_program(again).files)
            self.assertEqual(interpreter.run(again).output, outcome.output)

    def test_variants_change_the_sources_and_are_repeatable(self):
        import random
        name, program, _ = make("1.2")
        for variant, change in VARIANTS.items():
            first, second = generate(name), generate(name)
            done = change(first, random.Random(variant))
            change(second, random.Random(variant))
            self.assertEqual(print_program(first).files, print_program(second).files, variant)
            if variant in ("renamed", "reordered", "identity"):
                self.assertTrue(done)
                self.assertNotEqual(print_program(first).files, print_program(program).files, variant)


if __name__ == "__main__":
    unittest.main()

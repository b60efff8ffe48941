"""Tests of ./bench with rows made up for the purpose: what the script makes of figures."""

import importlib.machinery
import importlib.util
import pathlib
import sys
import unittest

sys.dont_write_bytecode = True

ROOT = pathlib.Path(__file__).resolve().parent.parent


def load(path):
    loader = importlib.machinery.SourceFileLoader(path.name.replace("-", "_"), str(path))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


bench = load(ROOT / "bench")


def row(group, name, engine, **contestants):
    named = {key.replace("_", " "): value for key, value in contestants.items()}
    return {"group": group, "row": name, "engine": engine, "count": 10, "bytes": 0,
            "contestants": {"section pair": [10.0, 10.0, 10.0], **named}}


def judged(*lines):
    rows, figures = bench.digest(list(lines))
    return {"machine": {"processor": "x", "date": "y"}, "quick": False, "rows": rows, "figures": figures}


class Digest(unittest.TestCase):
    def test_ratio_is_that_of_each_round(self):
        # The second round was slow for both: medians taken apart would say 1.0.
        [summary] = judged(row("queries", "path", "local", direct=[100.0, 900.0, 110.0], plugin=[110.0, 990.0, 121.0]))["rows"]
        self.assertEqual([1.1, 1.1, 1.1], summary["ratio"])

    def test_overhead_is_told_in_pairs(self):
        [summary] = judged(row("transfers", "read", "memory", direct=[5.0] * 3, plugin=[45.0] * 3))["rows"]
        self.assertEqual({"nanoseconds": 40.0, "pairs": 4.0}, summary["overhead"])

    def test_target_is_met_and_missed(self):
        met = row("transfers", "read 64 KiB, random", "local", direct=[990.0] * 3, plugin=[1000.0] * 3)
        missed = row("transfers", "read 64 KiB, random", "local", direct=[950.0] * 3, plugin=[1000.0] * 3)
        self.assertEqual([True, False], [line["target"]["met"] for line in judged(met, missed)["rows"]])

    def test_4_kib_has_a_target_of_its_own(self):
        [summary] = judged(row("transfers", "read 4 KiB, random", "local", direct=[96.0] * 3, plugin=[100.0] * 3))["rows"]
        self.assertTrue(summary["target"]["met"])
        [summary] = judged(row("transfers", "read 64 KiB, random", "local", direct=[96.0] * 3, plugin=[100.0] * 3))["rows"]
        self.assertFalse(summary["target"]["met"])

    def test_rows_without_target_are_not_judged(self):
        [summary] = judged(row("transfers", "read 512 B, random", "local", direct=[1.0] * 3, plugin=[9.0] * 3))["rows"]
        self.assertIsNone(summary["target"])

    def test_threads_are_told_against_one_thread(self):
        [summary] = judged(row("threads", "reads, a handle each, 2 threads", "local", 
                               **{"direct, 1 thread": [100.0] * 3, "plugin, 1 thread": [100.0] * 3},
                               direct=[50.0] * 3, plugin=[80.0] * 3))["rows"]
        self.assertEqual(1.25, summary["speedup"]["plugin"][1])
        self.assertEqual(2.0, summary["speedup"]["direct"][1])
        self.assertFalse(summary["target"]["met"])

    def test_figure_is_judged(self):
        figure = {"group": "listing", "row": "cost per entry at 1,000,000 / at 10,000", "engine": "memory",
                  "name": "plugin", "value": 1.4, "unit": "times"}
        self.assertFalse(judged(figure)["figures"][0]["target"]["met"])


class Tables(unittest.TestCase):
    RESULT = judged(row("transfers", "read 64 KiB, random", "local", direct=[1500.0] * 3, plugin=[1800.0] * 3),
                    row("transfers", "read 4 KiB, random", "memory", direct=[5.0] * 3, plugin=[45.0] * 3),
                    {"group": "lifecycle", "row": "memory", "engine": "memory", "name": "plugin", "value": 512,
                     "unit": "bytes"})

    def test_plain_text_names_what_was_missed(self):
        text = bench.plain_text(self.RESULT)
        self.assertIn("1.8 µs", text)
        self.assertIn("1 of 2 rows with a target meet it.", text)
        self.assertIn("Missed: transfers, engine local: read 64 KiB, random", text)

    def test_markdown_has_every_row(self):
        text = bench.markdown(self.RESULT)
        for expected in ("| read 64 KiB, random |", "| read 4 KiB, random |", "512 bytes"):
            self.assertIn(expected, text)

    def test_durations_have_a_fitting_unit(self):
        shown = [bench.duration(value) for value in (3.14159, 999.7, 1500, 2.5e6, 3e9, -20)]
        self.assertEqual(["3.14 ns", "1 µs", "1.5 µs", "2.5 ms", "3 s", "-20 ns"], shown)


if __name__ == "__main__":
    unittest.main()

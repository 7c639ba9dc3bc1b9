"""The options and exit statuses of --help are those of the manual page, the completions and README:
documentation_test.py SOURCE_FOLDER PROGRAM...
"""
import os
import pathlib
import re
import subprocess
import sys

source, *programs = map(pathlib.Path, sys.argv[1:])
LONG_OPTION = "--([a-z][a-z-]+)"


def statuses(text, pattern):
    """Returns the description of each number, or numbers, that `pattern` finds."""
    return {re.sub("[ ,]+", " ", numbers): description[0].lower() + " ".join(
        description[1:].split()).rstrip(".") for numbers, description in re.findall(pattern, text)}


def expect(what, found, expected):
    if found != expected:
        sys.exit(f"{what}: {found} is not {expected}")


def check(name, usage):
    folder = source / "packaging"
    manual = (folder / f"man/{name}.1").read_text()
    readme = re.search(rf"\n\*\*`{name}.*?(?=\n\*\*`|\n## )", (source / "README.md").read_text(),
                       re.DOTALL)[0]
    options = set(re.findall(LONG_OPTION, usage))
    expect(f"{name}.1", set(re.findall("Fl Fl ([a-z][a-z-]+)", manual)), options)
    if name == "quenmoor-upload":
        return
    for file, pattern in ((f"{name}.bash", LONG_OPTION), (f"_{name}", LONG_OPTION),
                          (f"{name}.fish", " -l ([a-z][a-z-]+)")):
        text = (folder / "completions" / file).read_text()
        expect(file, set(re.findall(pattern, text)), options)
    expect("README.md", set(re.findall(LONG_OPTION, readme)), options - {"help", "version"})
    ends = statuses(usage, r"\n +(\d+(?:, \d+)*)  +(.+)")
    expect("numbers of exit statuses", len(ends), 9 if name == "quenmoor-put" else 3)
    expect(f"{name}.1", statuses(manual, r"\.It (\d+(?: , \d+)*)\n((?:[^.\n].*\n)+)"), ends)
    if name == "quenmoor-put":
        expect("README.md", statuses(readme, r"\n\| (\d+(?:, \d+)*) \| (.*) \|"), ends)


for program in programs:
    check(program.name, subprocess.run([program, "--help"], check=True, capture_output=True,
                                       text=True).stdout)

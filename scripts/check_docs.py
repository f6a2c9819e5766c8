"""Checks the pages against the code. scripts/check-docs installs what this needs and runs it with
the path of updater-release.

Each finding is a line "file:line: what", and every finding is an error:
  - Links lead to files, their anchors to headings (in other files: "#L7" to a line).
  - The example below "<!-- from FILE -->" is in that file, whatever its indentation.
  - Tests named as "program: function" exist. In docs/quirks.md the program must exist as well.
  - Places in the tables of CONTRIBUTING.md exist.
  - The man pages have the options that the programs know, and no others; groff accepts them.
  - The man pages and CHANGELOG.md are of the version that is built.
  - codespell finds nothing, there are not too many words, and few odd ones.
"""

import os
import re
import sys
from pathlib import Path
from subprocess import PIPE, STDOUT, run

from markdown_it import MarkdownIt
from markdown_it.token import Token

MAX_WORDS = 9000
MAX_WORDS_OF_A_PAGE = 2000
MAX_ODD_LINES = 20
ODD = "the toolkit('s)?|blanks?|place markers?|mends?|mended|makes? good"
# Names in the code, markup of man pages, and a message that hosts may know by its spelling.
CODESPELL = ["codespell", "--ignore-words-list=allright,ue,upto,uptodate,wronly",
             r"--ignore-regex=\\\(bu|error occured"]
OPTION = r"(?<![\w-])--?[a-z]+(?:-[a-z]+)*"

findings: list[str] = []
anchors: dict[Path, list[str]] = {}  # Of each page.


def report(path: Path | str, line: int, what: str) -> None:
    findings.append(f"{path}:{line}: {what}")


def output_of(*command: str) -> str:
    return run(command, stdout=PIPE, stderr=STDOUT, text=True).stdout


def anchors_of(tokens: list[Token]) -> list[str]:
    """The anchors of a page's headings, as GitHub makes them."""
    slugs, names = [], []
    for heading, inline in zip(tokens, tokens[1:]):
        if heading.type == "heading_open":
            text = "".join(part.content for part in inline.children).lower()
            slug = re.sub(r"[^\w\- ]", "", text).replace(" ", "-")
            names.append(f"{slug}-{slugs.count(slug)}" if slug in slugs else slug)
            slugs.append(slug)
    return names


def check_link(page: Path, line: int, target: str) -> None:
    name, _, anchor = target.partition("#")
    path = Path(os.path.normpath(page.parent / name)) if name else page
    if re.match(r"[a-z]+:", target):
        return
    if not path.exists() or anchor and path.is_dir():
        report(page, line, f"{target} does not exist")
    elif anchor:
        lines = [f"L{number + 1}" for number in range(path.read_bytes().count(b"\n"))]
        if re.sub(r"^L\d+-", "", anchor) not in anchors.get(path, lines):
            report(page, line, f"{path} has no #{anchor}")


def check_code(page: Path, line: int, code: str, in_table: bool) -> None:
    if test := re.fullmatch(r"(?!program: function)(\w+): (\w+(?:, \w+)*)", code):
        program = "".join(path.read_text() for path in Path("tests").rglob(f"tst_{test[1]}.cpp"))
        for function in test[2].split(", "):
            if f"void {function}()" not in program and (program or page.name == "quirks.md"):
                report(page, line, f"there is no test {test[1]}: {function}")
    elif in_table and page.name == "CONTRIBUTING.md":
        if re.fullmatch(r"(?!build/)[\w.-]*/[\w./-]*", code) and not Path(code).exists():
            report(page, line, f"there is no {code}")


def check_example(page: Path, line: int, source: Path, example: str) -> None:
    wanted, there = (
        "\n".join(text.strip() for text in block.strip().splitlines())
        for block in (example, source.read_text() if source.is_file() else ""))
    if not wanted or wanted not in there:
        report(page, line, f"the example is not in {source}")


def check_pages(paths: list[Path]) -> None:
    parser = MarkdownIt("commonmark").enable("table")
    pages = {path: parser.parse(path.read_text()) for path in paths}
    anchors.update((path, anchors_of(tokens)) for path, tokens in pages.items())
    for path, tokens in pages.items():
        in_table = False
        for token, following in zip(tokens, tokens[1:] + tokens[-1:]):
            in_table = token.type == "table_open" or in_table and token.type != "table_close"
            line = token.map[0] + 1 if token.map else 0
            if source := re.match("<!-- from (.+) -->", token.content):
                check_example(path, line, Path(source[1]), following.content)
            for part in token.children or []:
                line += part.type in ("softbreak", "hardbreak")
                if part.type == "code_inline":
                    check_code(path, line, part.content, in_table)
                elif part.type in ("link_open", "image"):
                    check_link(path, line, part.attrs.get("href") or part.attrs["src"])


def check_words(paths: list[Path]) -> None:
    words = {path: len(path.read_text().split()) for path in paths}
    for path, count in words.items():
        if count > MAX_WORDS_OF_A_PAGE:
            report(path, 1, f"{count} words, more than {MAX_WORDS_OF_A_PAGE}")
    if sum(words.values()) > MAX_WORDS:
        report("README.md", 1, f"{sum(words.values())} words in all pages, more than {MAX_WORDS}")
    files = output_of("git", "ls-files", ":!fuzz/corpus", ":!*.png").splitlines()
    findings.extend(output_of(*CODESPELL, *files).splitlines())
    odd = output_of("git", "grep", "-nIiwE", ODD).splitlines()
    findings.extend(odd if len(odd) > MAX_ODD_LINES else [])


def check_man_page(page: str, version: str, known: list[str]) -> None:
    text = Path(page).read_text().replace("\\", "")
    tags = " ".join(re.findall(r"\n\.TP\n(.*)", text))
    for option in set(re.findall(OPTION, tags)) ^ set(known):
        report(page, 1, f"{option} is not an option of both the program and the page")
    if f'"updater {version}"' not in text.partition("\n")[0]:
        report(page, 1, f"it is not of version {version}")
    for line in output_of("groff", "-man", "-Tutf8", "-ww", "-z", page).splitlines():
        findings.append(re.sub(r"^\w+: *", "", line))


def main(updater_release: str) -> None:
    pages = [Path(name) for name in output_of("git", "ls-files", "*.md").splitlines()]
    check_pages(pages)
    check_words(pages)
    version = re.search(r"project\(updater VERSION (\S+)", Path("CMakeLists.txt").read_text())[1]
    found = re.findall(r"case '([a-z])':|\"--([a-z]+)\"", Path("app/Options.cpp").read_text())
    check_man_page("docs/updater.1", version, [f"-{a}" if a else f"--{b}" for a, b in found])
    text = output_of(updater_release, "--help")
    for command in re.findall(r"\n  (\w+) [A-Z]", text):
        text += output_of(updater_release, command, "--help")
    found = re.findall(r"\n  (-.*?)  ", text)
    check_man_page("docs/updater-release.1", version, re.findall(OPTION, " ".join(found)))
    text = Path("host/guard/GuardOptions.cpp").read_text()
    found = re.findall(r'{QStringLiteral\("([a-z-]+)"\)', text)
    check_man_page("docs/updater-guard.1", version, [f"--{name}" for name in found])
    if f"\n## {version}" != re.search("\n## \\S+", Path("CHANGELOG.md").read_text())[0]:
        report("CHANGELOG.md", 1, f"its newest version is not {version}")

    print("\n".join(findings))
    sys.exit(1 if findings else 0)


main(sys.argv[1])

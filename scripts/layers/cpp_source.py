"""Reads C++ and .proto files as text: what they include, and how long their functions are.

Made for sources that clang-format has laid out; it is no compiler and expands no macro.
"""

import bisect
import re
from typing import NamedTuple

COMMENT_OR_LITERAL = re.compile(r"""
      //(?:\\\n|[^\n])*                                              # // comment
    | /\*.*?\*/                                                      # /* comment */
    | (?<!\w)(?:u8|[uUL])?R"(?P<mark>[^()\\\s]{0,16})\(.*?\)(?P=mark)"  # raw string
    | "(?:\\.|[^"\\\n])*"                                            # string
    | (?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'                            # character, not the separator of 1'000
    """, re.VERBOSE | re.DOTALL)
INCLUDE = re.compile(r'#\s*include\b\s*(?:"(?P<quoted>[^"]+)"|<(?P<angle>[^>]+)>)?')
IMPORT = re.compile(r"""import\s+(?:(?:public|weak)\s+)?["'](?P<quoted>[^"']+)["']""")
ACCESS = ("public", "protected", "private")

COUNTING = """A function counts if its body opens at the level of a file, a namespace or a class. Its lines are
those from the first of its signature ("template" included) to the one of its closing brace, both included; a
function written in one line has one. Lambdas and local classes belong to the function around them. Of #if only the
first branch is read, and macros are not expanded. The 90th percentile is the length that nine of ten functions do
not exceed."""

SCOPE, FUNCTION, OTHER = range(3)  # what a brace opens: a namespace or class, a function's body, anything else


class Include(NamedTuple):
    line: int
    name: str  # "" if a macro stands for it
    quoted: bool


class Function(NamedTuple):
    line: int
    name: str
    lines: int


def blanked(text):
    """The text with blanks for comments and literals; every line and column stays where it is."""
    return COMMENT_OR_LITERAL.sub(lambda match: re.sub(r"[^\n]", " ", match[0]), text)


def includes(text, proto=False):
    """The includes of a C++ file, or the imports of a .proto file."""
    starts, pattern = (r"\s*import\b", IMPORT) if proto else (r"\s*#\s*include\b", INCLUDE)
    for number, (code, line) in enumerate(zip(blanked(text).split("\n"), text.split("\n")), 1):
        if re.match(starts, code):
            parts = pattern.search(line)
            groups = parts.groupdict() if parts else {}
            yield Include(number, groups.get("quoted") or groups.get("angle") or "", bool(groups.get("quoted")))


def without_directives(code):
    """Blanks preprocessor lines, and all but the first branch of an #if, so that braces stay in pairs."""
    lines, skipped, continued = [], [], False
    for line in code.split("\n"):
        directive = re.match(r"\s*#\s*(\w+)", line)
        word = directive[1] if directive and not continued else ""
        if word.startswith("if"):
            skipped.append(False)
        elif word.startswith("el") and skipped:
            skipped[-1] = True
        elif word == "endif" and skipped:
            skipped.pop()
        lines.append("" if word or continued or any(skipped) else line)
        continued = (word or continued) and line.endswith("\\")
    return "\n".join(lines)


def collapsed(text, pattern, replacement):
    """Replaces innermost brackets until none is left."""
    while (shorter := re.sub(pattern, replacement, text)) != text:
        text = shorter
    return text


def outline(head):
    """What stands before a brace without what is in brackets: `auto Foo\\0 const`, `template class A : public B`."""
    head = re.sub(r"\boperator\s*(?:\(\s*\)|\[\s*\]|[^\s\w(]+)", "operator", head)
    head = head.replace("::", "@").replace("->", " ")
    for pattern, replacement in ((r"\{[^{}]*\}", ""), (r"\[[^\[\]]*\]", ""), (r"\([^()]*\)", "\0"), (r"<[^<>]*>", "")):
        head = collapsed(head, pattern, replacement)
    return re.sub(r"\b(?:alignas|decltype|noexcept|explicit|requires|__attribute__)\s*\0", "", head).strip()


def kind_of(head):
    """What the brace after `head` opens, and a function's name."""
    shape = outline(head)
    if re.match(r"(?:inline\s+)?namespace\b|extern$", shape):
        return SCOPE, ""
    declared = shape.split(":")[0]
    if "\0" not in declared and re.search(r"\b(?:class|struct|union)\b", declared):
        return (OTHER if re.search(r"\benum\b", declared) else SCOPE), ""
    function = re.search(r"([\w~@]+)\0", shape)
    if not function or "=" in shape:
        return OTHER, ""
    member_initialiser = ":" in shape[function.end():] and re.search(r"[\w>]\s*$", head)
    return (OTHER, "") if member_initialiser else (FUNCTION, function[1].replace("@", "::"))


def matching_brace(code, start):
    depth = 0
    for brace in re.compile(r"[{}]").finditer(code, start):
        depth += 1 if brace[0] == "{" else -1
        if depth == 0:
            return brace.start()
    return len(code) - 1


def functions(text):
    """The functions of a C++ file, in its order."""
    code = without_directives(blanked(text))
    line_starts = [0, *(match.end() for match in re.finditer("\n", code))]
    head, parentheses, resume = 0, 0, 0
    for mark in re.finditer(r"[(){};:]", code):
        at, character = mark.start(), mark[0]
        if at < resume:
            continue
        if character in "()":
            parentheses += 1 if character == "(" else -1
        elif character == "{":
            kind, name = kind_of(code[head:at]) if parentheses == 0 else (OTHER, "")
            if kind == SCOPE:
                head = at + 1
                continue
            end = matching_brace(code, at)
            if kind == FUNCTION:
                first = head + re.search(r"\S", code[head:at]).start()
                first, last = (bisect.bisect_right(line_starts, place) for place in (first, end))
                yield Function(first, name, last - first + 1)
                head = end + 1
            resume = end + 1
        elif parentheses == 0 and (character != ":" or code[head:at].strip() in ACCESS):
            head = at + 1

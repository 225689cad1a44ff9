"""Copies of the data model as an earlier or a later release would have it."""

import re
import shutil

from paths import YANG

OLDER = "2001-01-01"
NEWER = "2099-01-01"


def copy_models(directory, revision, edits=None):
    """Copies every model to `directory`, each with that one revision; `edits` are functions of the text, by model."""
    shutil.copytree(YANG, directory, ignore=lambda _, names: [name for name in names if not name.endswith(".yang")])
    for file in directory.iterdir():
        text = re.sub(r"\n  revision [^{]*\{[^}]*\}\n", "", file.read_text())
        head, description, body = re.split(r"(\n  description\b[^;]*;\n)", text, maxsplit=1)
        text = f'{head}{description}\n  revision {revision} {{\n    description "A copy.";\n  }}\n{body}'
        file.write_text((edits or {}).get(file.stem, lambda unchanged: unchanged)(text))
    return directory


def without(statement):
    """An edit that removes the statement that begins with these words."""
    def edit(text):
        start = text.index(f"{statement} {{")
        end, depth = text.index("{", start) + 1, 1
        while depth:
            depth += {"{": 1, "}": -1}.get(text[end], 0)
            end += 1
        return text[:start] + text[end:]
    return edit


def with_leaf(name, *, behind):
    """An edit that adds a leaf of strings ahead of the end of the statement that begins with these words."""
    def edit(text):
        place = text.index("{", text.index(f"{behind} {{")) + 1
        return f'{text[:place]} leaf {name} {{ type string; description "A leaf."; }} {text[place:]}'
    return edit

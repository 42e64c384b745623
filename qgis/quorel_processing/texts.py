"""The plugin's texts: rows of Quorel's text table (texts.tsv, copied beside this file by the
build), in the language of QGIS's user interface when the table has it, else in English."""

import os

from qgis.core import QgsSettings
from qgis.PyQt.QtCore import QLocale

_ESCAPES = {"n": "\n", "r": "\r", "t": "\t", "\\": "\\"}


def _unescape(cell):
    out, i = [], 0
    while i < len(cell):
        if cell[i] == "\\" and i + 1 < len(cell) and cell[i + 1] in _ESCAPES:
            out.append(_ESCAPES[cell[i + 1]])
            i += 2
        else:
            out.append(cell[i])
            i += 1
    return "".join(out)


def _load(path):
    with open(path, encoding="utf-8") as table:
        rows = [line.rstrip("\n").split("\t") for line in table if not line.startswith("#")]
    codes = rows[0][1:]
    return codes, {int(row[0]): [_unescape(c) for c in row[1:]] for row in rows[1:] if row[0]}


_CODES, _ROWS = _load(os.path.join(os.path.dirname(__file__), "texts.tsv"))


def language():
    """The language code of QGIS's interface, if the table has it; else English."""
    locale = QgsSettings().value("locale/userLocale", "") or QLocale().name()
    code = str(locale)[:2]
    return code if code in _CODES else "en"


def text(text_id, *args):
    """Text text_id in the interface's language, %1, %2... replaced by args."""
    row = _ROWS[text_id]
    value = row[_CODES.index(language())]
    for i, arg in enumerate(args, 1):
        value = value.replace(f"%{i}", str(arg))
    return value

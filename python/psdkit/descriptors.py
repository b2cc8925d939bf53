"""Descriptors as Python values.

A descriptor (the format's self-describing structure for fill settings, effects, colours, ...) is a
``Descriptor``: a dict with a ``name`` and a ``class_id``. Identifiers come in two kinds that the
format keeps apart, and so does psdkit: a four-character code is a ``Code`` and a longer identifier
is a plain ``str``. ``Code("Clr ") != "Clr "``, so ``d[Code("Clr ")]`` and ``d["Clr "]`` are
different keys, as they are in the file.

Values: Descriptor (nested), float ("doub"), UnitFloat, str ("TEXT"), Enumerated, int (signed
32-bit "long"), bool, list, bytes ("tdta").
"""

from __future__ import annotations

from typing import NamedTuple, Union

__all__ = ["Code", "Descriptor", "UnitFloat", "Enumerated", "Identifier"]


class Code:
    """A four-character code identifier, such as ``Code("Clr ")``. Unequal to every ``str``."""

    __slots__ = ("text",)

    def __init__(self, text: str) -> None:
        if not isinstance(text, str):
            raise TypeError("a code is made from a str")
        self.text = text

    def __eq__(self, other: object) -> bool:
        return isinstance(other, Code) and other.text == self.text

    def __hash__(self) -> int:
        return hash((Code, self.text))

    def __repr__(self) -> str:
        return f"Code({self.text!r})"

    def __str__(self) -> str:
        return self.text


Identifier = Union[Code, str]


class Descriptor(dict):
    """A descriptor: its items as a dict keyed by ``Code`` or ``str``, plus ``name`` and ``class_id``."""

    def __init__(self, items=(), *, name: str = "\0", class_id: Identifier = Code("null")) -> None:
        super().__init__(items)
        self.name = name
        self.class_id = class_id

    def __repr__(self) -> str:
        return f"Descriptor({dict.__repr__(self)}, name={self.name!r}, class_id={self.class_id!r})"

    def __eq__(self, other: object) -> bool:
        if isinstance(other, Descriptor):
            return (self.name, self.class_id) == (other.name, other.class_id) and dict.__eq__(self, other)
        return NotImplemented

    __hash__ = None  # type: ignore[assignment]


class UnitFloat(NamedTuple):
    """A number with a unit: 'angle', 'resolution', 'distance', 'none', 'percent' or 'pixels'."""

    value: float
    unit: str


class Enumerated(NamedTuple):
    """An enumerated value: the enumeration (e.g. ``Code("BlnM")``) and the value (``Code("Nrml")``)."""

    type: Identifier
    value: Identifier

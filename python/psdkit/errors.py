"""The exceptions psdkit raises for files and values it cannot read or write."""

from __future__ import annotations

from typing import Optional

__all__ = ["PSDError", "ImageError", "PlatformError"]


class PSDError(Exception):
    """A file or a value psdkit cannot read or write.

    ``case`` is the library's name of the failure (``"readCorruptFile"``,
    ``"writeParameterError"``, ...), ``code`` its number, ``detail`` what the library said beyond
    the case (which layer, which field; may be empty) and ``reason`` the readable explanation the
    library offers for the case, when it has one. ``str(error)`` is the library's own message.
    """

    def __init__(self, message: str, case: str, code: int = -1, detail: str = "",
                 reason: Optional[str] = None) -> None:
        super().__init__(message)
        self.case = case
        self.code = code
        self.detail = detail
        self.reason = reason


class ImageError(PSDError):
    """Pixels that cannot be decoded or encoded (``case`` such as ``"corruptPackBits"``)."""


class PlatformError(PSDError):
    """Metadata, colour profiles or property lists that cannot be parsed or made."""

"""Fuzzy classification criteria on polygon layers (type hints of the compiled module)."""

import datetime
import os
from typing import Any, Callable, Literal, Optional, Sequence, Union

import numpy as np
import numpy.typing as npt

# A break point as a dialog box holds it: None (empty), a number, or a text with either
# decimal mark.
Parameter = Union[None, int, float, str]
Source = Union[str, os.PathLike[str]]

class Error(Exception):
    """A reported failure, with the command line's message."""

class RefusedError(Error):
    """A check refused the work before anything changed."""

def membership(
    kind: int,
    a: Parameter = None,
    b: Parameter = None,
    c: Parameter = None,
    d: Parameter = None,
    *,
    values: npt.ArrayLike,
) -> npt.NDArray[np.float64]: ...
def script(
    kind: int, a: Parameter, b: Parameter, c: Parameter, d: Parameter, field: str
) -> Optional[str]: ...
def run(
    source: Source,
    field: str,
    kind: int,
    a: Parameter = None,
    b: Parameter = None,
    c: Parameter = None,
    d: Parameter = None,
    *,
    layer: Optional[str] = None,
    out: Optional[str] = None,
    progress: Optional[Callable[[float], Any]] = None,
) -> str: ...
def aggregate(
    source: Source,
    fields: Sequence[str],
    op: Literal["and", "or", "product", "sum", "gamma", "mean", "owa"],
    *,
    gamma: Optional[float] = None,
    weights: Optional[Sequence[float]] = None,
    layer: Optional[str] = None,
    out: Optional[str] = None,
    progress: Optional[Callable[[float], Any]] = None,
) -> str: ...
def stats(source: Source, field: str, *, layer: Optional[str] = None) -> dict[str, Any]: ...
def meta(
    source: Source, field: str, *, layer: Optional[str] = None
) -> Optional[dict[str, Union[str, int, float, datetime.datetime]]]: ...
def set_language(code: str) -> None: ...

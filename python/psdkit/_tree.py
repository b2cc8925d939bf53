"""The layer tree, built from a document's flat layer list.

This is the one place that knows how groups are laid out in the list; the rest of the package asks
it for nodes. Layers are listed bottom first: a group's closing record ('sectionDivider') comes
first, then its members, then the record that opens it (kind 'group'). Read from the top down, a
group record opens a group and a divider closes the innermost open one.
"""

from __future__ import annotations

from typing import Iterator, List, Optional, Tuple

__all__ = ["Node", "build_tree", "walk"]

_GROUP_KINDS = ("group", "sceneGroup", "artboard")


class Node:
    """One layer in the tree. ``children`` lists a group's members top first (empty for other
    layers); ``parent`` is the enclosing group's node, None at the top. Attribute reads other than
    those below go to the layer (``node.name``, ``node.bbox``, ``node.pixels``, ...)."""

    __slots__ = ("layer", "children", "parent")

    def __init__(self, layer, parent: Optional["Node"] = None) -> None:
        self.layer = layer
        self.children: List[Node] = []
        self.parent = parent

    @property
    def is_group(self) -> bool:
        """The node opens a group (its children may still be empty)."""
        return self.layer.kind in _GROUP_KINDS

    def __iter__(self) -> Iterator["Node"]:
        return iter(self.children)

    def __len__(self) -> int:
        return len(self.children)

    def __getattr__(self, name: str):
        return getattr(self.layer, name)

    def descendants(self) -> Iterator["Node"]:
        """Every node below this one, depth first, top first."""
        for child in self.children:
            yield child
            yield from child.descendants()

    def __repr__(self) -> str:
        suffix = f" ({len(self.children)} children)" if self.is_group else ""
        return f"<psdkit.Node {self.layer.name!r} {self.layer.kind}{suffix}>"


def build_tree(layers) -> List[Node]:
    """The top-level nodes, top first, of the flat list ``layers`` (bottom first). Dividers are
    left out. A divider without an open group, or a group never closed, is tolerated: the first is
    dropped and the second closes at the bottom of the list."""
    top: List[Node] = []
    open_groups: List[Node] = []
    for layer in reversed(layers):
        kind = layer.kind
        if kind == "sectionDivider":
            if open_groups:
                open_groups.pop()
            continue
        parent = open_groups[-1] if open_groups else None
        node = Node(layer, parent)
        (parent.children if parent is not None else top).append(node)
        if kind in _GROUP_KINDS:
            open_groups.append(node)
    return top


def walk(nodes: List[Node]) -> Iterator[Tuple[int, Node]]:
    """(depth, node) for every node, depth first, top first; depth 0 at the top level."""
    stack = [(0, node) for node in reversed(nodes)]
    while stack:
        depth, node = stack.pop()
        yield depth, node
        stack.extend((depth + 1, child) for child in reversed(node.children))

#!/usr/bin/env python3
"""whole_svg.py DRAWING: prints the drawing with the parts of family.svg that it uses embedded, since an
icon must be one file. The names of those parts get a prefix, so that they do not clash with the drawing's."""
import pathlib, re, sys
import xml.etree.ElementTree as tree

SVG = "http://www.w3.org/2000/svg"
tree.register_namespace("", SVG)
drawing = pathlib.Path(sys.argv[1])
family = {part.get("id"): part for part in tree.parse(drawing.parent / "family.svg").iter()}
text = drawing.read_text()
taken = {}
todo = re.findall(r"family\.svg#([\w-]+)", text)
while todo:
    name = todo.pop()
    if name not in taken:
        part = tree.tostring(family[name], encoding="unicode").replace(f' xmlns="{SVG}"', "")
        taken[name] = re.sub(r'\bid="', 'id="family-', part).strip()
        todo += re.findall(r"family\.svg#([\w-]+)", part)
text = text.replace("<defs>", "<defs>\n    " + "\n    ".join(taken[name] for name in sorted(taken)), 1)
print(text.replace("family.svg#", "#family-"), end="")

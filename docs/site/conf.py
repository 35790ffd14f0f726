"""The site that scripts/docs builds. Sphinx reads our pages with MyST, and Breathe makes the
reference from Doxygen's XML."""

import itertools
import json
import logging
import pathlib
import re

from docutils import nodes
from pygments.lexers.special import TextLexer
from sphinx import addnodes

SITE = pathlib.Path(__file__).resolve().parent
BUILD = SITE.parent.parent / "build/docs"

project, html_title, language = "VexIMLib", "VexIMLib", "en"
extensions = ["myst_parser", "breathe"]
exclude_patterns = ["docs/site/*"]
templates_path = [str(SITE / "templates")]
primary_domain, highlight_language = "cpp", "text"
myst_heading_anchors = 4
breathe_show_enumvalue_initializer, breathe_show_include = True, False
breathe_projects, breathe_default_project = {"VexIMLib": str(BUILD / "xml")}, "VexIMLib"
smartquotes = False
suppress_warnings = [
    "myst.header",
    "misc.highlighting_failure",  # our "http" blocks are not real HTTP
]

html_theme = "furo"
html_static_path = [str(SITE / "static"), "/usr/share/javascript/lunr/lunr.min.js"]
html_css_files, html_js_files = ["site.css"], ["lunr.min.js", "pages.js", "search.js"]
html_copy_source = html_show_sphinx = html_show_copyright = html_use_index = False
html_theme_options = {"top_of_page_button": None}
pygments_style, pygments_dark_style = "default", "github-dark"

PRIVATE = re.compile(
    r'<sectiondef kind="private-.*?</sectiondef>|<innerclass [^>]*prot="private">.*?</innerclass>',
    re.S)
FOLDERS = {  # of the headers: the title of each, in the order of the navigation
    "VexIMLib": "Client, messages, people",
    "VexIMLib/Foundation": "Values, queue, errors",
    "VexIMLib/Async": "Futures and coroutines",
    "VexIMLib/Loops": "Event loops",
    "VexIMLib/Store": "Store and outbox",
    "VexIMLib/Testing": "Test kit",
    "VexIMLib/C": "C interface",
    "VexIMLib/Foundation/Runtime": "Dynamic properties",
    "VexIMLib/internal": "Beneath them",
}


def reference_pages(app):
    """A page for each header, and one for each folder."""
    headers = sorted((BUILD / "headers/VexIMLib").rglob("*.h"))
    for folder, title in FOLDERS.items():
        inside = [header.relative_to(BUILD / "headers")
                  for header in headers if folder_of(header) == folder]
        place = pathlib.Path(app.srcdir) / "reference" / folder.replace("/", "-")
        place.mkdir(parents=True, exist_ok=True)
        for header in inside:
            (place / f"{header.stem}.rst").write_text(
                f"{header.stem}\n{'=' * 40}\n\n"
                f"``#include <{header}>``\n\n.. doxygenfile:: {header}\n")
        names = "".join(f"   {place.name}/{header.stem}\n" for header in inside)
        place.with_suffix(".rst").write_text(
            f"{title}\n{'=' * 40}\n\n.. toctree::\n   :maxdepth: 1\n\n{names}")


def folder_of(header):
    folder = header.parent.relative_to(BUILD / "headers").as_posix()
    return folder if folder in FOLDERS else "VexIMLib/internal"


def without_private_parts(app):
    """Doxygen writes private members into its XML, whatever its options say."""
    for page in (BUILD / "xml").glob("*.xml"):
        text = page.read_text()
        shorter = PRIVATE.sub("", text)
        if shorter != text:
            page.write_text(shorter)


def navigation(app, docname, source):
    """README.md is the first page, index.md. The tree of pages is added to it; the pages that
    navigation.txt does not name come last."""
    source[0] = source[0].replace("../README.md", "../index.md")
    if docname == "index":
        named = (SITE / "navigation.txt").read_text()
        others = [page for page in sorted(app.env.found_docs)
                  if page not in {"index", *named.split()} and not page.startswith("reference/")]
        source[0] += named.rstrip().removesuffix("```") + "\n".join(others) + "\n```\n"


def linked_names(app, doctree):
    """Links the library's names in backticks to the reference, and names of pages to the pages."""
    links = (nodes.reference, addnodes.pending_xref)
    for literal in list(doctree.findall(nodes.literal)):
        name = re.match(r"(?:vexim::|VX)[\w:]+", literal.astext())
        is_plain = [type(each) for each in literal] == [nodes.Text]
        if name and is_plain and not isinstance(literal.parent, links):
            link = addnodes.pending_xref("", refdomain="cpp", reftype="any", reftarget=name[0],
                                         refwarn=False, refexplicit=True)
            literal.replace_self(link)
            link += literal
    for text in list(doctree.findall(nodes.Text)):
        parts = re.split(r"\bdocs/([\w/-]+)\.md", text)
        if len(parts) > 1 and isinstance(text.parent, nodes.paragraph):
            text.parent.replace(text, [nodes.Text(part) if at % 2 == 0 else page_link(part)
                                       for at, part in enumerate(parts)])


def page_link(page):
    return addnodes.pending_xref("", nodes.inline(), refdomain="std", reftype="doc",
                                 reftarget=f"/docs/{page}", refwarn=True, refexplicit=False)


def members_beside(app, doctree):
    """The classes and members of a header stand in the list beside its page, each name once."""
    seen = set()
    for signature in doctree.findall(addnodes.desc_signature):
        above = [each for each in ancestors(signature) if isinstance(each, addnodes.desc)]
        parts = tuple(name_of(next(each.findall(addnodes.desc_signature)))
                      for each in reversed(above))
        if above and above[0]["objtype"] != "enumerator" and parts not in seen:
            seen.add(parts)
            signature["_toc_name"], signature["_toc_parts"] = parts[-1], parts


def ancestors(node):
    while (node := node.parent) is not None:
        yield node


def name_of(signature):
    # The last one: the names of a template's parameters come before it.
    return [part.astext() for part in signature.findall(addnodes.desc_name)][-1]


def named_rows(app, doctree):
    """Gives rows of tables an anchor, so that a search can lead to an option, not only its page."""
    for number, row in enumerate(doctree.findall(nodes.row)):
        row["ids"].append(f"row-{number}")


def searchable(app, error):
    """Writes what search.js searches: sections, names of the reference and rows of tables."""
    if error:
        return
    entries, kinds = [], (nodes.section, nodes.row, addnodes.desc)
    for docname in sorted(app.env.found_docs):
        tree, page = app.env.get_doctree(docname), app.builder.get_target_uri(docname)
        title = app.env.titles[docname].astext()
        for node in tree.findall(lambda node: isinstance(node, kinds)):
            if isinstance(node, addnodes.desc):
                signature = next(node.findall(addnodes.desc_signature))
                if not signature["ids"]:
                    continue
                name, anchor = name_of(signature), signature["ids"][0]
            elif isinstance(node, nodes.row):
                if isinstance(node.parent, nodes.thead):
                    continue
                name = next(filter(None, (cell.astext() for cell in node)), "")
                anchor = node["ids"][0]
            else:
                name = node[node.first_child_matching_class(nodes.title)].astext()
                anchor = node["ids"][0]
            kind = {nodes.section: "section", nodes.row: "row"}.get(type(node), "name")
            entries.append([name[:120], title, f"{page}#{anchor}", own_text(node)[:4000], kind])
    pathlib.Path(app.outdir, "_static/pages.js").write_text(
        "window.pages = " + json.dumps(entries, ensure_ascii=False))


def own_text(node):
    """The node's text without the parts that are entries of their own."""
    inside = (nodes.section, nodes.row, addnodes.desc, nodes.title, addnodes.desc_signature,
              nodes.comment, nodes.raw)
    children = node.children[1:] if isinstance(node, nodes.row) else node.children
    words = [text.astext() for child in children if not isinstance(child, inside)
             for text in child.findall(nodes.Text)
             if not any(isinstance(above, inside)
                        for above in itertools.takewhile(lambda each: each is not node,
                                                         ancestors(text)))]
    return " ".join(" ".join(words).split())


def mended_theme(app, error):
    """Adds what Debian's Furo lacks: Gumshoe in its script, normalize.css, and dark colours for a
    system that prefers them."""
    if error:
        return
    static = pathlib.Path(app.outdir, "_static")
    script = static / "scripts/furo.js"
    if "import Gumshoe" in script.read_text():
        gumshoe = (static / "scripts/gumshoe-patched.js").read_text()
        script.write_text(gumshoe + re.sub(r"^import .*$", "", script.read_text(), flags=re.M))
    style = static / "styles/furo.css"
    text = style.read_text()
    if "prefers-color-scheme" not in text:
        dark = re.search(r'body\[data-theme="dark"\] \{(.*?)\}', text, re.S)[1]
        text += ("@media not print { @media (prefers-color-scheme: dark) "
                 f'{{ body:not([data-theme="light"]) {{ {dark} }} }} }}\n')
    normal = pathlib.Path("/usr/share/nodejs/normalize.css/normalize.css").read_text
    text = re.sub(r"@import url\(/javascript/normalize[^;]*;", lambda _: normal(), text)
    style.write_text(text)


def setup(app):
    # A namespace is declared in every header.
    logging.getLogger("sphinx.sphinx.domains.cpp").addFilter(
        lambda record: "Duplicate C++ declaration" not in str(record.msg))
    without_private_parts(app)
    reference_pages(app)
    app.add_lexer("live", TextLexer)
    app.connect("source-read", navigation)
    app.connect("doctree-read", members_beside, priority=400)  # before the list is made
    app.connect("doctree-read", named_rows)
    app.connect("doctree-read", linked_names)
    app.connect("build-finished", searchable)
    app.connect("build-finished", mended_theme)

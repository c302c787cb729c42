"""Directives for the pages of the reference, made from the declarations and recorded calls.

    .. closures:: 482-476, 580        the entries of these closures, in the order of their sources
    .. chain:: 482? 476 477 reserve 479
       :when: sparse M, sparse E      the order of calls, and below it what the host does

       Text.

    .. all-closures::                 an index by number

A closure without a comment is a warning, as is one that stands on no page or on two, and a chain
that the recorded calls contradict.
"""

import pathlib
import re

from docutils import nodes
from docutils.parsers.rst import directives
from docutils.statemachine import StringList
from sphinx import addnodes
from sphinx.util import logging
from sphinx.util.docutils import SphinxDirective

from chains import Chain, contradictions
from declarations import read_declarations

log = logging.getLogger(__name__)
DECLARATIONS = {d.number: d for d in read_declarations()}


def read_numbers(text):
    """"482-476, 580" as a list of numbers."""
    found = []
    for part in text.replace(",", " ").split():
        first, _, last = part.partition("-")
        first, last = int(first), int(last or first)
        found += range(first, last - 1, -1) if last < first else range(first, last + 1)
    return found


def reference(number):
    return ":py:func:`%d <_c_closure_%d>`" % (number, number)


def escaped(text):
    """Text of a comment as reStructuredText: `code` is code, all else stands for itself."""
    parts = re.split(r"`([^`]+)`", text)
    plain = [re.sub(r"([\\*_|`<>:])", r"\\\1", part) for part in parts[::2]]
    code = ["\\ ``%s``\\ " % part for part in parts[1::2]] + [""]
    return "".join(p + c for p, c in zip(plain, code)).strip()


def paragraphs(comment):
    """Lines of reStructuredText; what is indented in the comment is shown as it stands."""
    lines = []
    for block in re.split(r"\n\s*\n", comment):
        if block.startswith("  "):
            lines += ["::", ""] + ["   " + line for line in block.splitlines()]
        else:
            lines.append(escaped(" ".join(block.split())))
        lines.append("")
    return lines


def signature(d):
    parameters = ", ".join("%s: %s" % (p.name, p.type.replace(" ", "_")) for p in d.parameters)
    result = ", ".join(slot.__name__ for slot in d.slots)
    kind = "Tuple[%s]" % result if d.slots else d.result.__name__ if d.result else None
    return "_c_closure_%d(%s)%s" % (d.number, parameters, " -> " + kind if kind else "")


def facts(group):
    """Which arrays the closures of the group read and write, and where they stand."""
    for label, written in (("only reads", False), ("writes", True)):
        names = dict.fromkeys(", ".join("``%s``" % p.name for _, p in d.arrays
                                        if p.is_written == written) for d in group)
        text = "; ".join(filter(None, names))
        if text:
            yield "%s %s" % (label, text)
    yield ", ".join(dict.fromkeys("``%s``" % d.path for d in group))


def grouped(declarations):
    """Runs of closures that share the comment above their declarations."""
    group = []
    for d in declarations:
        if group and not (d.comment and (d.comment, d.path) == (group[0].comment, group[0].path)):
            yield group
            group = []
        group.append(d)
    if group:
        yield group


def first_sentence(comment):
    return re.split(r"(?<=[.:])\s", " ".join(comment.split()) + " ")[0].rstrip(":")


class Directive(SphinxDirective):
    def parsed(self, lines):
        node = nodes.container()
        self.state.nested_parse(StringList(lines, self.get_source_info()[0]), 0, node)
        return node.children

    def warn(self, text):
        log.warning(text, location=self.get_location())


class Closures(Directive):
    required_arguments = 1
    final_argument_whitespace = True

    def run(self):
        numbers = read_numbers(self.arguments[0])
        for number in numbers:
            other = self.env.closure_pages.setdefault(number, self.env.docname)
            if number not in DECLARATIONS:
                self.warn("there is no closure %d" % number)
            elif not DECLARATIONS[number].comment:
                self.warn("closure %d has no comment" % number)
            elif other != self.env.docname or numbers.count(number) > 1:
                self.warn("closure %d stands here and in %s" % (number, other))
        found = [DECLARATIONS[n] for n in numbers if n in DECLARATIONS]
        # A comment may refer to the one above it, so what stands in one source keeps its order.
        paths = list(dict.fromkeys(d.path for d in found))
        found.sort(key=lambda d: (paths.index(d.path), d.line))
        return self.parsed([line for group in grouped(found) for line in self.entry(group)])

    def entry(self, group):
        indent = " " * len(".. py:function:: ")
        lines = [indent + signature(d) for d in group]
        lines[0] = ".. py:function:: " + lines[0].strip()
        body = paragraphs(group[0].comment) + [".. rst-class:: facts", "", " · ".join(facts(group))]
        return lines + [""] + ["   " + line for line in body] + [""]


class ChainDirective(Directive):
    required_arguments = 1
    final_argument_whitespace = True
    option_spec = {"when": directives.unchanged_required}
    has_content = True

    def run(self):
        try:
            chain = Chain(self.arguments[0])
        except ValueError as error:
            return [self.state.document.reporter.error(str(error), line=self.lineno)]
        unknown = chain.numbers - set(DECLARATIONS)
        if unknown:
            self.warn("there is no closure %s" % ", ".join(map(str, sorted(unknown))))
        _, (runs,) = contradictions([chain], recorded_calls(self.env))
        self.env.closure_chains.append((self.arguments[0], self.env.docname, self.lineno))
        node = nodes.container(classes=["chain"])
        node += self.parsed([".. rst-class:: when", "", self.options.get("when", ""), ""])
        steps = "".join(self.step(token) for token in chain.tokens)
        node += self.parsed([steps.lstrip(" →"), ""])
        self.state.nested_parse(self.content, self.content_offset, node)
        if runs:
            counted = "The host's tests run this %d times." % runs
            node += self.parsed([".. rst-class:: facts", "", counted])
        return [node]

    def step(self, token):
        if token.isdigit():
            return " " + reference(int(token))
        if token == "reserve":
            return " → **reserve** →"
        return "\\ \\" + token if token in "?*+)" else " \\" + token


class AllClosures(Directive):
    def run(self):
        lines = [".. list-table::", "   :header-rows: 1", "   :widths: 10 90", "",
                 "   * - Number", "     - What it does"]
        for number, d in sorted(DECLARATIONS.items()):
            lines += ["   * - " + reference(number), "     - " + escaped(first_sentence(d.comment))]
        return self.parsed(lines)


def recorded_calls(env):
    if not hasattr(env, "recorded_calls"):
        text = pathlib.Path(env.config.recorded_calls).read_text()
        env.recorded_calls = [[int(n) for n in line.split()] for line in text.splitlines()]
    return env.recorded_calls


def link_numbers(app, doctree):
    """Three-digit numbers in the text are closures: they lead to their entries."""
    name = app.env.docname
    if not name.startswith(("reference/", "writing_a_host")):
        return
    for text in list(doctree.findall(nodes.Text)):
        if not isinstance(text.parent, nodes.paragraph) or "facts" in text.parent["classes"]:
            continue
        parts = re.split(r"(?<![\w.])([1-6]\d\d)(?!\w)", text.astext())
        found = [linked(part, name) if k % 2 else nodes.Text(part) for k, part in enumerate(parts)]
        if len(found) > 1:
            text.parent.replace(text, found)


def linked(number, name):
    if int(number) not in DECLARATIONS:
        return nodes.Text(number)
    return addnodes.pending_xref(number, nodes.inline(number, number), refdomain="py",
                                 reftype="func", reftarget="_c_closure_" + number,
                                 refexplicit=True, refdoc=name)


def begin(app, env, docnames):
    """All pages are read at once, so that what stands on them can be added up."""
    env.closure_pages, env.closure_chains = {}, []


def check(app, env):
    missing = sorted(set(DECLARATIONS) - set(env.closure_pages))
    if missing:
        log.warning("closures on no page: %s", " ".join(map(str, missing)))
    chains = [Chain(expression) for expression, _, _ in env.closure_chains]
    found, _ = contradictions(chains, recorded_calls(env))
    for number, calls in sorted(found.items()):
        pages = ["%s:%d" % (name, line) for chain, (_, name, line)
                 in zip(chains, env.closure_chains) if number in chain.bound]
        log.warning("no chain for closure %d (%s) has these calls of the host: %s", number,
                    ", ".join(pages), " ".join(map(str, calls)))
    del env.recorded_calls


def setup(app):
    app.add_config_value("recorded_calls", "", "env")
    app.add_directive("closures", Closures)
    app.add_directive("chain", ChainDirective)
    app.add_directive("all-closures", AllClosures)
    app.connect("env-before-read-docs", begin)
    app.connect("doctree-read", link_numbers)
    app.connect("env-check-consistency", check)
    return {"parallel_read_safe": False}

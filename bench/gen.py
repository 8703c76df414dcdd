#!/usr/bin/env python3
"""Writes the benchmark's XML files, the same bytes on every run (fixed seed).

  gen.py [--out DIR] [--seed N] [--kind KIND|all] SIZE...

SIZE is approximate, e.g. 2KB, 1MB, 10MB, 100MB (MB = 10^6 bytes). For each size it writes
  root-children-SIZE.xml  a root whose direct children are many small elements with short
                          mixed text (a plain item, an item with an attribute, an item with
                          an inline child, an empty item, a comment now and then);
  records-SIZE.xml        records with attributes and two children each;
  deep-SIZE.xml           records nested 20 to 200 levels deep (at most 203 levels in all,
                          under the parser's limit of 256), an attribute on each level, a
                          short sibling now and then, and a <leaf> at the bottom of each;
  text-SIZE.xml           chapters of long paragraphs, with an internal DTD subset declaring
                          a few general entities (one referring to another) referenced in
                          most paragraphs, character references, escapes and CDATA sections.
A file that is already there is kept unless --force is given.
"""

import argparse
import os
import random
import re
import sys

WORDS = (
    "alpha beta gamma delta epsilon zeta eta theta iota kappa lambda mu nu xi omicron pi rho "
    "sigma tau upsilon phi chi psi omega red green blue amber violet north south east west "
    "river stone field cloud maple cedar birch willow harbour lantern copper silver quartz "
    "garden meadow orchard signal vector packet ledger margin anchor summit valley"
).split()
# A few texts with escapes and non-ASCII characters, so the parser's slower paths run too.
ESCAPED_AND_WIDE = ["caf\u00e9 cr\u00e8me", "fish &amp; chips", "a &lt; b", "\u00fcber stra\u00dfe",
           "\u4e2d\u6587 text", "\u03b1\u03b2\u03b3", "x &gt; y", "na\u00efve r\u00e9sum\u00e9"]
TYPES = ["alpha", "beta", "gamma", "delta", "epsilon", "zeta"]
STATUS = ["active", "inactive", "pending", "archived"]
CHUNK = 20000  # elements generated and written per block, at most


def block_size(target, written, count, guess):
    """Elements in the next block: whole blocks while far from the target, then about as
    many as the remaining bytes need, at the average size so far (guess before any)."""
    per = written / count if count else guess
    return max(1, min(CHUNK, int((target - written) / per) + 1))


def parse_size(text):
    m = re.fullmatch(r"(\d+(?:\.\d+)?)\s*([KMG]?)B?", text.strip(), re.I)
    if not m:
        raise argparse.ArgumentTypeError(f"bad size: {text!r} (e.g. 1MB, 10MB, 100MB)")
    scale = {"": 1, "K": 10**3, "M": 10**6, "G": 10**9}[m.group(2).upper()]
    return text.strip(), int(float(m.group(1)) * scale)


def text_pool(rng, n):
    pool = []
    for _ in range(n):
        if rng.random() < 0.05:
            pool.append(rng.choice(ESCAPED_AND_WIDE))
        else:
            pool.append(" ".join(rng.choice(WORDS) for _ in range(rng.randint(1, 4))))
    return pool


def root_children(rng, target):
    texts = text_pool(rng, 4096)
    # (weight, template): {t} and {u} are short texts, {n} a number.
    shapes = [
        (70, "<item>{t}</item>\n"),
        (12, '<item n="{n}">{t}</item>\n'),
        (10, "<item>{t} <b>{u}</b> {t}</item>\n"),
        (4, "<item/>\n"),
        (3, "<entry>{u}</entry>\n"),
        (1, "<!-- {u} -->\n"),
    ]
    templates = [s for _, s in shapes]
    weights = [w for w, _ in shapes]
    yield "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<root>\n"
    written, count = 0, 0
    while written < target:
        k = block_size(target, written, count, 40)
        shape = rng.choices(templates, weights, k=k)
        t = rng.choices(texts, k=k)
        u = rng.choices(texts, k=k)
        n = rng.choices(range(100000), k=k)
        block = "".join(s.format(t=a, u=b, n=c) for s, a, b, c in zip(shape, t, u, n))
        written += len(block.encode("utf-8"))
        count += k
        yield block
    yield "</root>\n"


def records(rng, target):
    names = text_pool(rng, 4096)
    values = text_pool(rng, 4096)
    fmt = ('<record id="r{i:07d}" type="{ty}" status="{st}" score="{sc}">'
           "<name>{nm}</name><value>{va}</value></record>\n")
    yield "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<records>\n"
    written, count = 0, 0
    while written < target:
        k = block_size(target, written, count, 130)
        ty = rng.choices(TYPES, k=k)
        st = rng.choices(STATUS, k=k)
        sc = rng.choices(range(1000), k=k)
        nm = rng.choices(names, k=k)
        va = rng.choices(values, k=k)
        block = "".join(fmt.format(i=count + j + 1, ty=a, st=b, sc=c, nm=d, va=e)
                        for j, (a, b, c, d, e) in enumerate(zip(ty, st, sc, nm, va)))
        count += k
        written += len(block.encode("utf-8"))
        yield block
    yield "</records>\n"


def deep(rng, target):
    words = text_pool(rng, 4096)
    yield "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<doc>\n"
    written, count = 0, 0
    while written < target:
        levels = rng.randint(18, 198)  # with <doc>, <rec> and <leaf>: 21 to 201 levels
        count += 1
        parts = [f'<rec id="d{count:07d}">']
        for level in range(levels):
            if rng.random() < 0.3:
                parts.append(f"<m>{rng.choice(words)}</m>")
            parts.append(f'<n i="{level}">')
        parts.append(f"<leaf>{rng.choice(words)}</leaf>")
        parts.append("</n>" * levels)
        parts.append("</rec>\n")
        block = "".join(parts)
        written += len(block.encode("utf-8"))
        yield block
    yield "</doc>\n"


# General entities of the text shape: "copy" refers to "corp", so references nest.
ENTITIES = [("corp", "Northwind Instruments"), ("prod", "Lantern Signal Analyser"),
            ("ver", "4.2.1"), ("copy", "&#169; 2024 &corp;"),
            ("warn", "Do not open the casing while the unit is powered.")]
REFERENCES = ["&corp;", "&prod;", "&ver;", "&copy;", "&#233;", "&#x2014;", "&#8364;", "&amp;",
              "&lt;", "&gt;", "\u00e9t\u00e9", "&quot;"]
CODE = ["if (a < b && c > d) { return a; }", "x = y >> 2; /* <shift> */",
        "print('<tag attr=\"1\">&amp;</tag>')", "for (i = 0; i < n; ++i) sum += v[i];"]


def text(rng, target):
    words = text_pool(rng, 4096)
    head = ["<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE book [\n"]
    head += [f'<!ENTITY {name} "{value}">\n' for name, value in ENTITIES]
    head.append("]>\n<book>\n")
    yield "".join(head)
    written, count = 0, 0
    while written < target:
        count += 1
        parts = [f'<chapter id="c{count:06d}">\n<title>Chapter {count}: '
                 f"{rng.choice(words)} &prod; {rng.choice(words)}</title>\n"]
        for _ in range(rng.randint(3, 8)):
            kind = rng.random()
            if kind < 0.12:
                parts.append(f"<code><![CDATA[{rng.choice(CODE)}\n{rng.choice(CODE)}]]></code>\n")
            elif kind < 0.18:
                parts.append("<note>&warn; See &copy;.</note>\n")
            else:
                sentence = []
                for _ in range(rng.randint(60, 220)):
                    sentence.append(rng.choice(REFERENCES) if rng.random() < 0.03 else rng.choice(words))
                parts.append("<para>" + " ".join(sentence) + ".</para>\n")
        parts.append("</chapter>\n")
        block = "".join(parts)
        written += len(block.encode("utf-8"))
        yield block
    yield "</book>\n"


def write(path, parts):
    tmp = path + ".tmp"
    with open(tmp, "w", encoding="utf-8", newline="\n") as out:
        for part in parts:
            out.write(part)
    os.replace(tmp, path)


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("sizes", nargs="*", type=parse_size, default=[parse_size("10MB"), parse_size("100MB")])
    ap.add_argument("--out", default=os.path.join(here, "data"))
    ap.add_argument("--seed", type=int, default=20240611)
    ap.add_argument("--kind", choices=["root-children", "records", "deep", "text", "all"],
                    default="all")
    ap.add_argument("--force", action="store_true")
    args = ap.parse_args()
    os.makedirs(args.out, exist_ok=True)
    kinds = {"root-children": root_children, "records": records, "deep": deep, "text": text}
    for label, size in args.sizes:
        for kind, make in kinds.items():
            if args.kind not in ("all", kind):
                continue
            path = os.path.join(args.out, f"{kind}-{label}.xml")
            if os.path.exists(path) and not args.force:
                print(f"kept    {path}")
                continue
            # Each file has its own stream, so it doesn't depend on what else is written.
            rng = random.Random(f"{args.seed}:{kind}:{size}")
            write(path, make(rng, size))
            print(f"wrote   {path} ({os.path.getsize(path) / 1e6:.1f} MB)")
    return 0


if __name__ == "__main__":
    sys.exit(main())

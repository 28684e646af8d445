#!/usr/bin/env python3
"""Draws what a terminal showed as an SVG picture: picture.py OUTPUT.svg PROMPT < RECORDING

The recording is a terminal's own text, as script(1) makes it: `script -qec "oxtfsctl list" recording`. Of a screen that
was drawn anew only the last drawing is shown. PROMPT is the command line above it.
"""
import html
import re
import sys

COLOURS = {"31": "#e06c75", "32": "#98c379", "33": "#e5c07b", "36": "#56b6c2", "1": "#ffffff", "2": "#8a919c"}
PLAIN, BACKGROUND, LINE, COLUMN = "#dcdfe4", "#22252b", 18, 8.4


def spans(line):
    """The pieces of a line with the colour of each."""
    colour = PLAIN
    for piece in re.split(r"(\x1b\[[0-9;]*m)", line):
        code = re.fullmatch(r"\x1b\[([0-9;]*)m", piece)
        if code:
            colour = COLOURS.get(code.group(1).split(";")[-1], PLAIN)
        elif piece:
            yield colour, piece


def main(output, prompt):
    text = sys.stdin.read().replace("\r", "")
    text = re.sub(r"^Script (started|done).*\n?", "", text, flags=re.M).split("\x1b[2J")[-1]
    lines = ["\x1b[2m$ " + prompt] + text.rstrip("\n").split("\n")
    width = max(sum(len(piece) for _, piece in spans(line)) for line in lines) * COLUMN + 32
    height = len(lines) * LINE + 28
    with open(output, "w", encoding="utf-8") as svg:
        svg.write(f'<svg xmlns="http://www.w3.org/2000/svg" width="{width:.0f}" height="{height}" '
                  f'font-family="DejaVu Sans Mono, Menlo, Consolas, monospace" font-size="14" xml:space="preserve">\n'
                  f'<rect width="100%" height="100%" rx="6" fill="{BACKGROUND}"/>\n')
        for row, line in enumerate(lines):
            column = 0
            for colour, piece in spans(line):
                x, length = 16 + column * COLUMN, len(piece) * COLUMN
                svg.write(f'<text x="{x:.1f}" y="{30 + row * LINE}" fill="{colour}" textLength="{length:.1f}">'
                          # Browsers let several blanks in a row collapse.
                          f"{html.escape(piece.replace(' ', chr(0xA0)))}</text>\n")
                column += len(piece)
        svg.write("</svg>\n")


main(*sys.argv[1:])

"""Draws the costs of a fleet as an SVG picture: three small charts, a bar for each number of servers."""

CHARTS = (
    ("Memory of Prometheus", "MB", lambda costs: costs["memory"] / 1e6),
    ("One round of the rules", "ms", lambda costs: costs["rules"] * 1000),
    ("The console page", "ms", lambda costs: costs["page"] * 1000),
)
WIDTH, HEIGHT, TOP, BOTTOM = 250, 230, 50, 40


def chart(left, title, unit, bars):
    most = max(value for _, value in bars)
    yield f'<text x="{left}" y="24" font-weight="bold">{title}, {unit}</text>'
    slot = WIDTH / len(bars)
    for at, (servers, value) in enumerate(bars):
        tall = (HEIGHT - TOP - BOTTOM) * value / most
        x, y = left + at * slot + 8, HEIGHT - BOTTOM - tall
        yield f'<rect x="{x:.0f}" y="{y:.1f}" width="{slot - 24:.0f}" height="{max(tall, 1):.1f}" fill="#4c78a8"/>'
        middle = x + (slot - 24) / 2
        yield f'<text x="{middle:.0f}" y="{y - 6:.1f}" text-anchor="middle">{value:,.3g}</text>'
        yield f'<text x="{middle:.0f}" y="{HEIGHT - BOTTOM + 18}" text-anchor="middle">{servers:,}</text>'
    yield (f'<line x1="{left}" x2="{left + WIDTH - 16}" y1="{HEIGHT - BOTTOM}" y2="{HEIGHT - BOTTOM}" '
           'stroke="#59636e"/>')


def draw(results, path):
    width = len(CHARTS) * (WIDTH + 20) + 20
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{HEIGHT}" '
             'font-family="DejaVu Sans, Helvetica, Arial, sans-serif" font-size="13">',
             '<rect width="100%" height="100%" fill="#ffffff"/>', '<g fill="#1b2026">']
    for at, (title, unit, value) in enumerate(CHARTS):
        lines += chart(20 + at * (WIDTH + 20), title, unit, [(costs["servers"], value(costs)) for costs in results])
    lines += [f'<text x="20" y="{HEIGHT - 4}" fill="#59636e">servers, with 20 file systems each</text>', "</g>", "</svg>"]
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(lines) + "\n")

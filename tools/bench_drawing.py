"""Charts of horizontal bars, and the frame of other drawings, as plain SVG in the reader's light or dark colours."""

import html

WIDTH, LABEL, VALUE, ROW, TITLE = 900, 310, 120, 19, 40
PLOT = WIDTH - LABEL - VALUE
# The first colours can be read on any ground, for viewers that know nothing of the reader's choice.
STYLE = """
  text { font: 12px system-ui, sans-serif; fill: #76808a; }
  .title { font-weight: 600; font-size: 14px; }
  .bar { fill: #4078c0; } .missed { fill: #c9510c; } .none { fill: #8c959f; }
  .axis { stroke: #76808a; stroke-width: 1; } .target { stroke: #2da44e; stroke-width: 2; stroke-dasharray: 4 3; }
  .whisker { stroke: #76808a; stroke-width: 1; }
  @media (prefers-color-scheme: light) { text { fill: #24292f; } .whisker { stroke: #24292f; } }
  @media (prefers-color-scheme: dark) {
    text { fill: #e6edf3; } .whisker { stroke: #e6edf3; } .bar { fill: #58a6ff; } .missed { fill: #f0883e; }
  }
"""

class Bar:
    def __init__(self, label, value, low, high, limit, met, text):
        self.label, self.value, self.low, self.high = label, value, low, high
        self.limit, self.met, self.text = limit, met, text


def line(x1, y1, x2, y2, kind):
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>'


def draw_bar(bar, y, scale):
    kind = "none" if bar.met is None else "bar" if bar.met else "missed"
    middle = y + ROW / 2
    out = [f'<text x="{LABEL - 8}" y="{middle + 4:.1f}" text-anchor="end">{html.escape(bar.label)}</text>',
           f'<rect x="{LABEL}" y="{y + 3:.1f}" width="{scale(bar.value):.1f}" height="{ROW - 6}" class="{kind}"/>']
    if bar.low is not None:
        out.append(line(LABEL + scale(bar.low), middle, LABEL + scale(bar.high), middle, "whisker"))
    if bar.limit is not None:
        out.append(line(LABEL + scale(bar.limit), y, LABEL + scale(bar.limit), y + ROW, "target"))
    out.append(f'<text x="{LABEL + PLOT + 8}" y="{middle + 4:.1f}">{html.escape(bar.text)}</text>')
    return out


def draw_chart(title, bars, base, y):
    """The chart's elements from y on, and where the next one begins."""
    # A bar that is far longer than the others is cut, so that they can be told apart; its figure stands beside it.
    known = sorted(bar.value for bar in bars)
    longest = min(known[-1], max(4 * known[len(known) // 2], 2.0))
    longest = 1.1 * max([longest, base] + [bar.limit for bar in bars if bar.limit is not None])

    def scale(value):
        return PLOT * min(max(value, 0), longest) / longest

    out = [f'<text x="8" y="{y + 24}" class="title">{html.escape(title)}</text>']
    top = y + TITLE
    for i, bar in enumerate(bars):
        out += draw_bar(bar, top + i * ROW, scale)
    bottom = top + len(bars) * ROW
    out.append(line(LABEL, top, LABEL, bottom, "axis"))
    if base:
        out.append(line(LABEL + scale(base), top, LABEL + scale(base), bottom, "axis"))
    return out, bottom + 8


def note_line(text, y):
    return f'<text x="8" y="{y + 20}">{html.escape(text)}</text>'


def drawing(title, body, height, style=STYLE):
    head = (f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {height}" width="{WIDTH}" '
            f'height="{height}" role="img">\n<title>{html.escape(title)}</title>\n<style>{style}</style>')
    return "\n".join([head, *body, "</svg>"]) + "\n"

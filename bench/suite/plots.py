"""Plots as SVG."""

import math
from xml.sax.saxutils import escape

WIDTH, HEIGHT = 720, 420
LEFT, RIGHT, TOP, BOTTOM = 70, 45, 40, 60
# Told apart on white and by those who see few colours.
COLOURS = ("#0072b2", "#d55e00", "#009e73", "#cc79a7", "#e69f00", "#56b4e9")
STYLE = "text{font:13px sans-serif;fill:#222}.grid{stroke:#ddd}.axis{stroke:#222;fill:none}"


class Axis:
    """Maps values to pixels, by their logarithm or as they are."""

    def __init__(self, values, first_pixel, last_pixel, is_logarithmic):
        self._scale = math.log10 if is_logarithmic else float
        self._first, self._last = first_pixel, last_pixel
        self._low, self._high = self._scale(min(values)), self._scale(max(values))
        if self._low == self._high:
            self._high += 1
        self._is_logarithmic = is_logarithmic

    def pixel(self, value):
        part = (self._scale(value) - self._low) / (self._high - self._low)
        return round(self._first + part * (self._last - self._first), 1)

    def ticks(self):
        if not self._is_logarithmic:
            return [self._low + (self._high - self._low) * part / 4 for part in range(5)]
        # Three to a decade while there are few of them.
        factors = (1, 2, 5) if self._high - self._low < 3 else (1,)
        decades = range(math.floor(self._low), math.ceil(self._high) + 1)
        marks = [factor * 10.0 ** decade for decade in decades for factor in factors]
        return [mark for mark in marks if self._low - 1e-9 <= math.log10(mark) <= self._high + 1e-9]


def _text(x, y, text, anchor="middle", more=""):
    return f'<text x="{x}" y="{y}" text-anchor="{anchor}"{more}>{escape(text)}</text>'


def plot(title, x_title, y_title, series, log_y=True, with_marks=True):
    """An SVG document of the lines `series`, lists of points by name. The x axis is logarithmic."""
    points = [point for line in series.values() for point in line]
    across = Axis([x for x, _ in points], LEFT, WIDTH - RIGHT, True)
    up = Axis([y for _, y in points], HEIGHT - BOTTOM, TOP, log_y)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" width="{WIDTH}" '
             f'height="{HEIGHT}">', f"<style>{STYLE}</style>", f'<rect width="{WIDTH}" height="{HEIGHT}" fill="#fff"/>',
             _text(WIDTH / 2, 22, title, more=' font-weight="bold"')]
    for tick in across.ticks():
        x = across.pixel(tick)
        parts.append(f'<path class="grid" d="M{x} {TOP}V{HEIGHT - BOTTOM}"/>')
        parts.append(_text(x, HEIGHT - BOTTOM + 18, f"{tick:,.10g}"))
    for tick in up.ticks():
        y = up.pixel(tick)
        parts.append(f'<path class="grid" d="M{LEFT} {y}H{WIDTH - RIGHT}"/>')
        parts.append(_text(LEFT - 8, y + 4, f"{tick:,.4g}", "end"))
    parts.append(f'<path class="axis" d="M{LEFT} {TOP}V{HEIGHT - BOTTOM}H{WIDTH - RIGHT}"/>')
    middle = (TOP + HEIGHT - BOTTOM) / 2
    parts.append(_text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 14, x_title))
    parts.append(_text(18, middle, y_title, more=f' transform="rotate(-90 18 {middle})"'))
    for number, (name, line) in enumerate(series.items()):
        colour = COLOURS[number % len(COLOURS)]
        pixels = [(across.pixel(x), up.pixel(y)) for x, y in line]
        parts.append(f'<polyline fill="none" stroke="{colour}" stroke-width="2" points="'
                     + " ".join(f"{x},{y}" for x, y in pixels) + '"/>')
        if with_marks:
            parts += [f'<circle cx="{x}" cy="{y}" r="3.5" fill="{colour}"/>' for x, y in pixels]
        y = TOP + 16 + 18 * number
        parts.append(f'<path d="M{LEFT + 14} {y - 4}h22" stroke="{colour}" stroke-width="3"/>')
        parts.append(_text(LEFT + 42, y, name, "start"))
    return "\n".join([*parts, "</svg>", ""])


def distribution(values, steps=200):
    """Points of the part of the values that is no larger than each."""
    ordered = sorted(values)
    last = len(ordered) - 1
    return [(ordered[round(last * step / steps)], 100 * step / steps) for step in range(steps + 1)]

# SPDX-License-Identifier: MIT
"""The table at the end of a campaign, in Markdown."""
import time


def number(value):
    if isinstance(value, float):
        return f"{value:,.0f}" if abs(value) >= 100 else f"{value:.3g}"
    return f"{value:,}" if isinstance(value, int) else str(value)


def figure_text(figure):
    text = number(figure.value)
    if figure.of is not None:
        text = f"done {text} of {number(figure.of)}" if figure.is_short() else f"done {text}"
    limits = []
    if figure.bound is not None:
        limits.append(f"at most {number(figure.bound)}")
    if figure.least is not None:
        limits.append(f"at least {number(figure.least)}")
    text += f" {figure.unit}" * bool(figure.unit)
    text += f" ({', '.join(limits)})" if limits else ""
    return f"**{text}: broken**" if figure.is_broken() else text


def cell(text):
    return str(text).replace("|", "\\|").replace("\n", " ")


def section_rows(outcome):
    done = f"{number(outcome.checks - outcome.failures)} of {number(outcome.checks)} checks good"
    took = f"{outcome.seconds:.0f} s"
    yield f"| **{outcome.name}** | {cell(outcome.title)} | {done} | {took} | {cell(outcome.verdict())} |"
    for figure in outcome.figures:
        yield f"| | {cell(figure.name)} | {cell(figure_text(figure))} | | |"


def failures(outcomes):
    for outcome in outcomes:
        if outcome.texts:
            yield f"\n{outcome.name}: {outcome.failures} failures, the first:\n"
            yield from (f"- {text}" for text in outcome.texts)
        if outcome.raised:
            yield f"\n{outcome.name} raised:\n\n```\n{outcome.raised.strip()}\n```"


def table(options, outcomes):
    form = "short form" if options.short else f"{options.hours:g} hours"
    lines = [
        f"# Campaign of {time.strftime('%Y-%m-%d %H:%M', time.gmtime())} UTC",
        "",
        f"{form}, preset {options.preset}, seed {options.seed}",
        "",
        "| Section | What | Figures | Time | Verdict |",
        "|---|---|---|---|---|",
    ]
    for outcome in outcomes:
        lines += section_rows(outcome)
    lines += failures(outcomes)
    return "\n".join(lines) + "\n"

"""The figures as a picture, by matplotlib."""


def why_not():
    """None where matplotlib can be used, else what is missing."""
    try:
        import matplotlib  # pylint: disable=import-outside-toplevel,unused-import
    except ImportError:
        return "matplotlib is not installed (Debian: python3-matplotlib)"
    return None


MET, MISSED, OTHER = "#2a7f62", "#b5482f", "#7a8793"


def draw(path, rows, groups, results):
    """Above, each line as a share of its goal; below, rows a second of the
    contenders that read one table in different ways."""
    import matplotlib  # pylint: disable=import-outside-toplevel

    matplotlib.use("svg")
    from matplotlib import pyplot  # pylint: disable=import-outside-toplevel

    shown = [key for key in ("one", "five", "all") if key in results]
    heights = [max(len(rows), 2)] + [len(results[key]) + 1 for key in shown]
    figure, axes = pyplot.subplots(
        len(heights),
        1,
        figsize=(10, 0.36 * sum(heights) + 2.2),
        height_ratios=heights,
        layout="constrained",
    )
    axes = list(axes) if len(heights) > 1 else [axes]
    draw_goals(axes[0], [row for row in rows if row["goal"] is not None])
    for axis, key in zip(axes[1:], shown):
        draw_rates(axis, groups[key], results[key])
    figure.savefig(path)
    pyplot.close(figure)


def draw_goals(axis, rows):
    rows = rows[::-1]
    shares = [row["figure"] / row["goal"] for row in rows]
    errors = [[], []]
    for row, share in zip(rows, shares):
        low = share if row["low"] is None else row["low"] / row["goal"]
        high = share if row["high"] is None else row["high"] / row["goal"]
        errors[0].append(max(0, share - low))
        errors[1].append(max(0, high - share))
    axis.barh(
        [f"{row['nr']}  {row['what']}" for row in rows],
        shares,
        xerr=errors,
        color=[MET if row["met"] else MISSED for row in rows],
        ecolor="black",
        capsize=2,
        height=0.7,
    )
    axis.set_xscale("log")
    axis.set_xticks([0.2, 0.5, 1, 2, 5, 10, 20])
    axis.xaxis.set_major_formatter("{x:g}")
    axis.minorticks_off()
    axis.axvline(1, color="black", linewidth=1)
    axis.set_title("figure as a multiple of its goal (quartiles as whiskers)")
    for nr, row in enumerate(rows):
        axis.text(
            1.01,
            nr,
            f"{row['figure_text']}, goal {row['goal_text']}",
            va="center",
            fontsize=7,
            transform=axis.get_yaxis_transform(),
        )


def draw_rates(axis, group, results):
    """Without the floor, beside which all others would look alike."""
    shown = [results[key] for key in results if key != "floor"][::-1]
    rates = [result.rows_per_second / 1e6 for result in shown]
    ours = [result.contender.name.startswith("parallel") for result in shown]
    bars = axis.barh(
        [result.contender.name for result in shown],
        rates,
        color=[MET if x else OTHER for x in ours],
        height=0.7,
    )
    axis.bar_label(bars, fmt=" %.1f", fontsize=7)
    title = f"{group.table}, {group.title}: million rows a second"
    if "floor" in results:
        floor = results["floor"].rows_per_second / 1e6
        title += f" (the floor: {floor:.0f})"
    axis.set_title(title)
    axis.margins(x=0.1)

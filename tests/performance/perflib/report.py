"""The page that script/performance writes, and the raw figures."""

import json
import os
import platform

MARK = "<!-- {} {} (written by script/performance) -->"


def machine():
    """What kind of machine this is."""
    model, memory = "unknown processor", 0
    with open("/proc/cpuinfo", encoding="utf-8", errors="replace") as file:
        for line in file:
            if line.lower().startswith("model name"):
                model = line.partition(":")[2].strip()
                break
    with open("/proc/meminfo", encoding="ascii") as file:
        memory = int(file.readline().split()[1])
    return {"processor": model, "cores": len(os.sched_getaffinity(0)), "memory_gib": round(memory / 1048576),
            "kernel": platform.release().split("-")[0], "architecture": platform.machine(),
            "load_before": round(os.getloadavg()[0], 2)}


def replace_part(text, name, part):
    """`text` with what stands between the marks of `name` replaced; appended with marks when they are missing."""
    begin, end = MARK.format("begin", name), MARK.format("end", name)
    block = f"{begin}\n{part.strip()}\n{end}"
    before, found, rest = text.partition(begin)
    if not found:
        return f"{text.rstrip()}\n\n{block}\n"
    return before + block + rest.partition(end)[2]


def run_part(facts, problems):
    """How this run was made."""
    lines = [f"Measured {facts['date']} on: {facts['processor']}, {facts['cores']} cores, {facts['memory_gib']} GiB of memory; "
             f"{facts['architecture']}, Linux {facts['kernel']}. {facts['runs']} runs of each measurement; the run took "
             f"{facts['minutes']} minutes; load of the machine before it: {facts['load_before']}."]
    if problems:
        lines += ["", "What could not be measured:", ""] + [f"- {text}" for text in problems]
    return "\n".join(lines)


def write_page(path, template, parts):
    """The page with every part replaced."""
    with open(template, encoding="utf-8") as file:
        text = file.read()
    for name, part in parts.items():
        text = replace_part(text, name, part)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)


def write_raw(path, facts, results, problems):
    """All figures of all runs."""
    with open(path, "w", encoding="utf-8") as file:
        json.dump({"machine": facts, "problems": problems, "lines": results}, file, indent=1)
        file.write("\n")


def read_raw(path):
    """(facts, results, problems) that write_raw has written."""
    with open(path, encoding="utf-8") as file:
        raw = json.load(file)
    return raw["machine"], raw["lines"], raw["problems"]

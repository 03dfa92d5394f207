#!/usr/bin/env python3
"""Makes docs/performance.md and its pictures of what the benchmark programs wrote.

usage: report.py RESULTS DOCS

RESULTS holds one JSON file of Google Benchmark for each program and round. A benchmark's name is
topic/subject/n. A ratio is the median of the rounds' ratios, so that a clock that swings between
rounds does not matter; where a program has measured both subjects, its own two figures are compared.
Fills the template beside this file and prints the tables.
"""

import json
import pathlib
import platform
import re
import statistics
import subprocess
import sys

OURS = "KestrinProfile"
SESSIONS = "KestrinHousehold"
BORDER = "KestrinC"
JOURNAL = "with the journal"
REQUESTS = ["request_history", "request_add_video", "request_create_profile"]


class Results:
    """The figures of all rounds: of a topic, a subject and an n, one record for each round."""

    def __init__(self, folder):
        self.records = {}
        files = sorted(folder.glob("*.json"), key=lambda file: int(file.stem.rsplit(".", 1)[-1])
                       if file.stem.rsplit(".", 1)[-1].isdigit() else 0)
        for file in files:
            content = json.loads(file.read_text())
            for record in content.get("benchmarks", []):
                if record.get("aggregate_name", "median") != "median" or "error_occurred" in record:
                    continue
                parts = [part for part in record.get("run_name", record["name"]).split("/")
                         if part not in ("real_time", "manual_time") and ":" not in part.replace("::", "")]
                n = int(parts[-1]) if parts[-1].isdigit() else 1
                subject = "/".join(parts[1:-1] if parts[-1].isdigit() else parts[1:])
                program, _, round_number = file.stem.rpartition(".")
                record.update(program=program, round=round_number)
                self.records.setdefault((parts[0], subject, n), []).append(record)

    def subjects(self, topic):
        return list(dict.fromkeys(key[1] for key in self.records if key[0] == topic))

    def sizes(self, topic):
        return sorted({key[2] for key in self.records if key[0] == topic})

    def values(self, topic, subject, n, figure):
        return [figure(record) for record in self.records.get((topic, subject, n), [])]

    def median(self, topic, subject, n, figure):
        values = self.values(topic, subject, n, figure)
        return statistics.median(values) if values else None

    def ratio(self, topic, n, subject, other, figure):
        """How many times the figure of `subject` is that of `other`."""
        ours = self.records.get((topic, subject, n), [])
        theirs = self.records.get((topic, other, n), [])
        has_both = {record["program"] for record in ours} & {record["program"] for record in theirs}

        def run(record):
            return record["round"], record["program"] if has_both else None

        at = {run(record): figure(record) for record in ours}
        ratios = [at[run(record)] / figure(record) for record in theirs
                  if run(record) in at and figure(record)]
        return statistics.median(ratios) if ratios else None


def nanoseconds(record):
    """Time for one item."""
    return 1e9 / record["items_per_second"]


def counter(name):
    return lambda record: record.get(name, 0)


def shown(value, digits=3):
    if value is None:
        return "–"
    if value >= 10 ** digits:
        return f"{value:,.0f}"
    return f"{value:.{digits}g}"


def table(headings, rows):
    lines = ["| " + " | ".join(headings) + " |", "|" + "---|" * len(headings)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def time_table(results, topic):
    """Of each subject the time for an item, and how many times as long it takes as ours."""
    sizes = results.sizes(topic)
    headings = [""] + [heading for n in sizes for heading in
                       ((f"ns, n = {n:,}", "against ours") if len(sizes) > 1 else ("ns", "against ours"))]
    rows = []
    for subject in results.subjects(topic):
        row = [subject]
        for n in sizes:
            row.append(shown(results.median(topic, subject, n, nanoseconds)))
            times = results.ratio(topic, n, subject, OURS, nanoseconds)
            row.append(shown(times, 2) + (" ×" if times else ""))
        rows.append(row)
    return table(headings, rows)


def counter_table(results, topic, n, names):
    rows = [[subject] + [shown(results.median(topic, subject, n, counter(name))) for name in names]
            for subject in results.subjects(topic)
            if results.median(topic, subject, n, counter(names[0]))]
    return table([""] + [name.replace("_", " ") for name in names], rows)


def rate_table(results, topics, ours=OURS):
    rows = []
    for topic in topics:
        for n in results.sizes(topic):
            for subject in results.subjects(topic):
                rate = results.median(topic, subject, n, lambda record: record["items_per_second"])
                if rate is None:
                    continue
                rows.append([f"{topic}, n = {n:,}", subject, shown(rate),
                             shown(results.ratio(topic, n, ours, subject,
                                                 lambda record: record["items_per_second"]), 3),
                             shown(results.median(topic, subject, n, counter("p50_us")) or None),
                             shown(results.median(topic, subject, n, counter("p99_us")) or None)])
    return table(["work", "", "per second", "ours is … times that", "p50 µs", "p99 µs"], rows)


def write_figures(results):
    """Of the median times: what the service adds to SQLite's commit, what a bare exchange takes, and
    how many times the commit the two take one after the other."""
    p50 = counter("p50_us")
    exchange = results.median("server_exchange", OURS, 1, p50)
    write = results.median("server_write", OURS, 1, p50)
    commit = results.median("server_write", "SQLite", 1, p50)
    if not (exchange and write and commit):
        return dict.fromkeys(("write_added", "exchange", "write_floor"), shown(None))
    return {"write_added": shown(write - commit), "exchange": shown(exchange),
            "write_floor": shown((exchange + commit) / commit)}


def damage_table(folder):
    damage = json.loads((folder / "damage.json").read_text())
    rows = [[name, str(each["accepted"]), str(each["crashed"])]
            for name, each in damage["decoders"].items()]
    return table([f"of {damage['broken']:,} broken texts", "taken", "ended the process"], rows)


def instructions(folder, name):
    """Of each subject in a file what callgrind has counted."""
    return {subject: int(count) for subject, count in
            (line.split("\t") for line in (folder / name).read_text().splitlines())}


def instruction_table(folder):
    return table(["", "instructions per entry"],
                 [[name, shown(count / 1000)] for name, count in instructions(folder, "instructions.tsv").items()])


def session_table(results, folder):
    counted = instructions(folder, "session_instructions.tsv")
    return table(["one call with a held bind", "ns", "allocations", "instructions"],
                 [[layer, shown(results.median("session_history", layer, 1, nanoseconds)),
                   shown(results.median("session_history", layer, 1, counter("allocations"))), shown(counted[layer])]
                  for layer in (OURS, SESSIONS, BORDER)])


def waiters_table(results):
    return table(["calls that wait for one bind", "ns for each"],
                 [[f"{n:,}", shown(results.median("session_waiters", SESSIONS, n, nanoseconds))]
                  for n in results.sizes("session_waiters")])


def home_table(results):
    rows = [[text, subject, shown(results.median(topic, subject, 1, counter("round_trips"))),
             shown(results.median(topic, subject, 1, counter("connections")))]
            for text, topic in (("without a bind", "home_screen"), ("with a bind, after `warmUp`", "home_screen_held_bind"))
            for subject in results.subjects(topic)]
    return table(["", "", "round trips", "connections"], rows)


def write_bytes_table(results):
    names = ["bytes", "sent", "sent_tls", "sent_body", "received", "received_tls"]
    return counter_table(results, "write_bytes", 1, names)


# What is promised: the text, the figure of the results, and what it has to be.
AT_LEAST, AT_MOST = ">=", "<="


def goals(results, folder):
    def times(topic, n, peer):
        return results.ratio(topic, n, peer, OURS, nanoseconds)

    def rate(topic, n, peer):
        return results.ratio(topic, n, OURS, peer, lambda record: record["items_per_second"])

    def p99(topic, n, peer):
        return results.ratio(topic, n, OURS, peer, counter("p99_us"))

    def ours(topic, n, figure):
        return results.median(topic, OURS, n, figure)

    def slowest(subject, figure):
        values = [results.median(topic, subject, 1, figure) for topic in REQUESTS]
        return max((value for value in values if value is not None), default=None)

    def journalling(subject):
        rates = [results.ratio(topic, n, subject, OURS, lambda record: record["items_per_second"])
                 for topic in ("server_read", "server_write") for n in results.sizes(topic)]
        return min((each for each in rates if each is not None), default=None)

    def sessions(topic, n, figure):
        return results.median(topic, SESSIONS, n, figure)

    def added(figure):
        plain, session = ours("session_history", 1, figure), sessions("session_history", 1, figure)
        return session - plain if plain is not None and session is not None else None

    counted = instructions(folder, "session_instructions.tsv")

    def only(topic):
        sizes = results.sizes(topic)
        return sizes[-1] if sizes else 1

    # A libcurl before 8.1.0 gets a new handle for each request, because a used one may corrupt the heap.
    rate_wanted = 0.75 if libcurl_version() < (8, 1, 0) else 0.85
    many, one, tls, big = "http_64_in_flight", "http_one_at_a_time", "https_http2_64_in_flight", "http_1MB"
    return [
        ("decode 50 entries, times faster than nlohmann-json", times("decode", 50, "nlohmann-json"), AT_LEAST, 8),
        ("decode 1,000 entries, the same", times("decode", 1000, "nlohmann-json"), AT_LEAST, 9),
        ("decode 100,000 entries, the same", times("decode", 100000, "nlohmann-json"), AT_LEAST, 9),
        ("decode 1,000 entries with shuffled keys, the same", times("decode_shuffled", 1000, "nlohmann-json"), AT_LEAST, 7),
        ("peak bytes per entry at 1,000, with text and record", ours("decode", 1000, counter("peak_bytes_per_entry")), AT_MOST, 700),
        ("allocations per entry at 50", ours("decode", 50, counter("allocations_per_entry")), AT_MOST, 1.2),
        ("parse a date, times faster than ICU", times("date_parse", 1, "ICU"), AT_LEAST, 50),
        ("format a date, times faster than ICU", times("date_format", 1, "ICU"), AT_LEAST, 50),
        ("one request without the network, ns; the slowest of three", slowest(OURS, nanoseconds), AT_MOST, 5000),
        ("the same, allocations", slowest(OURS, counter("allocations")), AT_MOST, 40),
        ("the same with RxCpp, ns", slowest(OURS + " with RxCpp", nanoseconds), AT_MOST, 8000),
        ("one at a time, rate against plain libcurl", rate(one, only(one), "libcurl"), AT_LEAST, rate_wanted),
        ("one at a time, p99 against plain libcurl", p99(one, only(one), "libcurl"), AT_MOST, 1.5),
        ("one at a time, rate against cpprestsdk", rate(one, only(one), "cpprestsdk"), AT_LEAST, 2),
        ("64 in flight, rate against plain libcurl", rate(many, only(many), "libcurl"), AT_LEAST, rate_wanted),
        ("64 in flight, p99 against plain libcurl", p99(many, only(many), "libcurl"), AT_MOST, 1.5),
        ("64 in flight, rate against cpprestsdk", rate(many, only(many), "cpprestsdk"), AT_LEAST, 2),
        ("HTTP/2 over TLS, rate against plain libcurl", rate(tls, only(tls), "libcurl"), AT_LEAST, rate_wanted),
        ("HTTP/2 over TLS, p99 against plain libcurl", p99(tls, only(tls), "libcurl"), AT_MOST, 1.5),
        ("1 MB replies, rate against plain libcurl", rate(big, only(big), "libcurl"), AT_LEAST, 0.9),
        ("100,000 waiting subscriptions, MB", ours("subscriptions", 100000, counter("total_MB")), AT_MOST, 150),
        ("template, times faster than find and replace", times("template", 8, "find and replace"), AT_LEAST, 3),
        ("percent-encoding, times faster than curl_easy_escape", times("percent_encoding", 20, "curl_easy_escape"), AT_LEAST, 3),
        ("a call of a session with a held bind, instructions against plain Profile", counted[SESSIONS] / counted[OURS], AT_MOST, 1.25),
        ("the same, allocations more", added(counter("allocations")), AT_MOST, 6),
        ("the same call through the interface for C, instructions against the session's", counted[BORDER] / counted[SESSIONS], AT_MOST, 1.1),
        ("a list of 500 entries as Java objects, times faster than Jackson", times("java_list", 500, "Jackson"), AT_LEAST, 3),
        ("home screen of a fresh process without a bind, round trips", sessions("home_screen", 1, counter("round_trips")), AT_MOST, 4.2),
        ("home screen with a bind after warmUp, round trips", sessions("home_screen_held_bind", 1, counter("round_trips")), AT_MOST, 1.2),
        ("an outbox's append, times SQLite's own commit", results.ratio("outbox_append_in_turn", 1, SESSIONS, "SQLite", nanoseconds), AT_MOST, 1.3),
        ("an append to an idle outbox, until a thread that waits for it goes on", results.ratio("outbox_append", 1, SESSIONS, "SQLite", nanoseconds), AT_MOST, 1.3),
        ("sending 1,000 entries of an outbox, rate against the session one after the other", results.ratio("outbox_drain", 1000, SESSIONS, "one after the other", lambda record: record["items_per_second"]), AT_LEAST, 0.8),
        ("a progress write on a connection that is there, bytes", ours("write_bytes", 1, counter("bytes")), AT_MOST, 400),
        ("service: reads of 50 entries per second", ours("server_read", only("server_read"), lambda record: record["items_per_second"]), AT_LEAST, 8000),
        ("service: the slowest of reads and writes with the journal, rate against the same without", journalling(JOURNAL), AT_LEAST, 0.95),
        ("service: the same with a fault rule that no request meets", journalling(JOURNAL + " and a fault rule"), AT_LEAST, 0.95),
        ("service: a durable write, times SQLite's own commit", results.ratio("server_write", only("server_write"), OURS, "SQLite", nanoseconds), AT_MOST, 1.3),
    ]


def verdict(value, kind, limit):
    if value is None:
        return "not measured"
    return "met" if (value >= limit if kind == AT_LEAST else value <= limit) else "missed"


def goal_table(results, folder):
    rows = [[text, shown(value), f"{'at least' if kind == AT_LEAST else 'at most'} {limit:,}",
             verdict(value, kind, limit)] for text, value, kind, limit in goals(results, folder)]
    return table(["goal", "measured", "wanted", ""], rows)


def picture(docs, name, title, axes, curves):
    """Draws curves, a list of (title, [(x, y)…]), with gnuplot."""
    plots = ", ".join(f"'-' using 1:2 with linespoints lw 2 pt 7 ps 0.5 title '{label}'"
                      for label, _ in curves)
    inline = "\ne\n".join("\n".join(f"{x} {y}" for x, y in points) for _, points in curves) + "\ne\n"
    script = (f"set terminal svg size 720,420 font 'sans-serif,13' background 'white'\n"
              f"set title '{title}'\nset xlabel '{axes[0]}'\nset ylabel '{axes[1]}'\n"
              f"set logscale xy\nset grid\nset key left top\nset format '%.0s%c'\n"
              f"plot {plots}\n{inline}")
    drawn = subprocess.run(["gnuplot"], input=script, capture_output=True, text=True, check=True)
    (docs / "pictures").mkdir(exist_ok=True)
    (docs / "pictures" / f"{name}.svg").write_text(drawn.stdout)


def curve(results, topic, subject, figure):
    return (subject, [(n, results.median(topic, subject, n, figure)) for n in results.sizes(topic)
                      if results.median(topic, subject, n, figure) is not None])


def pictures(results, docs):
    whole = lambda record: record["real_time"] * {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1}[record["time_unit"]]
    drawn = [("entries", "From text to record", ("entries", "seconds"),
              [curve(results, "decode", subject, whole) for subject in results.subjects("decode")]),
             ("requests", "Requests, all issued at once", ("requests", "seconds"),
              [curve(results, "http_requests", OURS, whole)]),
             ("subscriptions", "Subscriptions that wait", ("subscriptions", "MB held"),
              [curve(results, "subscriptions", OURS, counter("total_MB"))])]
    for name, title, axes, curves in drawn:
        curves = [each for each in curves if each[1]]
        if curves:
            picture(docs, name, title, axes, curves)


def libcurl_version():
    shown_version = subprocess.run(["pkg-config", "--modversion", "libcurl"], capture_output=True, text=True,
                                   check=True).stdout
    return tuple(int(part) for part in re.findall(r"\d+", shown_version))


def machine():
    cpu = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    compiler = subprocess.run(["g++", "--version"], capture_output=True, text=True, check=True)
    packages = ["libboost-json1.81-dev", "libcurl4-openssl-dev", "libsqlite3-dev", "libicu-dev",
                "nlohmann-json3-dev", "rapidjson-dev", "libsimdjson-dev", "libcpp-httplib-dev",
                "libhowardhinnant-date-dev", "libfmt-dev", "nginx-light"]
    versions = subprocess.run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *packages],
                              capture_output=True, text=True, check=False).stdout
    return "\n".join([f"- {cpu.group(1) if cpu else platform.machine()}, Linux {re.match(r'[0-9.]+', platform.release()).group()}",
                      f"- {compiler.stdout.splitlines()[0]}, -O3",
                      "- " + ", ".join(versions.split("\n")).rstrip(", ")])


def main():
    folder, docs = map(pathlib.Path, sys.argv[1:3])
    results = Results(folder)
    sections = {
        "machine": machine(),
        "goals": goal_table(results, folder),
        "decode": time_table(results, "decode"),
        "decode_shuffled": time_table(results, "decode_shuffled"),
        "decode_heap": counter_table(results, "decode", 1000, ["peak_bytes_per_entry", "allocations_per_entry"]),
        "instructions": instruction_table(folder),
        "damage": damage_table(folder),
        "date_parse": time_table(results, "date_parse"),
        "date_format": time_table(results, "date_format"),
        "texts": time_table(results, "percent_encoding") + "\n\n" + time_table(results, "template"),
        "requests": "\n\n".join(f"`{topic}`:\n\n" + counter_table_with_time(results, topic) for topic in
                                [*REQUESTS, "rx_chain"]),
        "sessions": session_table(results, folder) + "\n\n" + waiters_table(results),
        "java": time_table(results, "java_list"),
        "outbox": rate_table(results, ["outbox_append_in_turn", "outbox_append", "outbox_drain"], SESSIONS),
        "home": home_table(results),
        "write_bytes": write_bytes_table(results),
        "http": rate_table(results, ["http_one_at_a_time", "http_64_in_flight",
                                     "https_http2_64_in_flight", "http_1MB", "http_requests"]),
        "subscriptions": counter_table_by_size(results, "subscriptions", ["bytes_per_subscription", "total_MB"]),
        **write_figures(results),
        "server": rate_table(results, ["server_exchange", "server_read", "server_write", "server_write_concurrent"]),
    }
    template = (pathlib.Path(__file__).parent / "performance.md.in").read_text()
    for name, content in sections.items():
        template = template.replace("{{" + name + "}}", content)
    (docs / "performance.md").write_text(template)
    pictures(results, docs)
    print(sections["goals"])


def counter_table_with_time(results, topic):
    rows = [[subject, shown(results.median(topic, subject, n, nanoseconds)),
             shown(results.median(topic, subject, n, counter("allocations")))]
            for n in results.sizes(topic) for subject in results.subjects(topic)]
    return table(["", "ns", "allocations"], rows)


def counter_table_by_size(results, topic, names):
    rows = [[f"{n:,}"] + [shown(results.median(topic, OURS, n, counter(name))) for name in names]
            for n in results.sizes(topic)]
    return table(["n"] + [name.replace("_", " ") for name in names], rows)


if __name__ == "__main__":
    main()

#!/usr/bin/python3
"""Checks JSON Lines reports of varn -json against the events schema.

    validate_events.py SCHEMA REPORT...

Every report must be UTF-8, every line one JSON object (no NaN or Infinity, no duplicate
members) that the schema accepts, with formats (ipv4, ipv6) checked. Prints one line per fault
and "checked N events" at the end; exits 1 on any fault, 2 when jsonschema is missing.
"""
import json
import sys

try:
    import jsonschema
except ImportError:
    print("python3-jsonschema is not installed", file=sys.stderr)
    sys.exit(2)


def no_constants(name):
    raise ValueError("not JSON: " + name)


def no_duplicates(pairs):
    seen = {}
    for key, value in pairs:
        if key in seen:
            raise ValueError("duplicate member " + key)
        seen[key] = value
    return seen


def main():
    with open(sys.argv[1], encoding="utf-8") as f:
        schema = json.load(f)
    validator = jsonschema.Draft202012Validator(schema, format_checker=jsonschema.FormatChecker())
    faults = events = 0
    for path in sys.argv[2:]:
        with open(path, "rb") as f:
            data = f.read()
        try:
            text = data.decode("utf-8")
        except UnicodeDecodeError as e:
            print(f"{path}: not UTF-8: {e}")
            faults += 1
            continue
        if text and not text.endswith("\n"):
            print(f"{path}: the last line has no line end")
            faults += 1
        for number, line in enumerate(text.splitlines(), 1):
            events += 1
            try:
                event = json.loads(line, parse_constant=no_constants, object_pairs_hook=no_duplicates)
            except ValueError as e:
                print(f"{path}:{number}: {e}")
                faults += 1
                continue
            for error in validator.iter_errors(event):
                print(f"{path}:{number}: {error.json_path}: {error.message}")
                faults += 1
    print(f"checked {events} events")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())

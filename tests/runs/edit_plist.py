#!/usr/bin/env python3
"""Changes a property list in place.

usage: edit_plist.py FILE [KEY=VALUE | -KEY]...

VALUE is JSON, or else text; "files:A,B" is an array of these files' bytes, "date:YYYY-MM-DD" a date.
A KEY of several names, joined by "/", leads into dictionaries. "-KEY" takes the key out.
"""
import datetime
import json
import plistlib
import sys


def value_of(text: str) -> object:
    if text.startswith("files:"):
        return [open(name, "rb").read() for name in text[6:].split(",")]
    if text.startswith("date:"):
        return datetime.datetime.fromisoformat(text[5:])
    try:
        return json.loads(text)
    except json.JSONDecodeError:
        return text


def change(dictionary: dict, argument: str) -> None:
    key, is_set, text = argument.partition("=")
    *parents, name = key.removeprefix("-").split("/")
    for parent in parents:
        dictionary = dictionary[parent]
    if is_set:
        dictionary[name] = value_of(text)
    else:
        del dictionary[name]


def main() -> None:
    path, *arguments = sys.argv[1:]
    with open(path, "rb") as file:
        dictionary = plistlib.load(file)
    for argument in arguments:
        change(dictionary, argument)
    with open(path, "wb") as file:
        plistlib.dump(dictionary, file)


main()

# Reads one JSON document on standard input with Python's json module and writes it as a Lua
# expression (objects and arrays as tables, null as the name null), so the Lua tests check the
# command's JSON as a real parser reads it.
import json
import sys


def lua(value):
    if value is None:
        return "null"
    if isinstance(value, bool):
        return "true" if value else "false"
    if isinstance(value, (int, float)):
        return repr(value)
    if isinstance(value, str):
        return '"' + "".join(c if " " <= c <= "~" and c not in '"\\' else "".join("\\%d" % b for b in c.encode()) for c in value) + '"'
    if isinstance(value, list):
        return "{" + ", ".join(lua(v) for v in value) + "}"
    return "{" + ", ".join("[%s] = %s" % (lua(k), lua(v)) for k, v in value.items()) + "}"


print("return " + lua(json.load(sys.stdin)))

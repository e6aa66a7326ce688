"""Checks the list that --print-specializations=json made of specializations.vk."""
import json
import sys

entries = json.load(open(sys.argv[1], encoding="utf-8"))
assert [entry["name"] for entry in entries] == ["Box.also<String>", "Box.put<String>", "outer<Int>", "pick<Int>"], entries
put = entries[1]
assert put["requester"] == "Box.also<String>" and put["line"] == 16 and put["origin"] == "unit", put
assert put["signature"] == "(String) -> String" and put["owner"] == "Box" and put["nanoseconds"] > 0, put
assert entries[2]["requests"] == 2, entries[2]
assert len({entry["symbol"] for entry in entries}) == 4

# SPDX-License-Identifier: MIT
# json_schema.py <schema file> <file>: one line of the file is one JSON text. Prints
# for each of them "1" when the schema (draft 2020-12) accepts it, else "0".
import json
import sys

from jsonschema import Draft202012Validator

with open(sys.argv[1], encoding="utf-8") as file:
    schema = json.load(file)
Draft202012Validator.check_schema(schema)
validator = Draft202012Validator(schema)
with open(sys.argv[2], encoding="utf-8", errors="replace") as documents:
    for text in documents.read().split("\n")[:-1]:
        try:
            accepted = validator.is_valid(json.loads(text))
        except ValueError:
            accepted = False
        sys.stdout.write("1" if accepted else "0")

"""docs/api.md, made of the OpenAPI document that the daemon answers with."""
import json
import re
import textwrap

from api_world import CONFIGURATION, SHOWN, examples_of, key_of

WIDTH = 110
WHO = {"administrators": "administrators", "viewers": "administrators and viewers"}
TITLE = """# The administration interface

Every operation of every plug-in, and every endpoint of the daemon. This page is made of what the daemon says
of itself: `GET /v1/openapi.json` answers the same as an OpenAPI 3.1 document. Its sources are
`plugins/*/NAME.json`, `src/module/paddock_sharing.json` and `src/openapi/skeleton.json`; `tests/api/README.md`
says how both are made anew. What the statuses mean is in [statuses.md](statuses.md).
"""
BEGIN = """## Requests

%(description)s

## Answers

| HTTP | When |
|---|---|
| 200 | It was answered; of an operation, whatever its status. |
%(responses)s

Who may call an operation, or an endpoint, stands with it; "viewers" are the members of `view_group`. 403 and
404 come in this order, so that nobody without rights learns what there is.

A request for a change, allowed or refused, leaves a line in `/var/log/paddock/audit.jsonl`, with the keys of
[AuditLine](#auditline); a request that only reads leaves none, unless it brings credentials. Passwords and
credentials are never in it.

## The examples

%(world)s

%(configuration)s

Of an example there is what is sent, the reply, and the audit line where there is one. On the command line it is

    curl --unix-socket /run/paddock/paddockd.sock -d '{"path": "/srv/photos"}' \\
        http://paddock/v1/paddock_files/getMode
    keelhouse request paddock_files getMode '{"path": "/srv/photos"}'
"""
WORLD = """Each is sent to a running daemon by a test, and answered as it stands here. %s The daemon runs below
`/run/example` (`paddockd --root`), where no server runs; `/srv` is a volume of its own, with the folder
`/srv/photos`, and in it the folder `2024` and the file `notes.txt`; www-data is in the group games, too. root
asks, but where somebody else is named. The configuration:""" % SHOWN


def pretty(value, indent=0):
    """JSON over as few lines as fit."""
    line = json.dumps(value, ensure_ascii=False)
    if len(line) + indent <= WIDTH or not isinstance(value, (dict, list)) or not value:
        return line
    pad = " " * (indent + 2)
    if isinstance(value, dict):
        parts = ["%s%s: %s" % (pad, json.dumps(key, ensure_ascii=False), pretty(held, indent + 2))
                 for key, held in value.items()]
    else:
        parts = [pad + pretty(held, indent + 2) for held in value]
    begin, end = "{}" if isinstance(value, dict) else "[]"
    return "%s\n%s\n%s%s" % (begin, ",\n".join(parts), " " * indent, end)


def wrapped(text):
    """Its paragraphs."""
    return "\n\n".join(textwrap.fill(part, WIDTH, break_long_words=False, break_on_hyphens=False)
                       for part in text.split("\n\n"))


def indented(text):
    return "\n".join("    " + line if line else "" for line in text.splitlines())


def anchor(heading):
    return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")


def cell(text):
    return text.replace("|", "\\|").replace("\n", " ")


def schema_of(body):
    return body["content"]["application/json"]["schema"]


def name_of(reference):
    return reference.rsplit("/", 1)[1]


def type_of(schema):
    if "$ref" in schema:
        name = name_of(schema["$ref"])
        return "[%s](#%s)" % (name.rsplit(".", 1)[-1], anchor(name))
    kind = schema.get("type", "any")
    if isinstance(kind, list):
        return " or ".join(kind)
    if kind == "array":
        return "array of " + type_of(schema["items"]) if "items" in schema else "array"
    return {"object": "dictionary"}.get(kind, kind)


def meaning_of(schema):
    words = []
    if "enum" in schema:
        words.append("one of " + ", ".join('"%s"' % one for one in schema["enum"]))
    if "description" in schema:
        words.append(schema["description"])
    return "; ".join(words)


def keys_table(title, schema, components):
    """The keys of a dictionary, with those of the dictionaries in it that have no name."""
    lines = ["| %s | Type | |" % title, "|---|---|---|"]

    def add(before, one):
        needed = one.get("required", [])
        for key, held in one.get("properties", {}).items():
            kind = type_of(held) + (", needed" if key in needed and title == "Request" else "")
            lines.append("| `%s%s` | %s | %s |" % (before, key, kind, cell(meaning_of(held))))
            inner = held.get("items", held)
            add(before + key + (".N." if "items" in held else "."), inner if "$ref" not in inner else {})

    if "$ref" in schema:
        schema = components[name_of(schema["$ref"])]
    add("", schema)
    if len(lines) > 2:
        return "\n".join(lines)
    return {"Request": "No key of the request is read.", "Reply": "The reply: " + schema.get("description", "")}[title]


def example_text(status, example):
    asked = example["x-request"]
    lines = [asked["method"] + " " + asked["target"]]
    lines += ["%s: %s" % header for header in asked.get("headers", {}).items()]
    if "body" in asked or "text" in asked:
        lines += ["", asked.get("text") or pretty(asked["body"])]
    lines += ["", str(status), pretty(example["value"])]
    if "x-audit" in example:
        lines += ["", "audit: " + json.dumps(example["x-audit"], ensure_ascii=False)]
    return "%s:\n\n%s" % (example["summary"], indented("\n".join(lines)))


def statuses_table(statuses):
    lines = ["| Status | When |", "|---|---|"]
    last = {"errno": 1}
    for name in sorted(statuses, key=lambda one: (last.get(one, 0), one != "0")):
        lines.append("| %s | %s |" % (name, cell(statuses[name])))
    return "\n".join(lines)


def operation_text(method, path, operation, examples, components):
    parts = ["### %s %s" % (method.upper(), path), operation["summary"]]
    if "description" in operation:
        parts.append(wrapped(operation["description"]))
    audit = "none"
    if operation["x-audited"]:
        audit = "one line" + (", with " + operation["x-audit"] if "x-audit" in operation else "")
    parts.append("Who: %s. Audit: %s." % (WHO[operation["x-rights"]], audit))
    if operation.get("parameters"):
        rows = ["| `%s` (%s) | %s | %s |" % (one["name"], one["in"], type_of(one["schema"]), cell(one["description"]))
                for one in operation["parameters"]]
        parts.append("\n".join(["| Parameter | Type | |", "|---|---|---|", *rows]))
    if "requestBody" in operation:
        parts.append(keys_table("Request", schema_of(operation["requestBody"]), components))
    parts.append(keys_table("Reply", schema_of(operation["responses"]["200"]), components))
    if "x-statuses" in operation:
        parts.append(statuses_table(operation["x-statuses"]))
    for name, (status, example) in examples.items():
        if name.rsplit(" ", 1)[0] == key_of(path):
            parts.append(example_text(status, example))
    return "\n\n".join(parts)


def schemas_text(tag, components):
    """The dictionaries that have a name, of one plug-in."""
    parts = []
    for name, schema in components.items():
        if name.rpartition(".")[0] != ("" if tag == "paddockd" else tag):
            continue
        parts.append("#### %s" % name)
        if "description" in schema:
            parts.append(wrapped(schema["description"]))
        parts.append(keys_table("Key", schema, components) if schema.get("properties")
                     else "Keys are names, and values: %s." % type_of(schema.get("additionalProperties", {})))
    return "\n\n".join(parts)


def responses_table(document):
    return "\n".join("| %s | %s |" % (status, cell(response["description"]))
                     for status, response in sorted(document["components"]["responses"].items()))


def page_of(document):
    examples = examples_of(document)
    components = document["components"]["schemas"]
    parts = [BEGIN.rstrip() % {"description": wrapped(document["info"]["description"]), "world": wrapped(WORLD),
                               "responses": responses_table(document), "configuration": indented(CONFIGURATION)}]
    refused = [example_text(status, example) for status, example in examples.values() if status != 200]
    parts.append("## Requests that are refused\n\n" + "\n\n".join(refused))
    contents = []
    sections = []
    for tag in document["tags"]:
        heading = "The daemon" if tag["name"] == "paddockd" else tag["name"]
        contents.append("- [%s](#%s)" % (heading, anchor(heading)))
        sections.append("## %s\n\n%s" % (heading, wrapped(tag["description"])))
        for path, item in sorted(document["paths"].items()):
            for method, operation in item.items():
                if tag["name"] in operation["tags"]:
                    contents.append("  - [%s](#%s): %s" % (path.rsplit("/", 1)[1] if method == "post" else path,
                                                          anchor("%s %s" % (method.upper(), path)),
                                                          operation["summary"]))
                    sections.append(operation_text(method, path, operation, examples, components))
        named = schemas_text(tag["name"], components)
        if named:
            sections.append("### Dictionaries of %s\n\n%s" % (heading[0].lower() + heading[1:], named))
    return "\n\n".join([TITLE.rstrip(), "\n".join(contents), *parts, *sections]) + "\n"

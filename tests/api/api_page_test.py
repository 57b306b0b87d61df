#!/usr/bin/python3
"""docs/api.md and GET /v1/openapi.json against a running daemon: every operation and endpoint is there, the
document is one of OpenAPI 3.1, and every example is answered as it stands there.

    api_page_test.py CMAKE BUILD PROJECT [--write]

--write: no test; writes what was answered into the descriptions, and the page. Needs root, for namespaces of
its own.
"""
import glob
import gzip
import json
import os
import re
import sys
import unittest

sys.path.append(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
import jsonschema
from api_page import page_of, pretty, schema_of
from api_world import STRANGER, VIEWER, ApiWorld, examples_of, in_order, key_of
from own_namespaces import in_namespaces

WRITE = "--write"
WITHOUT_STATUS = ("/getState", "/getLogPaths", "/getDSNodes", "/getEffectivePerms")
# What plug-ins read of a request.
READ = re.compile(r'request\.(?:string|integer|boolean|array|dictionary|find|contains)\("(\w+)"\)|'
                  r'(?:required|optionalText|textIn|textOf|numberOf)\(request, "(\w+)"')
# What they answer with, or ask their siblings.
ANSWERED = re.compile(r'(?:\{|\.set\()"([a-z]\w+)", ')
# The sharing plug-in's keys have names.
SHARING_KEYS = ("src/protocol/keys.h", "src/handler/*", "src/privileges/ace_dictionary.h", "src/privileges/file_privs.cc",
                "src/privileges/bundle_programs.h", "src/volumes/volume_quotas.cc")
NAMED_KEY = re.compile(r'constexpr const char\* k\w+ = "(\w+)"')
# A command's operation, a key of the context, and values.
NO_KEYS = {"command", "copyPrivsActive", "YES", "NO", "gone", "rw", "unknown"}


def project_path(*parts):
    return os.path.join(PROJECT, *parts)


def text_of(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def sources(pattern):
    """Their texts, without tests, and with keys in the place of their constants."""
    keys = dict(re.findall(r'(k\w+) = "(\w+)";', text_of(project_path("src/protocol/keys.h"))))
    texts = [text_of(path) for path in glob.glob(project_path(pattern)) if re.search(r"(?<!_test)\.(cc|h)$", path)]
    return [re.sub(r"protocol::(k\w+)\b", lambda key: '"%s"' % keys.get(key[1], key[1]), text) for text in texts]


def answer_all(world, document):
    """Puts what the daemon answers into the examples; gives those that it answers otherwise."""
    examples = examples_of(document)
    differing = {}
    for name in in_order(examples):
        expected, example = examples[name]
        status, reply, audit = world.run(example)
        told = (expected, example.get("value"), [example["x-audit"]] if "x-audit" in example else [])
        if told != (status, reply, audit):
            differing[name] = (told, (status, reply, audit))
        example["value"] = reply
        example.pop("x-audit", None)
        if audit:
            example["x-audit"] = audit[0]
    return differing


def check_audit(document):
    """Names of examples that left another number of audit lines than their operation's."""
    audited = {key_of(path): item["post"]["x-audited"] for path, item in document["paths"].items() if "post" in item}
    return [name for name, (status, example) in examples_of(document).items()
            if status == 200 and audited.get(name.rsplit(" ", 1)[0], False) != ("x-audit" in example)]


def operations(document):
    """Path, method and operation."""
    return [(path, method, operation) for path, item in document["paths"].items() for method, operation in item.items()]


def closed(schema):
    """The schema, with no keys in a dictionary but those that it names."""
    if isinstance(schema, list):
        return [closed(one) for one in schema]
    if not isinstance(schema, dict):
        return schema
    result = {key: closed(held) for key, held in schema.items()}
    if isinstance(result.get("properties"), dict) and "additionalProperties" not in result:
        result["additionalProperties"] = False
    return result


class ApiPage(unittest.TestCase):
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.world = ApiWorld(CMAKE, BUILD)
        cls.addClassCleanup(cls.world.stop)
        cls.document = cls.world.get("/v1/openapi.json")
        cls.told = json.loads(json.dumps(cls.document))
        cls.differing = answer_all(cls.world, cls.document)

    def validator(self, schema):
        schemas = {name: closed(one) for name, one in self.told["components"]["schemas"].items()}
        return jsonschema.Draft202012Validator({**closed(schema), "components": {"schemas": schemas}})

    def test_document_is_one_of_openapi(self):
        with gzip.open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "openapi-3.1.schema.json.gz")) as file:
            validator = jsonschema.Draft202012Validator(json.load(file))
        self.assertEqual([error.message for error in validator.iter_errors(self.told)], [])
        self.assertTrue(list(validator.iter_errors({**self.told, "openapi": "3.0.0"})))

    def test_document_has_schemas_that_are_some(self):
        for name, schema in self.told["components"]["schemas"].items():
            jsonschema.Draft202012Validator.check_schema(schema)
            self.assertIn(".", name) if name.startswith("paddock_") else self.assertNotIn(".", name)
        for _, _, operation in operations(self.told):
            jsonschema.Draft202012Validator.check_schema(schema_of(operation["responses"]["200"]))

    def test_document_refers_to_what_it_has(self):
        for reference in set(re.findall(r'"\$ref": "([^"]+)"', json.dumps(self.told))):
            held = self.told
            for part in reference.removeprefix("#/").split("/"):
                self.assertIn(part, held, reference)
                held = held[part]
        ids = [operation["operationId"] for _, _, operation in operations(self.told)]
        self.assertEqual(len(ids), len(set(ids)))

    def test_document_has_every_operation_and_endpoint(self):
        expected = {"/v1/%s/%s" % (plugin["name"], operation) for plugin in self.world.get("/v1/plugins")["plugins"]
                    for operation in plugin["operations"]}
        self.assertEqual({path for path, method, _ in operations(self.told) if method == "post"}, expected)
        endpoints = set(re.findall(r'Endpoint\{"([^"]+)"', text_of(project_path("src/daemon/http/request_names.h"))))
        self.assertEqual({path for path, method, _ in operations(self.told) if method == "get"}, endpoints)
        self.assertGreater(len(endpoints), 3)
        bundles = glob.glob(os.path.join(BUILD, "bundles/*.bundle"))
        built = {os.path.basename(path).removesuffix(".bundle") for path in bundles}
        self.assertEqual({path.split("/")[2] for path in expected}, built)

    def test_document_describes_what_it_has(self):
        described = {name.rsplit(" ", 1)[0] for name in examples_of(self.told)}
        for path, method, operation in operations(self.told):
            with self.subTest(path):
                self.assertNotEqual(operation["summary"], "Nobody describes it.")
                reply = schema_of(operation["responses"]["200"])
                self.assertTrue("$ref" in reply or "properties" in reply or path == "/v1/openapi.json", reply)
                self.assertTrue(key_of(path) in described or path == "/v1/openapi.json")
                self.assertTrue("x-statuses" in operation or method == "get" or path.endswith(WITHOUT_STATUS), path)
        for tag in self.told["tags"]:
            self.assertNotEqual(tag["description"], tag["name"])

    def test_sources_describe_nothing_else(self):
        for path in glob.glob(project_path("plugins/*/*.json")) + [project_path("src/module/paddock_sharing.json")]:
            plugin = os.path.basename(path).removesuffix(".json")
            source = json.loads(text_of(path))
            self.assertEqual(set(source), {"about", "operations", *(["schemas"] if "schemas" in source else [])}, path)
            for name, operation in source["operations"].items():
                self.assertIn("/v1/%s/%s" % (plugin, name), self.told["paths"])
                self.assertLessEqual(set(operation), {"summary", "description", "request", "reply", "statuses", "audit",
                                                      "auditedOnce", "responses", "examples"}, name)
                self.assertIn(set(operation.get("auditedOnce", {})), (set(), {"request", "reply"}), name)
                for key in ("request", "reply"):
                    self.assertLessEqual(set(operation[key]), {"properties", "required", "$ref", "description"}, name)
        skeleton = json.loads(text_of(project_path("src/openapi/skeleton.json")))
        self.assertEqual(set(skeleton["paths"]), {path for path, method, _ in operations(self.told) if method == "get"})

    def test_document_has_every_key_that_plugins_read(self):
        for folder in glob.glob(project_path("plugins/*/")):
            plugin = os.path.basename(folder.rstrip("/"))
            read = {one or other for text in sources("plugins/%s/*.cc" % plugin) for one, other in READ.findall(text)}
            described = json.dumps([schema_of(operation["requestBody"]) for path, _, operation in operations(self.told)
                                    if path.startswith("/v1/%s/" % plugin)] + [self.told["components"]["schemas"]])
            self.assertEqual([key for key in sorted(read) if '"%s": {' % key not in described], [], plugin)

    def test_document_has_every_key_that_is_answered(self):
        schemas = [self.told["components"]["schemas"]]
        for _, _, operation in operations(self.told):
            schemas.append(schema_of(operation["responses"]["200"]))
            schemas.append(schema_of(operation.get("requestBody", operation["responses"]["200"])))
        described = set(re.findall(r'"(\w+)": \{', json.dumps(schemas)))
        answered = set()
        for pattern in ("plugins/*/*.cc", "src/daemon/http/exchange.cc", "src/daemon/audit/audit_entry.cc"):
            for text in sources(pattern):
                answered.update(ANSWERED.findall(text))
        for pattern in SHARING_KEYS:
            for text in sources(pattern):
                answered.update(NAMED_KEY.findall(text))
        self.assertLessEqual({"usedBytes", "writeStatus", "uniqueID", "copyPrivsPid", "quotaError"}, answered)
        names = {path.rsplit("/", 1)[1] for path, _, _ in operations(self.told)}
        self.assertEqual(sorted(answered - described - names - NO_KEYS), [])

    def test_statuses_are_some_of_the_page_of_statuses(self):
        page = text_of(project_path("docs/statuses.md"))
        for path, _, operation in operations(self.told):
            for name in operation.get("x-statuses", {}):
                if name not in ("0", "errno") and not (name.isdigit() and "paddock_access" in path):
                    self.assertRegex(page, r"(?m)^\| (\d+ \| )?%s \|" % name, path)
        named = {path.rsplit("/", 1)[1] for path, _, _ in operations(self.told)}
        for words in re.findall(r"^\| -?\d+ \| (.*)$", page, re.M):
            for word in re.findall(r"`(\w+)`", words.split(" | ")[1 if words[0] != "`" else 0]):
                self.assertTrue(word in named or word.startswith("paddock_"), word)

    def test_every_example_is_run(self):
        self.assertEqual(sorted(in_order(examples_of(self.told))), sorted(examples_of(self.told)))

    def test_examples_are_answered_as_they_say(self):
        for name, (told, answered) in self.differing.items():
            with self.subTest(name):
                self.assertEqual(answered, told)

    def test_examples_are_what_the_schemas_say(self):
        for path, _, operation in operations(self.document):
            replies = operation["responses"]["200"]["content"]["application/json"]
            for number, example in replies.get("examples", {}).items():
                with self.subTest("%s %s" % (path, number)):
                    self.validator(replies["schema"]).validate(example["value"])
                    if "x-audit" in example:
                        self.validator({"$ref": "#/components/schemas/AuditLine"}).validate(example["x-audit"])
                    if "requestBody" in operation and example["x-request"]["body"] != {}:
                        self.check_request(operation, example)

    def check_request(self, operation, example):
        """What is wrong with an example's request is what its reply complains of."""
        faults = [error.message for error in self.validator(schema_of(operation["requestBody"])).iter_errors(
            example["x-request"]["body"])]
        reply = example["value"]
        self.assertTrue(not faults or reply.get("status", 0) != 0 or "error" in reply, faults)

    def test_changes_leave_an_audit_line_and_reading_none(self):
        self.assertEqual(check_audit(self.document), [])

    def test_rights_are_as_they_say(self):
        # A request of root's, whose log is not everybody's.
        _, headers, _ = self.world.send({"method": "GET", "target": "/v1/health"})
        for path, method, operation in operations(self.told):
            asked = {"method": method.upper(), "target": path.replace("{request}", headers["X-Request-Id"])}
            if method == "post":
                asked["body"] = {}
            with self.subTest(path):
                viewed, _, _ = self.world.send(asked, VIEWER)
                self.assertEqual(viewed == 403, operation["x-rights"] == "administrators", viewed)
                self.assertEqual(self.world.send(asked, STRANGER)[0], 403)

    def test_page_is_made_of_the_document(self):
        self.assertEqual(text_of(project_path("docs/api.md")), page_of(self.told))


def write_sources(document):
    """The replies and audit lines of the examples, into the descriptions."""
    def with_answers(examples, path, method):
        content = document["paths"][path][method]["responses"]["200"]["content"]
        answered = content["application/json"].get("examples", {})
        for number, example in enumerate(examples, 1):
            example["reply"] = answered[str(number)]["value"]
            example.pop("audit", None)
            if "x-audit" in answered[str(number)]:
                example["audit"] = answered[str(number)]["x-audit"]

    def rewrite(path, change):
        source = json.loads(text_of(path))
        change(source)
        with open(path, "w", encoding="utf-8") as file:
            file.write(pretty(source) + "\n")

    def change_skeleton(source):
        for path, endpoint in source["paths"].items():
            with_answers(endpoint.get("examples", []), path, "get")
        for status, response in source["components"]["responses"].items():
            answered = document["components"]["responses"][status]["content"]["application/json"]
            for number, example in response["content"]["application/json"].get("examples", {}).items():
                example.update({key: held for key, held in answered["examples"][number].items() if key != "x-request"})

    for path in glob.glob(project_path("plugins/*/*.json")) + [project_path("src/module/paddock_sharing.json")]:
        plugin = os.path.basename(path).removesuffix(".json")

        def change(source, plugin=plugin):
            for name, operation in source["operations"].items():
                with_answers(operation["examples"], "/v1/%s/%s" % (plugin, name), "post")
        rewrite(path, change)
    rewrite(project_path("src/openapi/skeleton.json"), change_skeleton)


def write():
    world = ApiWorld(CMAKE, BUILD)
    try:
        document = world.get("/v1/openapi.json")
        answer_all(world, document)
    finally:
        world.stop()
    write_sources(document)
    with open(project_path("docs/api.md"), "w", encoding="utf-8") as page:
        page.write(page_of(document))


if __name__ == "__main__":
    in_namespaces(__file__, sys.argv[1:], ("unshare",))
    CMAKE, BUILD, PROJECT = sys.argv[1:4]
    if sys.argv[4:] == [WRITE]:
        write()
    else:
        unittest.main(argv=sys.argv[:1], verbosity=2)

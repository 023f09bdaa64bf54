"""Random requests, made from the description of the interface for programs, and what comes back held against it."""

import http.client
import json
import random
import re
import string
import urllib.parse

# Only these are made, changed and removed: whoever else works with the server is left alone.
OWN = [f"any-{letter}" for letter in "abcdef"]
ODD_NAMES = ["", "%", "a%2Fb", "%00", "%FF", "..", "x" * 65, "%F0%9F%93%B7", "a%20b", "state", "%7B%7D"]
ODD_VALUES = [None, True, 0, -1, 1e308, "", "\0", "\u202e", "a/b", "\U0001F4F7", "x" * 5000, [], {}, [[[]]], {"a": {"b": []}}]
ODD_PARAMETERS = ["", "0", "1", "-1", "1764144000000", "9" * 30, "2025-11-26T08:00:00Z", "2025-11-26T08:00:00+24:00", "2025-02-30T08:00Z", "\0", "x" * 500]
ODD_BODIES = [b"", b"{", b"[]", b"null", b"\xff\xfe", b"[" * 5000, b'{"a":1}', b'{"type":"\xff"}', b'{"password":"\\ud800"}', b'{"a":1e999}']
TYPES = ["application/json", "application/json; charset=utf-8", "text/plain", ""]


class Description:
    def __init__(self, document):
        self.document = document
        self.operations = [(path, method, operation, item.get("parameters", []))
                           for path, item in document["paths"].items() for method, operation in item.items() if method != "parameters"]

    def get(self, part):
        """What a reference leads to."""
        while "$ref" in part:
            at = self.document
            for name in part["$ref"].removeprefix("#/").split("/"):
                at = at[name]
            part = {**at, **{key: value for key, value in part.items() if key != "$ref"}}
        return part

    def make(self, schema, dice):
        """A value of a schema, or now and then one that is none."""
        schema = self.get(schema)
        if dice.random() < 0.05:
            return dice.choice(ODD_VALUES)
        if "enum" in schema:
            return dice.choice(schema["enum"])
        kind = schema.get("type")
        if kind == "object":
            made = {name: self.make(part, dice) for name, part in schema.get("properties", {}).items()
                    if dice.random() < (0.97 if name in schema.get("required", ()) else 0.6)}
            if dice.random() < 0.03:
                made["what"] = dice.choice(ODD_VALUES)
            if "name" in made and isinstance(made["name"], str) and dice.random() < 0.95:
                made["name"] = dice.choice(OWN)
            if "login" in made and dice.random() < 0.95:
                made["login"] = dice.choice(OWN)
            return made
        if kind == "array":
            return [self.make(schema["items"], dice) for _ in range(dice.randrange(5))]
        size = dice.choice([schema.get("minLength", 0), 8, schema.get("maxLength", 20), schema.get("maxLength", 20) + 1])
        return "".join(dice.choices(string.ascii_letters + string.digits, k=size))

    def faults(self, schema, value, where="the body"):
        """What of a value is not as its schema says."""
        schema = self.get(schema)
        kinds = {"object": dict, "array": list, "string": str, "boolean": bool, "integer": int, "number": (int, float), "null": type(None)}
        wanted = schema.get("type", [])
        wanted = [wanted] if isinstance(wanted, str) else wanted
        if wanted and not any(isinstance(value, kinds[kind]) and (kind == "boolean" or not isinstance(value, bool)) for kind in wanted):
            return [f"{where} is no {' or '.join(wanted)}: {value!r}"]
        found = []
        if "enum" in schema and value not in schema["enum"] or "const" in schema and value != schema["const"]:
            found.append(f"{where} is {value!r}")
        if schema.get("format") == "date-time" and not re.fullmatch(r"\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z", value):
            found.append(f"{where} is no moment: {value!r}")
        if isinstance(value, dict):
            known = schema.get("properties", {})
            found += [f"{where} has no {name}" for name in schema.get("required", ()) if name not in value]
            if schema.get("additionalProperties", True) is False:
                found += [f"{where} has {name!r}" for name in value if name not in known]
            for name, part in known.items():
                if name in value:
                    found += self.faults(part, value[name], f"{where}.{name}")
        if isinstance(value, list):
            for number, each in enumerate(value):
                found += self.faults(schema["items"], each, f"{where}[{number}]")
        return found


class Requests:
    """Asks at random, over one connection after the other, with the header fields of one sign-in."""

    def __init__(self, port, sign_in, dice=None, address="127.0.0.1"):
        self.port, self.sign_in, self.address = port, sign_in, address
        self.dice = dice or random.Random()
        self.connection = None
        self.versions = ['"old"', "*"]
        self.ids = []  # of tokens that were made here
        self.seen = {}  # (method, path, status) and how often
        status, _, body = self.ask("GET", "/api/v1/openapi.json", {}, None)
        if status != 200:
            raise RuntimeError(f"no description of the interface: {status}")
        self.description = Description(json.loads(body))

    def ask(self, method, target, headers, body):
        if self.connection is None:
            self.connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60, source_address=(self.address, 0))
        try:
            self.connection.request(method, target, body=body, headers={**self.sign_in, **headers})
            answer = self.connection.getresponse()
            content = answer.read()
        except BaseException:
            self.close()
            raise
        if answer.will_close:
            self.close()
        return answer.status, answer.headers, content

    def close(self):
        if self.connection is not None:
            self.connection.close()
            self.connection = None

    def target(self, path, operation):
        dice = self.dice

        def fill(match):
            if match[1] == "id":
                mine = self.ids.pop(dice.randrange(len(self.ids))) if self.ids and dice.random() < 0.7 else "0" * 64
                return mine
            return urllib.parse.quote(dice.choice(OWN)) if dice.random() < 0.85 else dice.choice(ODD_NAMES)
        target = "/api/v1" + re.sub(r"\{(\w+)\}", fill, path)
        asked = {parameter["name"]: dice.choice(ODD_PARAMETERS) for parameter in operation.get("parameters", [])
                 if parameter.get("in") == "query" and dice.random() < 0.3}
        return target + ("?" + urllib.parse.urlencode(asked) if asked else "")

    def turn(self):
        """One request. Raises AssertionError when the answer is not as described."""
        dice = self.dice
        path, method, operation, _ = dice.choice(self.description.operations)
        target, headers, body = self.target(path, operation), {}, None
        if "requestBody" in operation:
            schema = operation["requestBody"]["content"]["application/json"]["schema"]
            odd = dice.random() < 0.1
            body = dice.choice(ODD_BODIES) if odd else json.dumps(self.description.make(schema, dice)).encode()
            headers["Content-Type"] = dice.choice(TYPES) if dice.random() < 0.1 else TYPES[0]
        elif dice.random() < 0.03:
            body = b"{}"
        for name in ("If-Match", "If-None-Match"):
            if dice.random() < 0.15:
                headers[name] = dice.choice(self.versions)
        status, fields, content = self.ask(method.upper(), target, headers, body)
        self.look(f"{method.upper()} {target} {headers} {body!r:.200}", path, operation, status, fields, content)
        key = (method.upper(), path, status)
        self.seen[key] = self.seen.get(key, 0) + 1
        if "ETag" in fields:
            self.versions = ['"old"', "*", fields["ETag"]]
        if status == 201 and path == "/tokens":
            self.ids.append(json.loads(content)["id"])

    def look(self, request, path, operation, status, fields, content):
        described = operation["responses"].get(str(status))
        if described is None:
            # A name can make the request one for another address, which is not described as this one is.
            if status in (404, 405) and "{" in path:
                return
            raise AssertionError(f"{request} answers {status}, which is not described: {content!r:.300}")
        described = self.description.get(described)
        content_types = described.get("content", {})
        kind = fields.get("Content-Type", "")
        if status in (204, 304) or not content_types:
            if content:
                raise AssertionError(f"{request} answers {status} with a body: {content!r:.300}")
            return
        if kind not in content_types:
            raise AssertionError(f"{request} answers {status} as {kind}")
        for name in described.get("headers", {}):
            if name in ("ETag", "Location") and name not in fields:
                raise AssertionError(f"{request} answers {status} without {name}")
        if "schema" in content_types[kind]:
            faults = self.description.faults(content_types[kind]["schema"], json.loads(content))
            if faults:
                raise AssertionError(f"{request} answers {status}: {'; '.join(faults)}")

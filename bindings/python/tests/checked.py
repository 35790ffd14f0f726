"""The real C library, with all texts in and out checked against the C interface's JSON Schema."""

import json
import pathlib
import sys

import jsonschema

from vexim._library import load

sys.path.append(str(pathlib.Path(__file__).resolve().parents[3] / "scripts"))
import c_interface  # noqa: E402


def strict(schema):
    """The schema of what our service sends: only normal values, and no names beyond the schema."""
    if isinstance(schema, list):
        return [strict(one) for one in schema]
    if not isinstance(schema, dict):
        return schema
    schema = {name: strict(one) for name, one in {**schema, **schema.get("x-normally", {})}.items()}
    is_result = "properties" in schema and "@op" not in schema["properties"]
    return {"additionalProperties": False, **schema} if is_result else schema


def validators():
    definitions = strict(c_interface.schema())["$defs"]
    del definitions["diagnosisEvent"]["additionalProperties"]  # its names depend on the event

    def validator(*path):
        schema = {"$ref": "#/$defs/" + "/".join(path), "$defs": definitions}
        return jsonschema.Draft202012Validator(schema)

    jsonschema.Draft202012Validator.check_schema(c_interface.schema())
    kinds = ("requests", "executions", "answers", "events")
    paths = [(kind, name) for kind in kinds for name in definitions[kind]]
    return {path: validator(*path) for path in [*paths, ("newConfiguration",), ("failure",)]}


class CheckedLibrary:
    """Receives only answers to what was sent through it. `seen` has the names of valid texts, and
    `wrong` says what was not valid."""

    seen = set()
    wrong = []
    _validators = None

    def __init__(self):
        self._library = load()
        self._operations = {}
        CheckedLibrary._validators = CheckedLibrary._validators or validators()

    @classmethod
    def unseen(cls):
        return set(cls._validators) - cls.seen

    @staticmethod
    def is_of_store(path):
        _, of_store, _, _ = c_interface.read_table()
        return path[-1] in {row.name for row in of_store} | set(c_interface.shapes.STORE_EVENTS)

    def _check(self, value, *path):
        found = self._validators.get(path)
        errors = ["an unknown name"]
        if found:
            errors = [f"{each.message} at {each.json_path}" for each in found.iter_errors(value)]
        self.wrong.extend(f"{' '.join(path)}: {error}; in {json.dumps(value)}" for error in errors)
        if not errors:
            self.seen.add(path)

    def _check_answer(self, answer, operation):
        path = ("failure",) if answer["@type"] == "error" else ("answers", operation)
        self._check(answer, *path)

    def create(self, configuration):
        self._check(json.loads(configuration), "newConfiguration")
        return self._library.create(configuration)

    def send(self, client, request):
        value = json.loads(request)
        self._check(value, "requests", value["@op"])
        if "@extra" in value:
            self._operations[client, value["@extra"]] = value["@op"]
        self._library.send(client, request)

    def receive(self, client):
        text = self._library.receive(client)
        if text is not None:
            value = json.loads(text)
            if value["@type"] == "event":
                self._check(value, "events", value["name"])
            else:
                self._check_answer(value, self._operations.get((client, value["@extra"]), "cancel"))
        return text

    def execute(self, client, request):
        value = json.loads(request)
        self._check(value, "executions", value["@op"])
        text = self._library.execute(client, request)
        self._check_answer(json.loads(text), value["@op"])
        return text

    def free(self, client):
        self._library.free(client)

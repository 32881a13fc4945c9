#include "support/schema.h"

namespace ivra::tests {

namespace {

/// Arguments: the schema; for each document its text, pairs of a text and what takes its place, and an empty word.
const char* const spoiler = R"python(
import json, sys
from jsonschema import Draft202012Validator as Validator
validator = Validator(json.load(open(sys.argv[1])))
words = iter(sys.argv[2:])
for text in words:
    validator.validate(json.loads(text))
    for old in iter(lambda: next(words), ""):
        new = next(words)
        assert old in text, old
        if validator.is_valid(json.loads(text.replace(old, new, 1))):
            print("taken:", new, "for", old)
)python";

/// Arguments: the schema.
const char* const wording = R"python(
import json, sys
from jsonschema import Draft202012Validator as Validator
count = 0
def walk(part, place):
    global count
    count += 1
    if not part.get("description"):
        print("not described:", place)
    others = part.get("additionalProperties")
    if part.get("type") == "object" and others is not False:
        walk(others or {}, place + "/additionalProperties")
    for name, below in part.get("properties", {}).items():
        walk(below, place + "/" + name)
    if "items" in part and "$ref" not in part["items"]:
        walk(part["items"], place + "/items")
schema = json.load(open(sys.argv[1]))
Validator.check_schema(schema)
walk(schema, "")
for name, below in schema["$defs"].items():
    walk(below, name)
assert count > 50, "too little of a schema"
)python";

run_t run_python(const char* script, std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"-c", script});
    return run_program("/usr/bin/python3", arguments, {"LC_ALL=C.UTF-8"});
}

} // namespace

run_t taken_by_schema(const std::string& schema, const std::vector<spoiled_document_t>& documents)
{
    std::vector<std::string> arguments{schema};
    for (const spoiled_document_t& spoiled : documents) {
        arguments.push_back(spoiled.document);
        for (const auto& [old_text, new_text] : spoiled.changes)
            arguments.insert(arguments.end(), {old_text, new_text});
        arguments.emplace_back();
    }
    return run_python(spoiler, arguments);
}

run_t wording_of_schema(const std::string& schema)
{
    return run_python(wording, {schema});
}

} // namespace ivra::tests

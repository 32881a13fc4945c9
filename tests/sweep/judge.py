"""Says which documents are not what their schemas say.
Arguments: the schemas of "board" and of "readings". Lines of standard input: program, what repeats the run, document."""
import json, sys
from jsonschema import Draft202012Validator as Validator

judges = {name: Validator(json.load(open(file))) for name, file in zip(("board", "readings"), sys.argv[1:])}
bad = False
for line in sys.stdin:
    program, run, document = line.rstrip("\n").split("\t", 2)
    try:
        mistakes = [f"{'/'.join(map(str, e.absolute_path))}: {e.message[:200]}"
                    for e in judges[program].iter_errors(json.loads(document))]
    except ValueError as error:
        mistakes = [f"is no document: {error}"]
    for mistake in mistakes:
        bad = True
        print(f"{mistake}\n  sweep --run '{run}'")
sys.exit(bad)

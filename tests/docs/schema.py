"""Compares what the programs print under --json with docs/quarvel.schema.json: schema.py PROJECT PROGRAMS."""
import json
import os
import subprocess
import sys
import tempfile

import jsonschema

project, programs = sys.argv[1:3]
with open(os.path.join(project, "docs/quarvel.schema.json")) as file:
    schema = json.load(file)
validator = jsonschema.Draft202012Validator(schema)
desk = tempfile.TemporaryDirectory()
place = desk.name
environment = dict(os.environ, TESSVIK_SIM_DIR=place + "/pens", XDG_STATE_HOME=place + "/state",
                   PATH=programs + ":" + os.environ["PATH"])
os.mkdir(place + "/pens")
seen = set()
bad = []


def kind_of(value):
    return [name for name in (ref["$ref"].rsplit("/", 1)[1] for ref in schema["anyOf"])
            if validator.evolve(schema=dict(schema, anyOf=[{"$ref": "#/$defs/" + name}])).is_valid(value)]


def values_in(text):
    """One document, or one value a line."""
    try:
        return [json.loads(text)]
    except ValueError:
        return [json.loads(line) for line in text.splitlines()]


def say(words, expected=None):
    """Runs a program; every value on its standard output must be as described, and one of the kind expected."""
    done = subprocess.run(words, cwd=place, env=environment, capture_output=True, text=True, timeout=120)
    kinds = set()
    for value in values_in(done.stdout) if expected else []:
        found = kind_of(value)
        kinds.update(found)
        if not found:
            bad.append(f"{' '.join(words)}: {json.dumps(value)[:300]}")
    seen.update(kinds)
    if expected and not kinds.issuperset(expected.split()):
        bad.append(f"{' '.join(words)}: no {expected} in {done.stdout[:300]} {done.stderr[:300]}")
    return done


for line in ("openssl req -x509 -newkey rsa:2048 -nodes -keyout key.pem -out cert.pem -days 30 -subj /C=SE/O=Pens/CN=S",
             "mkdir -p b/Apps"):
    say(line.split())
with open(place + "/b/Apps/notes.pen", "w") as file:
    file.write("TESSVIK-APP 1\nguid: notes\nname: Notes\nversion: 1.0\nbuild: 1\nkind: app\n\n" + "x" * 1000)
say("quarvel-bundle init b --pen-types 1".split())
say("quarvel-bundle pack b -o a.bundle --key key.pem --cert cert.pem".split())
say("tessvik-sim add --id 0x2a --penlet guid=clock --json".split(), "simPen")
say("tessvik-sim list --json".split(), "simPens")
say("tessvik-sim fault pcStartObex --call 99".split())
say("tessvik-sim fault --json".split(), "simFaults")
say("tessvik-sim fault --clear".split())
say("tessvik-sim show 0x99 --json".split(), "failure")
say("quarvel-bundle info a.bundle --json".split(), "bundleInfo")
say("quarvel-bundle verify a.bundle --cert cert.pem --json".split(), "bundleVerify")
say("quarvel-bundle lint a.bundle --json".split(), "bundleLint")
say("quarvel-bundle diff a.bundle a.bundle --json".split(), "bundleDiff")
say("quarvel-bundle info none --json".split(), "failure")
say("quarvel-bundle lint --json".split(), "failure")
with open(place + "/pens.json", "w") as file:
    file.write(say("quarvel pens --json".split(), "pens").stdout)
say("quarvel-bundle plan a.bundle --pen pens.json --json".split(), "bundlePlan")
say("quarvel version --json".split(), "version")
install = "quarvel install a.bundle --cert cert.pem --all --json".split()
say(install + ["--plan"], "plan")
say("tessvik-sim set 0x2a free-space=0".split())
say(install, "run error result")
say("tessvik-sim set 0x2a free-space=1000000".split())
say(install, "run package result")
say(install + ["--force"], "result")
say("quarvel install none --cert cert.pem --all --json".split(), "result")
say("quarvel history --all --json".split(), "history")
say("quarvel history show last --lines --json".split(), "historyRun")
say("quarvel install a.bundle --cert cert.pem --pen 9 --json".split(), "failure")
say("quarvel install a.bundle --json".split(), "failure")
say("quarvel pens --pen 9 --json".split(), "failure")

if bad:
    sys.exit("\n".join(["these are not as docs/quarvel.schema.json has them:"] + bad))
missing = {ref["$ref"].rsplit("/", 1)[1] for ref in schema["anyOf"]} - seen
if missing - {"wait", "recover"}:  # printed by runs that take long
    sys.exit(f"nothing was printed of {sorted(missing)}")

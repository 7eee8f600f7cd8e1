#!/usr/bin/env python3
"""usage: describe.py PACKAGE VERSION PROJECT PREFIX [FILE...]

Writes what every package tells of itself into PREFIX/share/doc/PACKAGE: the change log, the copyright file and, as
SPDX, the programs and libraries that its FILEs are linked with. The time is SOURCE_DATE_EPOCH, so that the same sources
give the same bytes. A library that is not in the tables below is an error: add it with its licence.
"""
import gzip
import hashlib
import json
import os
import re
import subprocess
import sys
import textwrap
import time

# What is linked: the library's name in the files, its Debian package, its licence.
LINKED = {
    "libz.so.1": ("zlib1g", "Zlib"),
    "libminizip.so.1": ("libminizip1", "Zlib"),
    "libcrypto.so.3": ("libssl3", "Apache-2.0"),
    "libisal.so.2": ("libisal2", "BSD-3-Clause"),
    "libfmt.so.9": ("libfmt9", "MIT"),
    "libsqlite3.so.0": ("libsqlite3-0", "blessing"),
    "libstdc++.so.6": ("libstdc++6", "GPL-3.0-or-later WITH GCC-exception-3.1"),
    "libgcc_s.so.1": ("libgcc-s1", "GPL-3.0-or-later WITH GCC-exception-3.1"),
    "libc.so.6": ("libc6", "LGPL-2.1-or-later"),
    "libm.so.6": ("libc6", "LGPL-2.1-or-later"),
    "ld-linux-x86-64.so.2": ("libc6", "LGPL-2.1-or-later"),
    "ld-linux-aarch64.so.1": ("libc6", "LGPL-2.1-or-later"),
    "ld-linux.so.2": ("libc6", "LGPL-2.1-or-later"),
}
# The licences that Debian keeps a copy of.
COMMON = {
    "Apache-2.0": "Apache-2.0",
    "GPL-3.0-or-later WITH GCC-exception-3.1": "GPL-3",
    "LGPL-2.1-or-later": "LGPL-2.1",
}
OURS = {"libQuarvel.so.1": "libquarvel1", "libTessvik.so": "libtessvik", "libtessvik-trace.so": "quarvel-tools"}
# What is compiled in from headers, by file.
JSON = ("nlohmann-json3-dev", "MIT")
ARGUMENTS = ("libcli11-dev", "BSD-3-Clause")
COMPILED_IN = {
    "libTessvik.so": [JSON],
    "tessvik-sim": [JSON, ARGUMENTS],
    "quarvel": [JSON, ARGUMENTS],
    "quarvel-bundle": [JSON, ARGUMENTS],
}


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def needed(path):
    return re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-dW", path))


def describe_parts(files):
    """(Debian package, licence, how) of all that the files are made with."""
    parts = set()
    for path in files:
        name = os.path.basename(path)
        for library in needed(path):
            if library not in OURS and library not in LINKED:
                sys.exit(f"{name} is linked with {library}, whose licence is not known: add it to {__file__}")
            if library in LINKED:
                parts.add((*LINKED[library], "DYNAMIC_LINK"))
        plain = re.sub(r"\.so\..*", ".so", name)
        parts.update((*part, "STATIC_LINK") for part in COMPILED_IN.get(plain, []))
    return sorted(parts)


def installed_version(package):
    return run("dpkg-query", "-W", "-f", "${Version}\n", package).split("\n")[0]


def bill_of_materials(package, version, parts, epoch):
    def entry(name, number, licence, home):
        return {
            "SPDXID": "SPDXRef-" + re.sub(r"[^A-Za-z0-9.]", "-", name),
            "name": name,
            "versionInfo": number,
            "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False,
            "licenseConcluded": licence,
            "licenseDeclared": licence,
            "copyrightText": "NOASSERTION",
            "supplier": home,
        }

    packages = [entry(package, version, "NOASSERTION", "Organization: The Quarvel authors")]
    packages += [entry(name, installed_version(name), licence, "Organization: Debian") for name, licence, _ in parts]
    head = packages[0]["SPDXID"]
    relations = [{"spdxElementId": "SPDXRef-DOCUMENT", "relationshipType": "DESCRIBES", "relatedSpdxElement": head}]
    relations += [
        {"spdxElementId": head, "relationshipType": how, "relatedSpdxElement": part["SPDXID"]}
        for part, (_, _, how) in zip(packages[1:], parts)
    ]
    mark = hashlib.sha256(json.dumps([packages, relations, epoch]).encode()).hexdigest()[:32]
    return {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{package}-{version}",
        "documentNamespace": f"https://quarvel.example/sbom/{package}-{version}-{mark}",
        "creationInfo": {
            "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(epoch)),
            "creators": ["Organization: The Quarvel authors", "Tool: describe.py"],
        },
        "packages": packages,
        "relationships": relations,
    }


def copyright_text(project, parts):
    with open(f"{project}/packaging/copyright", encoding="utf-8") as file:
        text = file.read()
    for name, licence, how in parts:
        line = f"{name} {installed_version(name)}: {licence}"
        text += f"\n{line}\n"
        if how == "STATIC_LINK":
            with open(f"/usr/share/doc/{name}/copyright", encoding="utf-8") as file:
                text += "  Its code is in these programs; its own terms, as it came:\n\n"
                text += textwrap.indent(file.read().rstrip() + "\n", "  ", lambda line: True).replace("  \n", "\n")
        else:
            text += f"  Linked when a program starts; its terms are in /usr/share/doc/{name}/copyright"
            text += f",\n  the licence in /usr/share/common-licenses/{COMMON[licence]}.\n" if licence in COMMON else ".\n"
    return text


def change_log(version, project, epoch):
    """CHANGELOG.md as Debian writes change logs: an entry for each heading that names a version."""
    with open(f"{project}/CHANGELOG.md", encoding="utf-8") as file:
        sections = re.split(r"^## ", file.read(), flags=re.M)[1:]
    date = time.strftime("%a, %d %b %Y %H:%M:%S +0000", time.gmtime(epoch))
    text = ""
    for index, section in enumerate(sections):
        title, _, body = section.partition("\n")
        number = version if index == 0 else re.sub(r"[^0-9.].*", "", title) + "-1"
        points = re.findall(r"^- (.*(?:\n  .*)*)", body, flags=re.M) or [body.strip() or title]
        text += f"quarvel ({number}) unstable; urgency=medium\n\n"
        for point in points:
            words = re.sub(r"\s+", " ", point)
            text += textwrap.fill(words, 79, initial_indent="  * ", subsequent_indent="    ") + "\n"
        text += f"\n -- The Quarvel authors <maintainers@quarvel.example>  {date}\n\n"
    return text


def write(path, content):
    with open(path, "wb") as file:
        file.write(content)
    os.chmod(path, 0o644)


def main():
    if len(sys.argv) < 5:
        sys.exit(__doc__)
    package, version, project, prefix = sys.argv[1:5]
    epoch = int(os.environ.get("SOURCE_DATE_EPOCH") or time.time())
    os.umask(0o022)
    folder = f"{prefix}/share/doc/{package}"
    os.makedirs(folder, exist_ok=True)
    parts = describe_parts(sys.argv[5:])
    log = change_log(version, project, epoch).encode()
    write(f"{folder}/changelog.Debian.gz", gzip.compress(log, 9, mtime=0))
    write(f"{folder}/copyright", copyright_text(project, parts).encode())
    bill = json.dumps(bill_of_materials(package, version, parts, epoch), indent=2) + "\n"
    write(f"{folder}/{package}.spdx.json", bill.encode())


main()

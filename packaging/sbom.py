#!/usr/bin/env python3
"""Writes what a Debian package consists of into it, as SPDX 2.3.

    packaging/sbom.py PACKAGE VERSION DIRECTORY SECONDS

DIRECTORY: of the package as it is built; SECONDS: its time, since 1970.
"""
import hashlib
import json
import os
import re
import subprocess
import sys
import time

package, version, directory, seconds = sys.argv[1:]
# What is compiled in, beside what the package depends on.
COMPILED_IN = {"kqft": ["libcli11-dev"], "kqft-server": ["libcli11-dev"],
               "kqft-status": ["libcli11-dev", "nlohmann-json3-dev"]}
LICENSES = {"libcli11-dev": "BSD-3-Clause", "nlohmann-json3-dev": "MIT"}


def described(name, of_version, identifier, license_, purpose):
    return {"name": name, "versionInfo": of_version, "SPDXID": identifier, "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False, "licenseConcluded": license_, "licenseDeclared": license_,
            "copyrightText": "NOASSERTION", "primaryPackagePurpose": purpose}


def sums_of(path):
    with open(path, "rb") as file:
        data = file.read()
    return {name: hashlib.new(name.lower(), data).hexdigest() for name in ("SHA1", "SHA256")}


own = described(package, version, "SPDXRef-Package", "Apache-2.0", "INSTALL")
document = {"spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
            "name": f"{package}-{version}",
            "documentNamespace": f"https://spdx.org/spdxdocs/{package}-{version}",
            "creationInfo": {"created": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime(int(seconds))),
                             "creators": ["Tool: packaging/sbom.py"]},
            "packages": [own], "files": [], "relationships": []}


def relate(one, kind, other):
    document["relationships"].append({"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": other})


relate("SPDXRef-DOCUMENT", "DESCRIBES", "SPDXRef-Package")
sums = []
for folder, _, names in sorted(os.walk(directory)):
    for name in sorted(names):
        path = os.path.join(folder, name)
        if folder.startswith(os.path.join(directory, "DEBIAN")) or os.path.islink(path):
            continue
        found = sums_of(path)
        sums.append(found["SHA1"])
        identifier = f"SPDXRef-File-{len(document['files'])}"
        document["files"].append({
            "SPDXID": identifier, "fileName": "./" + os.path.relpath(path, directory),
            "checksums": [{"algorithm": kind, "checksumValue": value} for kind, value in found.items()],
            "licenseConcluded": "Apache-2.0", "copyrightText": "NOASSERTION"})
        relate("SPDXRef-Package", "CONTAINS", identifier)
own["filesAnalyzed"] = True
own["packageVerificationCode"] = {
    "packageVerificationCodeValue": hashlib.sha1("".join(sorted(sums)).encode()).hexdigest()}

substvars = os.path.join("debian", package + ".substvars")
wanted = set()
if os.path.exists(substvars):
    with open(substvars, encoding="utf-8") as file:
        for line in file:
            if re.match(r"(shlibs|python3|misc):Depends\??=", line):
                wanted |= set(re.findall(r"([a-z0-9][a-z0-9+.:-]+)(?: \(([^)]*)\))?", line.split("=", 1)[1]))
for name, bound in sorted(wanted):
    identifier = "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)
    document["packages"].append(described(name, bound, identifier, "NOASSERTION", "LIBRARY"))
    relate("SPDXRef-Package", "DEPENDS_ON", identifier)
for name in COMPILED_IN.get(package, []):
    found = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", name], capture_output=True, text=True, check=True)
    document["packages"].append(described(name, found.stdout, "SPDXRef-" + name, LICENSES[name], "SOURCE"))
    relate("SPDXRef-Package", "STATIC_LINK", "SPDXRef-" + name)

target = os.path.join(directory, "usr/share/doc", package)
os.makedirs(target, exist_ok=True)
with open(os.path.join(target, package + ".spdx.json"), "w", encoding="utf-8") as file:
    json.dump(document, file, indent=1)

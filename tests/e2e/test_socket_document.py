"""The document for those who write a client."""

import re
import subprocess

from harness import DOCS, EICAR_NAME, OPEN_ERROR, TIMEOUT, write_once


def test_the_client_in_the_document_works(tv, files):
    document = (DOCS / "protocol.md").read_text()
    [program] = re.findall(r"^```python\n(.*?)^```$", document, re.DOTALL | re.MULTILINE)
    script = files / "client.py"
    script.write_text(program)
    answers = {write_once(files / "eicar"): f"INFECTED {EICAR_NAME}",
               write_once(files / "a clean file", b"nothing"): "CLEAN",
               files / "missing": f"ERROR {OPEN_ERROR}"}
    tv.start()
    result = subprocess.run(["/usr/bin/python3", script, *answers], capture_output=True, text=True,
                            check=True, timeout=TIMEOUT)
    assert result.stderr == ""
    assert result.stdout.splitlines() == [
        "REGISTERED!", *(f"{path} - {answer}" for path, answer in answers.items())]

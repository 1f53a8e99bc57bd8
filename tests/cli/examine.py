#!/usr/bin/env python3
"""Checks every signature in an app bundle: examine.py APP ROOT.pem

Prints each code object with its identifier and signer, then what is wrong. Status 1 if anything is.
"""
import os
import sys

from examiner import bundle, macho, signature


def main(app, root):
    app = app.rstrip("/")
    for code in bundle.code_objects(app):
        executable = code
        if os.path.isdir(code):
            executable = os.path.join(code, bundle.executable_name(code))
        for image in macho.slices(executable):
            try:
                directory = signature.Signature(image).directories[-1]
                text = f"{directory.identifier}, signed by {signature.signer(image)}"
            except ValueError as error:
                text = str(error)
            print(f"  {os.path.relpath(code, os.path.dirname(app))} ({image.arch}): {text}")
    problems = bundle.problems(app, root)
    for problem in problems:
        print(f"  WRONG: {problem}")
    print(f"  {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))

#!/usr/bin/env python3
"""Checks what the compiler does not: scripts/lint/ has the rules. With --self-test, checks the checks."""
import runpy
import sys
from pathlib import Path

sys.dont_write_bytecode = True
runpy.run_path(str(Path(__file__).resolve().parent / "lint"), run_name="__main__")

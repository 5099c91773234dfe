#!/usr/bin/env python3
"""Checks INF files of driver packages: tools/check_inf.py FILE.inf…  (--help tells more)"""

import sys

from inf_check.command import main

sys.exit(main(sys.argv[1:]))

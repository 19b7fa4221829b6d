"""Prints where a package goes below the installation prefix, so that this Python finds it there.

Usage: install_folder.py PREFIX
"""

import os
import sys
import sysconfig

prefix = os.path.normpath(sys.argv[1])
scheme, base = "posix_prefix", prefix
# Debian's Python has folders of its own below /usr, for the distribution's packages and for all others.
if "deb_system" in sysconfig.get_scheme_names():
    if prefix == "/usr":
        scheme = "deb_system"
    elif prefix == "/usr/local":
        scheme, base = "posix_local", "/usr"
print(os.path.relpath(sysconfig.get_path("platlib", scheme, {"base": base, "platbase": base}), prefix))

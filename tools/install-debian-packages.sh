#!/bin/sh
# Installs the Debian packages that the build needs and that are missing; does nothing when all are
# there. Without the right to install, or without apt, says in one line what is missing.
#
#   install-debian-packages.sh PYTHON
set -eu
python=$1

missing=""
need() { # PACKAGE COMMAND...: the package is missing when the command fails
    package=$1
    shift
    "$@" >/dev/null 2>&1 || missing="$missing $package"
}

need g++ g++ --version
need cmake cmake --version
need ninja-build ninja --version
need libsqlite3-dev test -e /usr/include/sqlite3.h
need libicu-dev test -e /usr/include/unicode/casemap.h
need libgtest-dev test -e /usr/include/gtest/gtest.h
need python3 "$python" --version
need python3-venv "$python" -c "import ensurepip, venv"
need python3-dev "$python" -c \
    "import os, sysconfig; os.stat(os.path.join(sysconfig.get_paths()['include'], 'Python.h'))"

[ -n "$missing" ] || exit 0
if [ "$(id -u)" -eq 0 ] && command -v apt-get >/dev/null; then
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    # shellcheck disable=SC2086 # one word a package
    apt-get install -y -qq --no-install-recommends $missing
else
    echo "Please install what is missing, as root: apt-get install$missing" >&2
    exit 1
fi

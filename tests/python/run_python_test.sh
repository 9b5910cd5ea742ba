#!/usr/bin/env bash
# usage: run_python_test.sh PYTHON SOURCE_DIR WORK_DIR
# Makes a fresh venv (--system-site-packages), installs ./python without network or build
# isolation, and runs the pytest suite from outside the source tree.
set -euo pipefail
python="$1" src="$2" work="$3"
rm -rf "$work"
mkdir -p "$work"
cp -r "$src/python" "$work/python"  # the build writes into the tree it builds
"$python" -m venv --system-site-packages "$work/venv"
PIP_NO_INDEX=1 PIP_DISABLE_PIP_VERSION_CHECK=1 "$work/venv/bin/python" -m pip install -q \
  --no-build-isolation "$work/python" 2>&1 | grep -v "^$" || true
"$work/venv/bin/python" -m pip show -q qxnetsdk >/dev/null || { echo "FAIL: qxnetsdk not installed"; exit 1; }
cd "$work"
exec "$work/venv/bin/python" -m pytest -q -p no:cacheprovider "$src/tests/python"

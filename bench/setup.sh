#!/usr/bin/env bash
# Installs the benchmark library and the peers from Debian.
exec "$(dirname "${BASH_SOURCE[0]}")/../scripts/setup.sh" build bench

#!/usr/bin/env bash
# Installs the npm packages of package.json (the report's plotting library)
# into node_modules/. Idempotent: does nothing when node_modules already
# matches package-lock.json.
set -euo pipefail
cd "$(dirname "$0")/../.."

if ! command -v npm >/dev/null 2>&1; then
  # Debian ships npm separately from nodejs (other nodejs builds bundle it).
  scripts/apt-install npm
fi

stamp=node_modules/.package-lock.json
if [ -f "$stamp" ] && [ "$stamp" -nt package-lock.json ] &&
   [ -f node_modules/uplot/dist/uPlot.iife.min.js ]; then
  exit 0
fi
# npm trusts only its own certificate bundle unless told otherwise; let it
# use the system's store too, so that a machine behind an inspecting proxy
# whose certificate authority is installed system-wide can still install.
if [ -z "${NODE_EXTRA_CA_CERTS:-}" ] && [ -f /etc/ssl/certs/ca-certificates.crt ]; then
  export NODE_EXTRA_CA_CERTS=/etc/ssl/certs/ca-certificates.crt
fi
echo "install-deps: npm ci (report assets)"
npm ci --no-audit --no-fund --loglevel=error

#!/usr/bin/env bash
# Installs what Vesk needs to build, run and test on Debian 12, skipping what is already there.
# Non-interactive; needs root (or sudo).
set -euo pipefail

packages=(
  g++ cmake ninja-build pkg-config git
  qt6-base-dev qt6-svg-dev qt6-pdf-dev qt6-webengine-dev qcoro-qt6-dev libgl-dev
  r-base-core r-cran-cli
  r-cran-ggplot2 poppler-utils
  libgtest-dev libgmock-dev libbenchmark-dev
  clang libclang-rt-14-dev clang-format
  xvfb xauth xdotool
  pandoc r-cran-rmarkdown
)

missing=()
for package in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$package")
  fi
done

if ((${#missing[@]})); then
  echo "Installing: ${missing[*]}"
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
else
  echo "All build and test dependencies are present."
fi

# Node and npm carry the MCP client SDK of the tool server's conformance test and benchmark.
if ! command -v node >/dev/null 2>&1 || ! command -v npm >/dev/null 2>&1; then
  echo "Installing: nodejs npm"
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  export DEBIAN_FRONTEND=noninteractive
  $sudo apt-get update -q
  $sudo apt-get install -y -q --no-install-recommends nodejs npm
fi

# The SDK itself, from the committed lock file, whenever node_modules is missing or older than it.
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
mcp="$root/tests/mcp"
if [ ! -d "$mcp/node_modules" ] || [ "$mcp/package-lock.json" -nt "$mcp/node_modules" ]; then
  echo "Installing the MCP SDK into tests/mcp/node_modules"
  npm ci --prefix "$mcp" --no-audit --no-fund
  touch "$mcp/node_modules"
else
  echo "The MCP SDK is present."
fi

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

# The MCP SDK and the pinned Claude Code CLI, each from its committed lock file, whenever its
# node_modules is missing or older than the lock.
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
for dir in "$root/tests/mcp" "$root/tests/agents"; do
  if [ ! -d "$dir/node_modules" ] || [ "$dir/package-lock.json" -nt "$dir/node_modules" ]; then
    echo "Installing ${dir#"$root/"}/node_modules"
    npm ci --prefix "$dir" --no-audit --no-fund
    touch "$dir/node_modules"
  else
    echo "${dir#"$root/"}/node_modules is present."
  fi
done

# The CLI package's postinstall puts the native binary in place; a newer npm that skips install
# scripts would leave a stub, so run it here if the binary does not answer.
claude="$root/tests/agents/node_modules/.bin/claude"
if ! "$claude" --version </dev/null >/dev/null 2>&1; then
  (cd "$root/tests/agents/node_modules/@anthropic-ai/claude-code" && node install.cjs)
fi
"$claude" --version </dev/null

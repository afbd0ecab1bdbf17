#!/usr/bin/env bash
# The demo must fail, and say why, when the agent cannot verify what the plugin sends.
#   refusal.sh DEMO BIN-DIR
set -euo pipefail
if output=$("$1" --bin-dir "$2" --rounds 1 --wrong-key 2>&1); then
  echo "the demo passed although the keys differ"
  exit 1
fi
for line in "notifyPluginUpdate        refused   its signature does not match its text" \
  "demo.sh: missing: plugin -> agent notifyPluginUpdate verified registered" \
  "demo.sh: missing: agent exit 0"; do
  grep -qF -- "$line" <<<"$output" || { echo "not in the output: $line"; exit 1; }
done

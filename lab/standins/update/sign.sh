#!/usr/bin/env bash
# Signs a program like a release. Usage: sign.sh KEYS_FOLDER PUBLISHER FROM TO
set -euo pipefail
cp "$3" "$4"
exec "$(dirname "$0")/../../../packaging/sign.sh" "$4" "$1/$2.key" "$1/$2.pem"

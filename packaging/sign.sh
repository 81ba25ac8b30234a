#!/usr/bin/env bash
# Signs a program in place (Authenticode, SHA-256).
# Usage: sign.sh PROGRAM KEY CERTIFICATE [TIMESTAMP_URL]
# Without a timestamp the signature expires with its certificate.
set -euo pipefail
timestamp=()
[ -z "${4:-}" ] || timestamp=(-ts "$4")
rm -f "$1.signed"
osslsigncode sign -h sha256 -certs "$3" -key "$2" -n "Velmarine.Client" "${timestamp[@]}" -in "$1" -out "$1.signed" >/dev/null
mv "$1.signed" "$1"

#!/usr/bin/env bash
# Signs a program. Usage: sign.sh KEYS_FOLDER PUBLISHER FROM TO
set -euo pipefail
rm -f "$4"
exec osslsigncode sign -h sha256 -certs "$1/$2.pem" -key "$1/$2.key" -n "Velmarine.Client" -in "$3" -out "$4" >/dev/null

#!/usr/bin/env bash
# Creates the lab's own authority and two publishers certified by it, publisher.* and stranger.* (.pem,
# .key); a third, unknown.*, without an authority; and publisher.sha256, the hash of the publisher's key.
# Usage: make_keys.sh FOLDER
set -euo pipefail
mkdir -p "$1"
cd "$1"
openssl req -x509 -newkey rsa:2048 -nodes -days 3650 -sha256 -subj "/CN=Lab Authority" \
  -keyout authority.key -out authority.pem 2>/dev/null
for name in publisher stranger; do
  openssl req -new -newkey rsa:2048 -nodes -sha256 -subj "/CN=Lab $name" -keyout "$name.key" -out "$name.csr" 2>/dev/null
  openssl x509 -req -in "$name.csr" -CA authority.pem -CAkey authority.key -CAcreateserial -days 3650 -sha256 \
    -extfile <(printf 'keyUsage=critical,digitalSignature\nextendedKeyUsage=codeSigning\n') -out "$name.pem" 2>/dev/null
done
openssl req -x509 -newkey rsa:2048 -nodes -days 3650 -sha256 -subj "/CN=Lab unknown" \
  -addext extendedKeyUsage=codeSigning -keyout unknown.key -out unknown.pem 2>/dev/null
openssl x509 -in publisher.pem -pubkey -noout | openssl pkey -pubin -outform der | sha256sum | cut -c1-64 >publisher.sha256

#!/usr/bin/env bash
# TLS with a private authority, made with the commands of the service's page. Programs that trust it
# get through with all traffic; others are told why they do not.
#   private_authority.sh VEXIM LOGIN SOURCES       the terminal client, the example, the repository
set -euo pipefail
vexim=$1 login=$2 sources=$3
fail() { echo "FAILED: $1"; exit 1; }
folder=$(mktemp -d "${TMPDIR:-/tmp}/vexim-authority-XXXXXX")
trap 'rm -rf "$folder"' EXIT
cd "$folder"

# The page's own lines, except the two that start something.
page=$(awk '/^## /{inside = /TLS with a private authority/} inside' "$sources/service/README.md" |
    sed -n '/^```sh/,/^```/{/^```/!p}')
[ "$(grep -c openssl <<< "$page")" -ge 4 ] || fail "the page has lost its commands"
grep -v '^node \|^vexim ' <<< "$page" > commands
printf 'echo "$pin"\n' >> commands
pin=$(bash -euo pipefail commands 2> log | tail -1) || fail "the page's commands: $(cat log)"

openssl req -newkey rsa:2048 -nodes -keyout expired.key -out request.pem -subj /CN=localhost \
    2> log || fail "a request: $(cat log)"
openssl x509 -req -in request.pem -signkey expired.key -days -1 -out expired.pem \
    -extfile <(echo 'subjectAltName=IP:127.0.0.1') 2> log || fail "expired: $(cat log)"

cat > checks <<'END'
set -euo pipefail
vexim=$1 login=$2 pin=$3 url=$4
fail() { echo "FAILED: $1"; exit 1; }
alice=(--server "$url" --user alice --friend bob)
send() { timeout 60 "$vexim" send "${alice[@]}" "$@" hello; }
history() { "$vexim" history "${alice[@]}" "$@"; }
refused() {  # WORDS COMMAND...
    words=$1; shift
    if said=$("$@" 2>&1); then fail "got through: $*"; fi
    grep -qF "$words" <<< "$said" || fail "instead of \"$words\": $said"
}
send --ca ca.pem --pin "$pin" || fail "a message to a server that is trusted"
history --ca ca.pem --pin "$pin" > /dev/null || fail "REST to a server that is trusted"
timeout 60 "$login" "$url" ca.pem "$pin" || fail "the example"
other=$(printf 'other' | openssl dgst -sha256 -binary | openssl base64)
history --ca ca.pem --pin "$other" --pin "$pin" > /dev/null || fail "one of two pins"
refused 'was not issued by a trusted authority' history
refused 'is not one of the pinned keys' history --ca ca.pem --pin "$other"
refused 'is not one of the pinned keys' send --ca ca.pem --pin "$other"
refused 'pin takes the base64' send --ca ca.pem --pin "${pin%?}"
END
"$sources/scripts/with-service" --tls server.pem server.key -- \
    bash checks "$vexim" "$login" "$pin" URL

# An expired certificate of a trusted authority, and a server with TLS that is used without.
cat > late <<'END'
set -euo pipefail
vexim=$1 url=$2
refused() {  # WORDS OPTION...
    said=$(timeout 60 "$vexim" send "${@:2}" --user alice --friend bob hello 2>&1) && exit 1
    grep -qF "$1" <<< "$said" || { echo "$said"; exit 1; }
}
refused 'has expired' --server "$url" --ca expired.pem
refused 'Are the address and the port right?' --server "${url/https:/http:}"
END
"$sources/scripts/with-service" --tls expired.pem expired.key -- bash late "$vexim" URL ||
    fail "an expired certificate, or no TLS"

#!/usr/bin/env bash
# The chat without a terminal: what a script writes arrives, and the status tells whether anybody was logged in.
#   chat_lines.sh VEXIM URL       where the local service is
set -euo pipefail
vexim=$1
url=$2
fail() { echo "FAILED: $1"; exit 1; }
chat() { timeout 60 "$vexim" chat "$@"; }

heard=$(printf 'first\n/status\n/nonsense\n/quit\n' | chat --server "$url" --user alice --friend bob) || fail "a chat that ends with /quit"
for line in 'logged in as alice' 'the session is open' 'no such command' 'logout'; do
    grep -qF "$line" <<< "$heard" || fail "not said: $line, but: $heard"
done
printf 'the last, without an end' | chat --server "$url" --username alice --password alice-secret --friend bob > /dev/null ||
    fail "a chat that ends with its input"

end=$((SECONDS + 20))
until history=$("$vexim" history friend alice bob --server "$url") && grep -qF 'the last, without an end' <<< "$history"; do
    [ $SECONDS -lt $end ] || fail "the history is: $history"
done
grep -qF 'first' <<< "$history" || fail "the first line was lost: $history"

if heard=$(printf 'lost' | chat --server "$url" --user alice --group nowhere); then fail "sent to nobody: $heard"; fi
grep -qF 'the service has not sent it back: group nowhere, alice: lost' <<< "$heard" || fail "nobody says what was lost: $heard"

if heard=$(chat --server "$url" --username alice --password wrong < /dev/null); then fail "a wrong password: $heard"; fi
grep -qF 'The credentials match no user' <<< "$heard" || fail "no reason given: $heard"
if chat --server http://127.0.0.1:1 --user alice < /dev/null > /dev/null; then fail "nobody listens there"; fi

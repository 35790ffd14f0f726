#!/usr/bin/env bash
# The chat without a terminal: what a script writes arrives, and the status tells whether anybody was logged in.
#   chat_lines.sh VEXIM URL       where the local service is
set -euo pipefail
vexim=$1
url=$2
fail() { echo "FAILED: $1"; exit 1; }
chat() { timeout 60 "$vexim" chat "$@"; }

folder=$(mktemp -d "${TMPDIR:-/tmp}/vexim-chat-XXXXXX")
trap 'rm -rf "$folder"' EXIT
heard=$(printf 'first\n/status\n/nonsense\n/quit\n' | chat --server "$url" --user alice --friend bob) || fail "a chat that ends with /quit"
for line in 'logged in as alice' 'the session is open' 'no such command' 'logout'; do
    grep -qF "$line" <<< "$heard" || fail "not said: $line, but: $heard"
done
printf 'the last, without an end' | chat --server "$url" --username alice --password alice-secret --friend bob > /dev/null ||
    fail "a chat that ends with its input"

end=$((SECONDS + 20))
until history=$("$vexim" history --user alice --friend bob --server "$url") && grep -qF 'the last, without an end' <<< "$history"; do
    [ $SECONDS -lt $end ] || fail "the history is: $history"
done
grep -qF 'first' <<< "$history" || fail "the first line was lost: $history"

# More than wait at one time, and in their order.
seq -f 'line %g.' 1 600 > "$folder/lines"
heard=$(chat --server "$url" --user alice --group demo-group < "$folder/lines") || fail "a long pipe: $heard"
grep -o 'line [0-9]*\.' <<< "$heard" | cmp - "$folder/lines" || fail "not all lines of a pipe, or not in order"

if heard=$(printf 'lost' | chat --server "$url" --user alice --group nowhere); then fail "sent to nobody: $heard"; fi
grep -qF 'group nowhere, alice: lost' <<< "$heard" || fail "nobody says what was lost: $heard"

# With a store: what waits goes out in the next run, and what came meanwhile is told at its start.
keeping() { chat --server "$url" --user alice --friend bob --store "$folder/alice.vexim"; }
heard=$(printf '/pause\nwritten on a train\n' | keeping) || fail "a chat that ends without a connection: $heard"
grep -qF '1 message waits in the store' <<< "$heard" || fail "nobody says that it waits: $heard"
"$vexim" send --server "$url" --user bob --friend alice 'are you there?' || fail "bob cannot send"
coproc alice { exec timeout 60 "$vexim" chat --server "$url" --user alice --friend bob --store "$folder/alice.vexim"; }
for line in 'while you were away: 1 message' 'friend bob, bob: are you there?' 'friend bob, alice: written on a train'; do
    heard=
    # The last one may come before the others.
    grep -qF "$line" "$folder/heard" 2> /dev/null || until grep -qF "$line" "$folder/heard" 2> /dev/null; do
        IFS= read -r -t 60 heard <&"${alice[0]}" || fail "not said in the next run: $line, but: $(cat "$folder/heard")"
        printf '%s\n' "$heard" >> "$folder/heard"
    done
done
# Beside a chat that has it open.
found=$("$vexim" search 'wri* TRAIN' --store "$folder/alice.vexim" --friend bob --since 2020-01-01) || fail "the search"
grep -qE 'friend bob +alice +written on a train' <<< "$found" || fail "not found, but: $found"
[ -z "$("$vexim" search train --store "$folder/alice.vexim" --until 2020-01-01 2> /dev/null)" ] || fail "found in another year"
[ -z "$("$vexim" search train --store "$folder/alice.vexim" --group bob 2> /dev/null)" ] || fail "found in another conversation"
"$vexim" search there --json --store "$folder/alice.vexim" | grep -qF '"direction":"incoming"' || fail "the search as JSON"
"$vexim" export --store "$folder/alice.vexim" | grep -qF '"written on a train"' || fail "the export"
"$vexim" export "$folder/all.jsonl" --store "$folder/alice.vexim" --group bob || fail "the export of one conversation"
[ -e "$folder/all.jsonl" ] && [ ! -s "$folder/all.jsonl" ] || fail "there was nothing to export"
if heard=$(keeping < /dev/null); then fail "two programs have the store: $heard"; fi
grep -qF 'no store: Another program has opened the message store' <<< "$heard" || fail "no reason given: $heard"
echo /quit >&"${alice[1]}"
wait "$alice_PID" || fail "the chat with a store"

if heard=$(chat --server "$url" --username alice --password wrong < /dev/null); then fail "a wrong password: $heard"; fi
grep -qF 'The credentials match no user' <<< "$heard" || fail "no reason given: $heard"
if chat --server http://127.0.0.1:1 --user alice < /dev/null > /dev/null; then fail "nobody listens there"; fi

#!/usr/bin/env bash
# The chat without a terminal: what a script writes arrives, and the status tells whether anybody
# was logged in.
#   chat_lines.sh VEXIM URL       where the local service is
set -euo pipefail
vexim=$1
url=$2
fail() { echo "FAILED: $1"; exit 1; }
chat() { timeout 60 "$vexim" chat "$@"; }
talk() { chat --server "$url" --user alice "$@"; }

folder=$(mktemp -d "${TMPDIR:-/tmp}/vexim-chat-XXXXXX")
trap 'rm -rf "$folder"' EXIT
heard=$(printf 'first\n/status\n/nonsense\n/quit\n' | talk --friend bob) ||
    fail "a chat that ends with /quit"
for line in 'logged in as alice' 'the session is open' 'no such command' 'logout'; do
    grep -qF "$line" <<< "$heard" || fail "not said: $line, but: $heard"
done
printf 'the last, without an end' | chat --server "$url" --username alice \
    --password alice-secret --friend bob > /dev/null || fail "a chat that ends with its input"

end=$((SECONDS + 20))
until history=$("$vexim" history --user alice --friend bob --server "$url") &&
    grep -qF 'the last, without an end' <<< "$history"; do
    [ $SECONDS -lt $end ] || fail "the history is: $history"
done
grep -qF 'first' <<< "$history" || fail "the first line was lost: $history"

# More lines than may wait at a time, in their order.
seq -f 'line %g.' 1 600 > "$folder/lines"
heard=$(talk --group demo-group < "$folder/lines") || fail "a long pipe: $heard"
grep -o 'line [0-9]*\.' <<< "$heard" | cmp - "$folder/lines" || fail "lines of a pipe"

if heard=$(printf 'lost' | talk --group nowhere); then fail "sent to nobody: $heard"; fi
grep -qF 'group nowhere, alice: lost' <<< "$heard" || fail "nobody says what was lost: $heard"

# With a store: waiting messages are sent in the next run, which first tells what came meanwhile.
store=$folder/alice.vexim
keeping() { talk --friend bob --store "$store"; }
heard=$(printf '/pause\nwritten on a train\n' | keeping) || fail "a chat without connection: $heard"
grep -qF '1 message waits in the store' <<< "$heard" || fail "nobody says that it waits: $heard"
"$vexim" send --server "$url" --user bob --friend alice 'are you there?' || fail "bob cannot send"
coproc alice { keeping; }
: > "$folder/heard"
for line in 'while you were away: 1 message' 'friend bob, bob: are you there?' \
    'friend bob, alice: written on a train'; do  # the last one may come before the others
    until grep -qF "$line" "$folder/heard"; do
        IFS= read -r -t 60 heard <&"${alice[0]}" ||
            fail "not said in the next run: $line, but: $(cat "$folder/heard")"
        printf '%s\n' "$heard" >> "$folder/heard"
    done
done
# while a chat has it open
found=$("$vexim" search 'wri* TRAIN' --store "$store" --friend bob --since 2020-01-01) ||
    fail "the search"
grep -qE 'friend bob +alice +written on a train' <<< "$found" || fail "not found, but: $found"
for elsewhere in '--until 2020-01-01' '--group bob'; do
    # shellcheck disable=SC2086
    found=$("$vexim" search train --store "$store" $elsewhere 2> /dev/null) || true
    [ -z "$found" ] || fail "found with $elsewhere: $found"
done
"$vexim" search there --json --store "$store" | grep -qF '"direction":"incoming"' ||
    fail "the search as JSON"
"$vexim" export --store "$store" | grep -qF '"written on a train"' || fail "the export"
"$vexim" export "$folder/all.jsonl" --store "$store" --group bob || fail "one conversation's export"
[ -e "$folder/all.jsonl" ] && [ ! -s "$folder/all.jsonl" ] || fail "there was nothing to export"
if heard=$(keeping < /dev/null); then fail "two programs have the store: $heard"; fi
grep -qF 'no store: Another program has opened the message store' <<< "$heard" ||
    fail "no reason given: $heard"
echo /quit >&"${alice[1]}"
wait "$alice_PID" || fail "the chat with a store"

if heard=$(chat --server "$url" --username alice --password wrong < /dev/null); then
    fail "a wrong password: $heard"
fi
grep -qF 'The credentials match no user' <<< "$heard" || fail "no reason given: $heard"
if chat --server http://127.0.0.1:1 --user alice < /dev/null > /dev/null; then fail "nobody listens there"; fi

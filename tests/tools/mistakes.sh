#!/usr/bin/env bash
# What a new user does wrong: `vexim` says why, in words, with a status that is not 0; and what
# "sent" means for `vexim send`.
#   mistakes.sh VEXIM URL       where the local service is
set -euo pipefail
vexim=$1 url=$2
fail() { echo "FAILED: $1"; exit 1; }
folder=$(mktemp -d "${TMPDIR:-/tmp}/vexim-mistakes-XXXXXX")
trap 'rm -rf "$folder"' EXIT
printf 'caf\xe9' > "$folder/latin1"
head -c 2000000 /dev/zero | tr '\0' x > "$folder/long"
head -c 20000000 /dev/zero > "$folder/endless"
head -c 5000 /dev/zero > "$folder/large.png"
echo "sevrer = $url" > "$folder/settings"
touch "$folder/my notes"
unset VEXIM_SERVER VEXIM_USER
export XDG_CONFIG_HOME=$folder

at="--server $url" dead="--server http://127.0.0.1:1"
latin_id=$(printf 'al\xe9ce') long_id=$(head -c 12000 "$folder/long")
# status | standard input | what must be said | the command; {} is a login and a receiver
table="
2 | /dev/null | URL: \"localhost:80\"; did you mean http://localhost:80 | send --server localhost:80 {} hi
2 | /dev/null | leave out \"/api\" | send --server http://localhost:80/api {} hi
2 | /dev/null | a service's URL: \"htp://localhost\" | history --group g --server htp://localhost
2 | /dev/null | not a service's URL: \"http://\"           | chat --server http:// {}
2 | /dev/null | no such command: sned                      | sned $at {} hi
2 | /dev/null | no such command: friends lists (did you mean list?) | friends lists $at
2 | /dev/null | friends takes one of: list                 | friends
2 | /dev/null | say what to do: chat, send                 | --json
2 | /dev/null | no such option: --frend (did you mean --friend?) | send $at --frend bob hi
2 | /dev/null | no such option: --frend                    | friends add --frend
2 | /dev/null | not understood: bob                        | friends list bob $at --user alice
2 | /dev/null | not understood: friend                     | history friend alice
2 | /dev/null | FRIEND is required                         | friends add $at --user alice
2 | /dev/null | usres                                      | find usres $at
2 | /dev/null | --limit takes a number from 1 on, not all  | history --group g --limit all $at
2 | /dev/null | expected KEY=VALUE, not city               | attributes set city $at --user alice
2 | /dev/null | say which service: with --server           | friends list --user alice
2 | /dev/null | --user and --username exclude each other | friends list $at --user a --username a
2 | /dev/null | settings: no such setting: sevrer (did you mean --server?) | chat --config settings
2 | /dev/null | no such configuration file: nowhere        | friends list --config nowhere
2 | /dev/null | --ca: no such file: /no/such.pem           | send $at {} --ca /no/such.pem hi
1 | /dev/null | from 127.0.0.1 (cannot connect), trying    | friends list --user alice $dead
1 | /dev/null | Are the address and the port right?        | friends list --user alice $dead
1 | /dev/null | at http://127.0.0.1:1: Could not connect   | send $dead {} hi
1 | /dev/null | at http://127.0.0.1:1: Could not connect   | chat $dead {}
1 | /dev/null | at http://127.0.0.1:1: Could not connect   | demo $dead
1 | /dev/null | is it http://?                             | send --server ${url/http:/https:} {} hi
1 | /dev/null | user name and the password | send $at --username alice --password x --friend bob hi
1 | /dev/null | Check the user name and the password | chat $at --username alice --password wrong
1 | /dev/null | Check --app and --key                      | send $at {} --key wrong hi
1 | /dev/null | Check --app and --key | friends list --user alice $at --key wrong
2 | /dev/null | say who you are                            | send $at --friend bob hi
2 | /dev/null | say to whom                                | send $at --user alice hi
2 | /dev/null | the text is empty                          | send $at {}
2 | /dev/null | argument 5 is not valid UTF-8 | send $at --user $latin_id --friend bob hi
2 | /dev/null | credentials take 12 | send $at --user $long_id --friend bob hi
2 | latin1    | the text is not valid UTF-8                | send $dead {} -
2 | endless   | the text is longer than 16 MiB             | send $dead {}
1 | long      | it is longer than the server accepts       | send $at {}
1 | long      | it is longer than the server accepts       | chat $at {}
2 | /dev/null | no such file: /no/such.png                 | send $dead {} --file /no/such.png
2 | /dev/null | the file's name needs quotes: --file \"my notes\" | send $dead {} --file my notes
2 | /dev/null | not both                                   | send $dead {} --file latin1 notes
2 | /dev/null | this is a directory, not a file: /         | send $dead {} --file /
1 | /dev/null | not sent: The body is too large            | send $at {} --file large.png
1 | /dev/null | Is \"nobody\" a friend of yours? | send $at --user alice --friend nobody hi
2 | /dev/null | not \"tomorrow\" | search hi --store alice.vexim --since tomorrow
2 | /dev/null | no letter or digit to search for in \"...\" | search ... --store latin1
2 | /dev/null | --store is a directory                     | search hi --store .
2 | /dev/null | --store is a directory                     | export --store . --user alice
2 | /dev/null | say which store with --store               | search hi
2 | /dev/null | WORD is required                           | search --store alice.vexim
1 | /dev/null | There is no message store at this path     | search hi --store nothing.vexim
1 | /dev/null | There is no message store at this path     | export --store nothing.vexim
1 | /dev/null | VXIMStoreErrorDomain                       | search hi --store latin1
1 | /dev/null | no store: The message store's folder       | chat $at {} --store none/alice.vexim
1 | /dev/null | Are you a member of a group \"nowhere\"? | send $at --user alice --group nowhere hi
"
cd "$folder"
failures=0
while IFS='|' read -r status input words command; do
    [ -n "$command" ] || continue
    read -r status <<< "$status"; read -r input <<< "$input"; read -r words <<< "$words"
    got=0
    # shellcheck disable=SC2086
    said=$(timeout 60 "$vexim" ${command/\{\}/--user alice --friend bob} < "$input" 2>&1) || got=$?
    [ "$got" = "$status" ] && grep -qF -- "$words" <<< "$said" && continue
    echo "$command: status $got, not $status, or other words than \"$words\": ${said:0:500}"
    failures=$((failures + 1))
done <<< "$table"
[ "$failures" = 0 ] || fail "$failures of the mistakes"

# A delivered message is reported as delivered.
send() { timeout 60 "$vexim" send --server "$url" --user alice "$@"; }
printf 'two\nlines é\n' | send --friend bob || fail "a text from a pipe"
printf 'by a dash' | send --group demo-group - || fail "a text from -"
send --room demo-room -- '-5' || fail "a text that begins with a dash"
head -c 100 /dev/zero > small.png
send --friend bob --file small.png 2> /dev/null || fail "a file"
history=$("$vexim" history --user alice --friend bob --server "$url" --json) || fail "the history"
grep -qF '"two\nlines é"' <<< "$history" || fail "not as it was written: $history"

# What is not the echo is not taken for it: another text, the same elsewhere, the same from the
# other side.
send --friend nobody mine 2> said &
sending=$!
end=$((SECONDS + 60))
until curl -sf "$url/_control/log?kind=packet" | grep -qF '\"mine\"'; do
    [ $SECONDS -lt $end ] || fail "never sent: $(cat said)"
done
emit() {  # EVENT TEXT TO FROM
    curl -sf "$url/_control/emit" -H 'Content-Type: application/json' -o /dev/null -d '{
        "user": "alice", "event": "'"$1"'", "args": [{"content": {"media": 0, "body": "'"$2"'"},
        "ts": 1, "to": {"id": "'"$3"'", "type": 0}, "from": {"id": "'"$4"'", "type": 0}}]}'
}
emit yourself other nobody alice
emit yourself mine bob alice
emit message mine alice nobody
if wait "$sending"; then fail "taken for delivered"; fi
grep -qF 'not delivered' said || fail "not delivered, but: $(cat said)"

# A second login of the same user harms neither, and both get the messages.
await() {
    while IFS= read -r -t 60 line <&"${first[0]}"; do [[ $line != *"$1"* ]] || return 0; done
    fail "not heard by the first login: $1"
}
coproc first { exec timeout 60 "$vexim" chat --server "$url" --user alice; }
await 'logged in as alice'
send --friend bob 'from another login' || fail "a second login"
await 'friend bob, alice: from another login'
echo /quit >&"${first[1]}"
wait "$first_PID" || fail "the first login"

# A full disk.
full() {  # COMMAND...
    got=0
    said=$(timeout 60 "$vexim" "$@" --user alice --server "$url" 2>&1 > /dev/full) || got=$?
    local words='cannot write the output: No space left on device'
    [ "$got" = 1 ] && grep -qF "$words" <<< "$said" || fail "a full disk: $*: $got, $said"
}
full friends list
mkfifo open
exec 3<> open  # an input that does not end
full chat <&3

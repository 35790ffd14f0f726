#!/usr/bin/env bash
# Plays the chat's story with two users in tmux: they talk, found a group, exchange a file, resize,
# and go on when the service hangs, dies and comes back. Looks only at what stands on the screens;
# every wait ends when that is there, or after 20 seconds.
#   chat_terminal.sh VEXIM SERVICE-FOLDER [emulated]
set -euo pipefail
vexim=$1
service=$2
emulated=${3-}
if ! command -v tmux > /dev/null; then echo "skipped: tmux is not installed"; exit 77; fi

export LC_ALL=C.UTF-8 TERM=xterm-256color
unset NO_COLOR TMUX
work=$(mktemp -d)
service_pid=
panes() { TMUX_TMPDIR=$work tmux -u -f /dev/null -L chat "$@"; }
clean_up() {
    panes kill-server 2> /dev/null || true
    if [ -n "$service_pid" ]; then kill -KILL "$service_pid" 2> /dev/null || true; fi
    wait 2> /dev/null || true
    rm -rf "$work"
}
trap clean_up EXIT

port=0
start_service() {  # on the port that it had before
    : > "$work/service.log"
    TMPDIR=$work node "$service/server.js" --port "$port" > "$work/service.log" 2>&1 &
    service_pid=$!
    await_file "$work/service.log" 'listening on'
    port=$(sed -n 's/.*listening on .*:\([0-9]*\)$/\1/p' "$work/service.log")
}

control() {  # control PATH BODY
    curl -sf "http://127.0.0.1:$port/_control/$1" -H 'Content-Type: application/json' \
        -o /dev/null -d "$2"
}

# how wide the columns are is not the point here
screen() { panes capture-pane -p -t "$1" | tr -s ' '; }
fail() {
    echo "FAILED: $1"
    for user in alice bob; do echo "-- $user:"; screen $user || cat "$work/$user.err"; done
    exit 1
}
until_holds() {  # until_holds WHAT COMMAND...: polls
    local what=$1 end=$((SECONDS + 20))
    shift
    until "$@" > /dev/null 2>&1; do
        [ $SECONDS -lt $end ] || fail "$what"
        sleep 0.05
    done
}
shows() { screen "$1" | grep -qF -- "$2"; }
shows_not() { ! shows "$1" "$2"; }
has() { grep -q -- "$2" "$1"; }
await() { until_holds "$1 does not show: $2" shows "$1" "$2"; }
await_not() { until_holds "$1 still shows: $2" shows_not "$1" "$2"; }
await_file() { until_holds "$1 does not have: $2" has "$1" "$2"; }
await_ended() { until_holds "$1 has not ended" has "$work/$1.status" .; }
keys() { panes send-keys -t "$1" "${@:2}"; }
say() { panes send-keys -t "$1" -l "$2" && panes send-keys -t "$1" Enter; }
step() { printf '%3ds  %s\n' "$SECONDS" "$1"; }

start_chat() {  # start_chat USER [ARGUMENT...]
    local user=$1
    shift
    mkdir -p "$work/$user"
    panes new-session -d -s "$user" -x 100 -y 24 -c "$work/$user" \
        "'$vexim' chat --server http://127.0.0.1:$port --install '$user' $* 2> '$work/$user.err'
            echo \$? > '$work/$user.status'; exec cat"
}

start_service
step "a refused login ends with its reason, and nothing secret in the process list"
start_chat mallory --username alice --password not-hers
await_ended mallory
has "$work/mallory.status" 1 && has "$work/mallory.err" 'The credentials match no user' ||
    fail "mallory is not refused"

step "two users come online, and talk"
start_chat alice --user alice
await alice 'alice connected to'
start_chat bob --username bob --password bob-secret --friend alice
await bob 'bob connected to'
if [ -z "$emulated" ]; then  # the program cannot change an emulator's arguments
    arguments=$(pgrep -ax "$(basename "$vexim")" | grep -- "127.0.0.1:$port --install bob ")
    case $arguments in *bob-secret*) fail "the password is in the process list: $arguments" ;; esac
fi
await alice '1 ● bob'
say bob $'caf\u00e9, \u4f60\u597d \U1F44B and e\u0301'
await alice '1 ● bob 1│'
keys alice M-1
await alice $'bob: caf\u00e9, \u4f60\u597d \U1F44B and e\u0301'
await_not alice 'bob 1│'

step "an emoji is whole, and what stands behind it is in its place"
panes pipe-pane -t alice "cat > '$work/alice.raw'"
say bob $'a \U1F469\U1F3FD\u200D\U1F680 flies'
await alice 'flies'
await_file "$work/alice.raw" $'\U1F469\U1F3FD\u200D\U1F680'
panes pipe-pane -t alice

step "who befriends appears"
control users '{"id": "carol"}'
start_chat carol --user carol
await carol 'carol connected to'
"$vexim" friends add alice --user carol --server "http://127.0.0.1:$port" || fail "carol finds no friend"
await alice '2 ● carol'  # long before all lists are read again
say carol '/quit'
await_ended carol
"$vexim" friends remove alice --user carol --server "http://127.0.0.1:$port" || fail "carol keeps her friend"
await alice 'x carol'

step "a line waits in its conversation, and keys that nobody knows write nothing"
keys alice 'half' M-2
await_not alice '> half'
keys alice M-1
panes send-keys -t alice -l $'\033[1;9Q way'
await alice '> half way'
keys alice C-u

step "a hostile message is only text"
title=$(panes display-message -p -t alice '#{pane_title}')
hostile='\u001b]0;owned\u0007\u001b[2J\u001b[31mfine\u009b5m \u202eso far'
control emit '{"user": "alice", "event": "message", "args": [{"content": {"media": 0,
    "body": "'"$hostile"'"}, "ts": 1, "to": {"id": "alice", "type": 0},
    "from": {"id": "bob", "type": 0}}]}'
await alice 'bob: fine so far'
[ "$(panes display-message -p -t alice '#{pane_title}')" = "$title" ] || fail "the title changed"

step "a group, by completion"
say alice '/group new "Reading circle" bob'
await alice 'group Reading circle (g'
await alice '), 2 members'
say alice 'which book?'
await bob 'Reading circle 1│'
keys bob '/group Rea' Tab Enter
await bob 'alice: which book?'

step "a file, there and back"
head -c 300000 /dev/urandom > "$work/alice/dot.png"
mkdir "$work/alice/a directory"
say alice '/send a directory'
await alice 'this is a directory, not a file: a directory'
mv "$work/alice/dot.png" "$work/alice/my dot.png"
say alice '/send my dot.png'
await bob '[image] my dot.png (/save '
say bob '/save'
await bob 'saved as my dot.png'
cmp "$work/alice/my dot.png" "$work/bob/my dot.png" || fail "the file has changed on its way"
mv "$work/alice/my dot.png" "$work/alice/dot.png"
keys alice '/send do' Tab Enter
await bob '[image] dot.png (/save '
say bob "/save $work/bob/saved.png"
await bob "saved as $work/bob/saved.png"
cmp "$work/alice/dot.png" "$work/bob/saved.png" || fail "the file has changed on its way"

step "a small screen, a large one, a long paste"
panes resize-window -t alice -x 1 -y 1
panes resize-window -t alice -x 30 -y 6
await alice '>'
panes resize-window -t alice -x 120 -y 30
await alice 'alice: which book?'
{
    printf 'long '
    head -c 10000 /dev/zero | tr '\0' x
    printf '\nand a second line'
} > "$work/paste"
panes load-buffer "$work/paste"
panes paste-buffer -p -t alice
await alice '⏎and a second line'
keys alice Enter
await bob 'and a second line'

step "the service hangs: what was sent is in doubt, until it goes on"
kill -STOP "$service_pid"
say alice 'are you there?'
await alice 'are you there? (not confirmed yet)'
await alice 'connected, but the service has not answered for'
kill -CONT "$service_pid"
await_not alice '(not confirmed yet)'
await alice 'alice connected to'

step "the service dies: what cannot be sent waits"
keys bob M-1
keys alice M-1
kill -KILL "$service_pid"
wait "$service_pid" 2> /dev/null || true
await alice 'next attempt'
await alice 'Connection refused'
await alice '1 ? bob'
say alice 'while it is down'
await alice 'while it is down (waits to be sent'

step "it comes back, and so do they"
start_service
await alice 'alice connected to'
await bob 'bob connected to'
await alice '1 ● bob'
await_not alice '(waits to be sent'
await bob 'alice: while it is down'
say alice '/search WHILE down'
await alice 'found, the newest first:'

step "paused and resumed"
say alice '/pause'
await alice 'paused: nothing arrives until /resume'
await bob '1 ○ alice'
say alice '/resume'
await alice 'alice connected to'

step "the help is read from its first line"
say alice '/help'
await alice 'Text that does not begin with / is sent.'
keys alice Enter
await alice 'cut word, to the start'

step "they leave, and the terminals are as before"
say alice '/quit'
keys bob C-d
for user in alice bob; do
    await_ended $user
    has "$work/$user.status" 0 ||
        fail "$user ended with $(cat "$work/$user.status"): $(cat "$work/$user.err")"
done
echo "all well after $SECONDS s"

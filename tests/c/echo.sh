#!/usr/bin/env bash
# Starts the talker and, when that one is in, the bot; both must end well.
#   echo.sh BOT TALKER URL
set -euo pipefail
exec 3< <("$2" "$3"; echo "ended $?")
read -r -t 60 -u 3 line
[ "$line" = in ] || exit 1
"$1" "$3" &
bot=$!
read -r -t 60 -u 3 line
echo "the talker $line"
if [ "$line" != "ended 0" ]; then kill $bot; exit 1; fi
wait $bot

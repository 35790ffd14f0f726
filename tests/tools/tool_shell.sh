#!/usr/bin/env bash
# The tool as shells, pipes and programs meet it: settings, tables and JSON, completion in bash and
# zsh, the manual.
#   tool_shell.sh VEXIM URL SOURCES       where the local service is
set -euo pipefail
vexim=$1 url=$2 sources=$3
fail() { echo "FAILED: $1"; exit 1; }
folder=$(mktemp -d "${TMPDIR:-/tmp}/vexim-shell-XXXXXX")
trap 'rm -rf "$folder"' EXIT
cd "$folder"
for name in ${!VEXIM_*}; do unset "$name"; done
export XDG_CONFIG_HOME=$folder/settings
mkdir -p settings/vexim
v() { timeout 60 "$vexim" "$@"; }
says() {  # WORDS COMMAND...: standard output has them
    local words=$1 said; shift
    said=$("$@") || fail "$* ended with $?"
    grep -qE -- "$words" <<< "$said" || fail "$*: no \"$words\" in: $said"
}

# The command line comes before the environment, that before the file; naming oneself one way does
# without the other.
printf '# mine\nserver = "%s"\nuser = alice\n' "$url" > settings/vexim/config
says '^bob +no' v friends list
VEXIM_USER=bob says '^alice +' v friends list
VEXIM_USER=nobody says '^alice +' v friends list --user bob
VEXIM_USERNAME=bob VEXIM_PASSWORD=bob-secret says '^alice +' v friends list
printf 'user = alice\n' > other
VEXIM_CONFIG=other VEXIM_SERVER=$url says '^bob +' v --user alice friends list

# One grammar, and each result twice: for people and for programs.
is_json() {
    python3 -c 'import json, sys; [json.loads(line) for line in sys.stdin]' || fail "not JSON: $1"
}
id=$(v groups create 'Climbing 漢字' bob) || fail "a group with a member"
while IFS='|' read -r words command; do
    # shellcheck disable=SC2086
    says "$words" v $command
    # shellcheck disable=SC2086
    v $command --json | is_json "$command"
done << END
^ID +OWNER +MEMBERS|groups list
^members +alice, bob$|groups show $id
^bob$|members list --group $id
^ID +ONLINE|friends list
^city +Lisbon$|attributes get
^Lisbon$|attributes get city
^bob +no|find users city=Oslo
^demo-room +Demo room|rooms list
END
v attributes set mood=fine n=3 --group "$id" || fail "several attributes"
says '^n +3$' v attributes get --group "$id"
says '^bob' eval 'v find users --sort age --sort -city --limit 2 | sed -n 2p'
says '^alice' eval 'v find users --sort -age,city --limit 2 | sed -n 2p'
v members add carol --group "$id" 2> /dev/null && fail "nobody is carol"
date | v send --group "$id" || fail "a text from a pipe"
v send --group "$id" one two || fail "a text of two words"
says "^$(date +%Y)-.*  alice  one two$" v history --group "$id"
says '^TIME +FROM +TEXT' v history --group "$id" --limit 1
v history --group "$id" --json | is_json history
v send --friend bob x --json | is_json send
v demo --json | is_json demo
said=$(printf 'by lines\n/nonsense\n' | v chat --group "$id" --json) || fail "a chat in JSON"
is_json chat <<< "$said"
grep -qF '"event":"message","kind":"group"' <<< "$said" || fail "no message event: $said"
said=$(printf 'beside ids\n' | v chat --group "$id")
grep -qF "group $id (Climbing 漢字), alice: beside ids" <<< "$said" || fail "no name: $said"
said=$(v friends list --json --server http://127.0.0.1:1 2>&1 > /dev/null) && fail "a dead server"
tail -1 <<< "$said" | is_json "an error"

# A file keeps its name, and its type is told.
printf 'plan' > 'the plan?.pdf'
v send --friend bob --file 'the plan?.pdf' 2> /dev/null || fail "a file"
v history --friend bob --limit 1 --json > sent
grep -qF '"name":"the plan?.pdf","type":"application/pdf"' sent || fail "the file: $(cat sent)"
says '\[file\] the plan\?\.pdf http' v history --friend bob --limit 1

# Help and manual know every command, option and word.
v --manual > vexim.1
while IFS= read -r name; do
    grep -qF "vexim $name\"" vexim.1 || fail "not in the manual: $name"
done < <(v --complete '' | cut -f1 | while read -r one; do
    below=$(v --complete "$one" '' | cut -f1)
    case $one in
        friends | groups | rooms | members | attributes | passengers)
            sed "s/^/$one /" <<< "$below" ;;
        *) echo "$one" ;;
    esac
done)
if command -v mandoc > /dev/null; then
    mandoc -T lint -W warning vexim.1 > lint || fail "mandoc: $(cat lint)"
fi
if command -v groff > /dev/null; then
    groff -mdoc -ww -z -T utf8 vexim.1 2> lint
    [ ! -s lint ] || fail "groff: $(head -3 lint)"
fi
says 'EXIT STATUS' cat vexim.1

# bash and zsh complete: typed words → what is offered.
cat > cases << 'END'
vexim fr|friends
vexim friends re|remove
vexim send --fri|--friend
vexim --server http://localhost:1 send --roo|--room
vexim find us|users
vexim send --file the|the plan?.pdf
vexim export the|the plan?.pdf
vexim friends list --js|--json
vexim send --friend x|
END
cat > complete.bash << 'END'
vexim() { "$VEXIM_PROGRAM" "$@"; }
source "$1/tools/vexim/completion/vexim.bash"
while IFS='|' read -r line expected; do
    COMP_LINE=$line COMP_POINT=${#line}
    read -ra COMP_WORDS <<< "${line//:/ : }"  # as bash divides it
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    _vexim
    offered=${COMPREPLY[*]}
    [ "$offered" = "$expected" ] || { echo "$line: \"$offered\", not \"$expected\""; exit 1; }
done < cases
complete -p vexim | grep -q _vexim
END
VEXIM_PROGRAM=$vexim bash complete.bash "$sources" > said || fail "bash: $(cat said)"
bash -n "$sources/tools/vexim/completion/vexim.bash"
if command -v zsh > /dev/null; then
    cat > complete.zsh << 'END'
vexim() { "$VEXIM_PROGRAM" "$@" }
_files() { offered=("the plan?.pdf") }
_describe() { offered=("${(@)choices%%:*}") }
while IFS='|' read -r line expected; do
    words=("${(@s: :)line}") CURRENT=${#${(s: :)line}} offered=()
    () { source "$1/tools/vexim/completion/_vexim" } "$1"
    [[ "$offered" == "$expected" ]] || { echo "$line: \"$offered\", not \"$expected\""; exit 1 }
done < cases
END
    VEXIM_PROGRAM=$vexim zsh -f complete.zsh "$sources" > said 2>&1 || fail "zsh: $(cat said)"
fi
echo "all well"

# Completion of vexim for bash. The program itself says what may follow.

_vexim() {
    local line words current=${COMP_WORDS[COMP_CWORD]}
    line=${COMP_LINE:0:COMP_POINT}
    read -ra words <<< "$line"  # bash's own words end at the colon of a URL
    [[ $line != *[[:space:]] ]] || words+=('')
    COMPREPLY=()
    while IFS= read -r line; do
        if [ "$line" = @files ]; then
            compopt -o filenames 2> /dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$current")
            return
        fi
        COMPREPLY+=("${line%%$'\t'*}")
    done < <("${COMP_WORDS[0]}" --complete "${words[@]:1}" 2> /dev/null)
}
complete -F _vexim vexim

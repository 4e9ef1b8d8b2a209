#!/usr/bin/env bash
# The manual page, `korvane --help` and the README tell the same: the same
# options, signals and exit statuses; the page and the README name the same
# files of the program folder and every korvane.ini key the program reads;
# and the page reads without a warning.
. "$(dirname "$0")/lib/common.sh"
kv_init "$1" docs
kv_need_tool man awk
SRC=$(cd "$(dirname "$0")/../.." && pwd)
PAGE=$SRC/docs/korvane.8
README=$SRC/README.md
HELP=$("$KV_BIN" --help)

# same <what> <list> <list>: two newline-separated lists hold the same items.
same() {
    local a b
    a=$(sort -u <<<"$2" | sed '/^$/d'); b=$(sort -u <<<"$3" | sed '/^$/d')
    if [ -n "$a" ] && [ "$a" = "$b" ]; then
        kv_pass "$1: $(tr '\n' ' ' <<<"$a")"
    else
        kv_fail "$1 differ:"; diff <(echo "$a") <(echo "$b") | sed -n 's/^[<>]/    &/p'
    fi
}

# page_entries <section>: the tags of the section's .TP entries, roff removed.
page_entries() {
    awk -v s=".SH $1" '$0 == s {on = 1; next} /^\.SH/ {on = 0}
        on && tp {print} {tp = on && $0 == ".TP"}' "$PAGE" |
        sed 's/\\-/-/g; s/^\.[BIR]*  *//; s/"//g'
}
# readme_section <heading>: the lines under a README heading.
readme_section() { awk -v h="## $1" '$0 == h {on = 1; next} /^## / {on = 0} on' "$README"; }
options_in() { grep -oE -- '--[a-z][a-z-]*' | sort -u; }

same "options (--help / page)" "$(options_in <<<"$HELP")" "$(page_entries OPTIONS | options_in)"
same "options (--help / README)" "$(options_in <<<"$HELP")" \
    "$(readme_section "Running it" | grep '^| `--' | cut -d'|' -f2 | options_in)"

signals() { grep -oE 'SIG[A-Z]+' | sort -u; }
same "signals (--help / page)" "$(signals <<<"$HELP")" "$(page_entries SIGNALS | signals)"
same "signals (--help / README)" "$(signals <<<"$HELP")" "$(readme_section "Running it" | signals)"

statuses_in_source=$(sed -n 's/.*constexpr int k[A-Za-z]* = \([0-9]*\);.*/\1/p' "$SRC/src/app/command_line.h")
same "exit statuses (program / --help)" "$statuses_in_source" \
    "$(sed -n '/^Exit status:/,$p' <<<"$HELP" | grep -oE '(: |; )[0-9]+ ' | grep -oE '[0-9]+')"
same "exit statuses (program / page)" "$statuses_in_source" "$(page_entries "EXIT STATUS")"
same "exit statuses (program / README)" "$statuses_in_source" \
    "$(readme_section "Running it" | sed -n 's/^| \([0-9]*\) |.*/\1/p')"

ini_keys=$(sed -n 's/.*key == "\([A-Z]*\)".*/\1/p' "$SRC/src/app/options_file.cpp")
same "korvane.ini keys (program / page)" "$ini_keys" \
    "$(page_entries CONFIGURATION | sed -n 's/^\([A-Za-z]*\):.*/\1/p' | tr a-z A-Z)"
same "korvane.ini keys (program / README)" "$ini_keys" \
    "$(readme_section "The program folder" | grep '^| `korvane.ini`' | grep -oE '`[A-Za-z]+:' |
        tr -d '`:' | grep -vx Key | tr a-z A-Z)"

# The rows of the table headed "| File |", up to its end.
readme_files() {
    readme_section "The program folder" | awk '/^\| File \|/ {on = 1; next} on && !/^\|/ {exit} on' |
        sed -n 's/^| `\([^`]*\)` |.*/\1/p'
}
same "program folder files (README / page)" "$(readme_files)" \
    "$(page_entries FILES | grep -v '^/')"

version=$(sed -n 's/^project(korvane VERSION \([0-9.]*\).*/\1/p' "$SRC/CMakeLists.txt")
kv_check "the page is the one of version $version" grep -q "^\.TH KORVANE 8 [0-9-]* \"Korvane $version\"" "$PAGE"
kv_check "the page reads without warnings" \
    bash -c '[ -z "$(LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -l "$1" 2>&1 >/dev/null)" ]' _ "$PAGE"

kv_finish

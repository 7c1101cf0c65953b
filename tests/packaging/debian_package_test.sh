#!/usr/bin/env bash
# The Debian package of a build tree as a user gets it: made by cpack (into a private
# directory), lintian clean (no error, no warning, on the -dbgsym package too), every manual
# page rendered by groff and man without a warning, and, where the package holds the tools,
# every verb and option mdstore and linxpeer print in their bash completion and their pages.
#   debian_package_test.sh BUILD_DIR CPACK
# Exit status 77 (skipped) when a tool it needs is missing.
set -uo pipefail
build=$1
cpack=$2

missing=""
for tool in lintian dpkg-deb dpkg-parsechangelog groff man gzip; do
    command -v "$tool" >/dev/null 2>&1 || missing="$missing $tool"
done
if grep -q '^HELP2MAN_EXECUTABLE:FILEPATH=.*NOTFOUND' "$build/CMakeCache.txt"; then
    missing="$missing help2man (the tree was built without manual pages)"
fi
if [[ -n $missing ]]; then
    echo "SKIPPED: not installed:$missing"
    exit 77
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

"$cpack" --config "$build/CPackConfig.cmake" -B "$work/out" >"$work/cpack.log" 2>&1 ||
    { cat "$work/cpack.log"; fail "cpack"; exit 1; }
packages=("$work"/out/*.deb "$work"/out/*.ddeb)
lintian --fail-on error,warning "${packages[@]}" >"$work/lintian.log" 2>&1 ||
    fail "lintian: $(grep -v '^running with root' "$work/lintian.log")"
dpkg-deb -x "$work"/out/*.deb "$work/root"
root=$work/root

# The changelog's entry is the package's version, in a form dpkg reads without a complaint.
package=$(dpkg-deb -f "$work"/out/*.deb Package)
zcat "$root/usr/share/doc/$package/changelog.Debian.gz" >"$work/changelog"
changelog=$(dpkg-parsechangelog -l "$work/changelog" -S Version 2>&1)
[[ $changelog == $(dpkg-deb -f "$work"/out/*.deb Version) ]] ||
    fail "the changelog says $changelog, the package $(dpkg-deb -f "$work"/out/*.deb Version)"

# Pages: each program has one, and groff and man render it without a word on standard error.
for program in "$root"/usr/bin/*; do
    page=$root/usr/share/man/man1/$(basename "$program").1.gz
    [[ -f $page ]] || { fail "no manual page for $(basename "$program")"; continue; }
    warnings=$(zcat "$page" | groff -ww -man -Tutf8 -z 2>&1;
        LC_ALL=C.UTF-8 MANWIDTH=80 man --warnings -E UTF-8 -l "$page" 2>&1 >/dev/null)
    [[ -z $warnings ]] || fail "$page renders with warnings: $warnings"
done
completions=$root/usr/share/bash-completion/completions
if [[ ! -x $root/usr/bin/mdstore ]]; then
    [[ $failures -eq 0 ]] && echo "OK: lintian clean, pages render (no tools in this package)"
    exit $((failures > 0))
fi

# The text of a page, unhyphenated and on long lines, so that every option is one word.
page_text() {
    zcat "$root/usr/share/man/man1/$1.1.gz" | groff -man -Tascii -rLL=2000n -rHY=0 -P-cbou
}
# candidates FUNCTION WORD...: what the completion offers for the last word.
candidates() {
    COMP_WORDS=("${@:2}")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    "$1" 2>/dev/null || true
    printf '%s\n' "${COMPREPLY[@]}"
}
# options_of: the options a help text names in its usage (the Usage: line and those aligned
# under it) and at the start of its described lines.
options_of() {
    awk '/^Usage:/ { usage = 1; print; next }
         usage && /^      / { print; next }
         { usage = 0 }
         /^ +-/ { print $1, $2 }' | grep -oE '(^|[][ ,|])--?[a-z][a-z-]*' | sed 's/^[][ ,|]//' |
        sort -u
}
# expect_all WHAT EXPECTED OFFERED: every line of EXPECTED is a line of OFFERED.
expect_all() {
    local missing
    missing=$(comm -23 <(sort -u <<<"$2") <(sort -u <<<"$3"))
    [[ -z $missing ]] || fail "$1 lacks: ${missing//$'\n'/ }"
}

mdstore=$root/usr/bin/mdstore
source "$completions/mdstore" || fail "the mdstore completion does not load"
source "$completions/linxpeer" || fail "the linxpeer completion does not load"
mdstore_page=$(page_text mdstore)
verbs=$("$mdstore" --help | sed -n '/^Verbs:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p')
[[ $(wc -l <<<"$verbs") -ge 10 ]] || fail "mdstore --help lists no verbs: $verbs"
expect_all "mdstore <TAB>" "$verbs"$'\n--help\n--version' "$(candidates _mdstore mdstore '')"
expect_all "the mdstore page" "$verbs" "$(grep -oE '^MDSTORE [A-Z-]+$' <<<"$mdstore_page" |
    cut -d' ' -f2 | tr '[:upper:]' '[:lower:]')"
for verb in $verbs; do
    options=$("$mdstore" "$verb" --help | options_of)
    expect_all "mdstore $verb -<TAB>" "$options" "$(candidates _mdstore mdstore "$verb" -)"
    expect_all "the mdstore page" "$options" "$(grep -oE -- '--?[a-z][a-z-]*' <<<"$mdstore_page")"
done

# Values: the formats export names, record kinds mdstore takes, prefixes that complete.
formats=$("$mdstore" export --help | grep -oE -- '--format [a-z|]+' | head -1 | cut -d' ' -f2)
expect_all "--format <TAB>" "$(tr '|' '\n' <<<"$formats")" \
    "$(candidates _mdstore mdstore export --format '')"
[[ $(candidates _mdstore mdstore export --format = g) == $'gpx\ngeojson' ]] ||
    fail "--format=g<TAB>: $(candidates _mdstore mdstore export --format = g)"
[[ $(candidates _mdstore mdstore ex) == export ]] || fail "mdstore ex<TAB>"
kinds=$(candidates _mdstore mdstore cat --kind '')
if ! grep -qx ReportGps <<<"$kinds" || ! grep -qx TimeAnchor <<<"$kinds"; then
    fail "--kind <TAB>: $kinds"
fi
for kind in $kinds; do
    # 2: the store cannot be read, after the options were taken; 1 would be a usage error.
    "$mdstore" cat --kind "$kind" "$work/none" 2>/dev/null
    [[ $? -eq 2 ]] || fail "mdstore cat refuses the completed kind $kind"
done
touch "$work/drive.scenario"
[[ $(candidates _linxpeer linxpeer "$work/drive.sc") == "$work/drive.scenario" ]] ||
    fail "linxpeer SCENARIO<TAB> offers no scenario file"
linxpeer_options=$("$root/usr/bin/linxpeer" --help | sed -n '/^Options:/,/^[^ ]/p' | options_of)
expect_all "linxpeer -<TAB>" "$linxpeer_options" "$(candidates _linxpeer linxpeer -)"
expect_all "the linxpeer page" "$linxpeer_options" \
    "$(page_text linxpeer | grep -oE -- '--?[a-z][a-z-]*')"

[[ $failures -eq 0 ]] && echo "OK: lintian clean, pages render, completions and pages hold" \
    "$(wc -w <<<"$verbs") verbs and their options"
exit $((failures > 0))

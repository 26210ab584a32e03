#!/usr/bin/env bash
# Every option that kfax --help names is in the manual page and in all completions, and bash's offers exactly
# the options of each command. The version is one everywhere. The page is looked through
# by mandoc, the completions by their shells, where these are installed.
set -euo pipefail
kfax=$1
tool=$(dirname "${BASH_SOURCE[0]}")/../tools/kfax
failures=0

complain() {
    echo "$*" >&2
    failures=$((failures + 1))
}

options_of() { # COMMAND...
    "$kfax" "$@" --help | sed -n '/^Options:/,$p' | grep -oE '^ +-[^ ]+' | tr -d ' ' | tr ',' '\n'
}

page=$(sed 's/\\-/-/g' "$tool/kfax.1")
for command in "" info verify load save; do
    # shellcheck disable=SC2086
    mapfile -t options < <(options_of $command)
    ((${#options[@]} > 1)) || complain "kfax $command --help names no options"
    for option in "${options[@]}"; do
        short=${option#-}
        grep -qE -- "(^|[ \"])${option}([ \"\\]|$)" <<<"$page" || complain "kfax.1 lacks $option"
        grep -qE -- "[{,'()\"]${option}[},)[]" "$tool/completions/_kfax" || complain "_kfax lacks $option"
        if [[ $option == --* ]]; then
            fish="-l ${option#--}"
        else
            fish="-s $short"
        fi
        grep -qE -- " $fish( |$)" "$tool/completions/kfax.fish" || complain "kfax.fish lacks $option"
    done

    # What bash offers for "kfax COMMAND -".
    offered=$(
        compopt() { :; }
        # shellcheck disable=SC1091
        source "$tool/completions/kfax.bash"
        COMP_WORDS=(kfax ${command:+"$command"} -)
        COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
        _kfax
        printf '%s\n' "${COMPREPLY[@]}" | sort -u
    )
    expected=$(printf '%s\n' "${options[@]}" | sort -u)
    [[ $offered == "$expected" ]] ||
        complain "kfax.bash and kfax $command: $(diff <(echo "$expected") <(echo "$offered") || true)"
done

version=$("$kfax" --version)
[[ $version =~ ^kfax\ [0-9]+\.[0-9]+\.[0-9]+$ && $version == "$("$kfax" -V)" ]] || complain "kfax --version: $version"
number=${version#kfax }
grep -q "^\.TH KFAX 1 .*\"kffax $number\"" "$tool/kfax.1" || complain "kfax.1 is not about $number"
[[ $(grep -m 1 '^## ' "$tool/../../CHANGELOG.md") == "## $number" ]] || complain "CHANGELOG.md lacks $number"
[[ $(head -n 1 "$tool/../../packaging/changelog") == "kffax ($number)"* ]] || complain "packaging/changelog lacks $number"

for status in 0 1 2 3; do
    grep -qx ".B $status" "$tool/kfax.1" || complain "kfax.1 lacks exit status $status"
done
if command -v mandoc >/dev/null; then
    mandoc -Tlint -Wwarning "$tool/kfax.1" || complain "mandoc finds fault with kfax.1"
fi
if command -v zsh >/dev/null; then
    zsh -n "$tool/completions/_kfax" || complain "zsh finds fault with _kfax"
fi
if command -v fish >/dev/null; then
    fish --no-execute "$tool/completions/kfax.fish" || complain "fish finds fault with kfax.fish"
fi
((failures == 0))

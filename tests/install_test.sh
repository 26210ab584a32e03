#!/usr/bin/env bash
# What a stranger does with an installed kffax: the files are where they belong, kfax runs from there, and the
# examples build outside the tree, each its own way, and read and write what kfax does.
#
# usage: install_test.sh BUILD [PREFIX]    with PREFIX, what is installed there instead of BUILD's own
set -euo pipefail
examples=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../examples")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

if (($# == 2)); then
    prefix=$2
else
    prefix=$scratch/installed
    cmake --install "$1" --prefix "$prefix" >"$scratch/log"
fi
cd "$scratch"
fail() {
    echo "install_test: $*" >&2
    exit 1
}

pc=$(find "$prefix"/lib -name kffax.pc)
libraries=$(dirname "$(dirname "$pc")")
for file in share/man/man1/kfax.1* share/bash-completion/completions/kfax share/zsh/vendor-completions/_kfax \
    share/fish/vendor_completions.d/kfax.fish; do
    compgen -G "$prefix/$file" >/dev/null || fail "$prefix/$file is missing"
done
[[ $(readlink "$libraries/libkffax.so") == libkffax.so.19 ]] || fail "libkffax.so does not name the soname"
[[ $(readlink "$libraries/libkffax.so.19") == libkffax.so.19.*.* ]] || fail "libkffax.so.19 has no version behind it"

# A page with something on it: 100 x 150 pixels, a border and a diagonal line, more than two strips of 64 rows.
{
    printf 'P1\n100 150\n'
    for ((y = 0; y < 150; ++y)); do
        for ((x = 0; x < 100; ++x)); do
            printf ' %d' $((x == 0 || y == 0 || x == 99 || y == 149 || x * 3 / 2 == y))
        done
        printf '\n'
    done
} | pamtopnm >page.pbm
kfax=$prefix/bin/kfax
"$kfax" save page.pbm page.g4 --format g4 --quiet
"$kfax" save page.pbm page.g3 --format g3 --quiet

# A program and its CMakeLists.txt, as they would lie in a directory of the stranger's.
build() {
    cp -r "$examples/$1" "$1"
    cmake -G Ninja -S "$1" -B "build-$1" -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" >log 2>&1 || { cat log; fail "$1 is not configured"; }
    cmake --build "build-$1" >log 2>&1 || { cat log; fail "$1 does not build"; }
}

build container
build-container/page_strips save page.pbm page.strips
build-container/page_strips load page.strips strips.pbm
cmp page.pbm strips.pbm
head -c 100 page.strips >cut.strips
if build-container/page_strips load cut.strips cut.pbm 2>log; then
    fail "page_strips loads a file cut short"
fi

build host
filter=$libraries/libkffax.so.19
build-host/fax_to_pbm "$filter" page.g4 g4.pbm 100 150
cmp page.pbm g4.pbm
build-host/fax_to_pbm "$filter" page.g3 g3.pbm
"$kfax" load page.g3 expected.pbm --quiet
cmp expected.pbm g3.pbm
head -c 60 page.g4 >cut.g4
build-host/fax_to_pbm "$filter" cut.g4 cut.pbm 100 150 2>log
grep -q 'damaged' log || fail "fax_to_pbm does not tell damage"

#!/usr/bin/env bash
# kfax where things go wrong around it: full disks, few descriptors, little memory, signals, another kfax on the same
# outputs, inputs that shrink, very many names. It never crashes or hangs, and never leaves an unfinished file.
#
# usage: kfax_siege_test.sh KFAX [ROUNDS]     more rounds look longer for what depends on timing
set -euo pipefail
kfax=$1
rounds=${2-10}
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
export TMPDIR=$scratch/tmp
mkdir tmp in

fail() {
    echo "$*" >&2
    exit 1
}

# Runs a command in a shell of its own, where limits are set; the status must be one of those given.
ends_with() { # STATUSES COMMAND
    local status=0
    timeout 120 bash -c "$2" >out.txt 2>said.txt || status=$?
    [[ " $1 " == *" $status "* ]] || fail "status $status, not $1: $2: $(tail -n 3 said.txt)"
    [[ -z $(find . -name '.kfax-*' -o -path './tmp/*') ]] || fail "a file is left: $2"
}

pbmmake -gray 1728 1100 >page.pbm
for i in {1..40}; do cp page.pbm "in/$i.pbm"; done
"$kfax" save page.pbm page.tif
"$kfax" save page.pbm fax.g3 --format g3
export kfax

# A full disk, and a limit of the file size.
ends_with 1 '$kfax load page.tif /dev/full --to png'
ends_with 1 '$kfax load page.tif - --to png >/dev/full'
ends_with 1 'ulimit -f 8; $kfax load --out-dir full --to pbm page.tif fax.g3'
grep -q "File too large" said.txt || fail "no reason for a file that is too large"
[[ -z $(ls full) ]] || fail "a part of a file is left"
pbmmake -white 1728 4000 >white.pbm # 500 bytes of data fit, and the PDF around them does not
ends_with 1 'ulimit -f 1; $kfax save white.pbm white.pdf'

# Few descriptors and little memory: some files may fail, each with a line; what is there is whole.
for limit in "-n 12" "-n 20" "-v 300000" "-v 150000"; do
    rm -rf few
    ends_with "0 1" "ulimit $limit; \$kfax save --out-dir few --jobs 8 in/*.pbm"
    for made in few/*.tif; do
        [[ ! -e $made ]] || cmp -s "$made" page.tif || fail "$made is not whole (ulimit $limit)"
    done
done
ends_with 0 '$kfax save --out-dir few --jobs 8 --skip-existing in/*.pbm'

# Very many names that are not there: a line for each, in order.
ends_with 1 'seq 100000 | $kfax info -'
[[ $(grep -c "No such file" said.txt) == 100000 ]] || fail "not every name has a line"

# Two runs on the same outputs, and signals while outputs are written.
for ((round = 0; round < rounds; ++round)); do
    rm -rf both
    ends_with 0 '$kfax save --out-dir both in/*.pbm & $kfax save --out-dir both in/*.pbm && wait $!'
    [[ $(ls both | wc -l) == 40 ]] || fail "outputs are missing after two runs at once"
    for made in both/*.tif; do cmp -s "$made" page.tif || fail "$made is not whole"; done
    rm -rf both
    ends_with "0 124 130 137 143" "timeout -s TERM 0.0$((round % 5))$((round % 7)) \$kfax save --out-dir both in/*.pbm"
    ends_with "0 124 130 137 143" \
        "timeout -s INT 0.0$((round % 3))$((round % 7)) \$kfax load --out-dir both --to pdf page.tif fax.g3"
done

# An input that shrinks and grows while it is read.
cp page.tif shrinking.tif
touch shrink
(while [[ -e shrink ]]; do
    truncate -s $((RANDOM % 600)) shrinking.tif
    cat page.tif >shrinking.tif
done 2>/dev/null) &
for ((round = 0; round < 3 * rounds; ++round)); do
    ends_with "0 1 3" '$kfax verify shrinking.tif'
    ends_with "0 1 3" '$kfax load shrinking.tif shrunk.pdf'
done
rm shrink
wait

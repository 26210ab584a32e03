#!/usr/bin/env bash
# scripts/convert-many on local workers: killed half-way and without warning, resumed, and then nothing is
# lost, half-written or done twice.
set -euo pipefail
export KFAX=$1
convert=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../scripts/convert-many")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"

fail() {
    echo "convert_many_test: $*" >&2
    exit 1
}

# 120 pages in two directories, some with awkward names, and a file that is no fax.
pages=120
mkdir -p in/a in/b
{
    printf 'P4\n2400 2400\n'
    for ((i = 0; i < 40; ++i)); do
        head -c 18000 "$KFAX"
    done
} >page.pbm
"$KFAX" save page.pbm page.tif
"$KFAX" load page.tif page.png
for ((i = 0; i < pages / 2; ++i)); do
    ln page.tif "in/a/$i.tif"
    ln page.tif "in/b/it's $i.tif"
done
head -c 3000 /dev/zero | tr '\0' x >in/none.txt

outputs() {
    find out -name '*.png' | sort
}

stop_session() { # every process of the session, at once
    local stat fields
    for stat in /proc/[0-9]*/stat; do
        # pid (name) state parent group session ...
        read -r fields <"$stat" 2>/dev/null || continue
        set -- "${fields%% *}" ${fields##*) }
        if [[ $5 == "$session" ]]; then
            kill -KILL "$1" 2>/dev/null || true
        fi
    done
}

setsid bash "$convert" -j 2 -n 7 in out 2>first.log &
session=$!
mkdir -p out
for ((i = 0; i < 3000; ++i)); do
    (($(outputs | wc -l) < 20)) || break
    sleep 0.01
done
stop_session
stop_session # what was started in between
wait "$session" 2>/dev/null || true
done_before=$(outputs | wc -l)
((done_before >= 20)) || fail "only $done_before outputs before the kill: $(cat first.log)"
((done_before < pages)) || fail "all was done before the kill"
outputs | tr '\n' '\0' | xargs -0 stat -c '%n %i %y' >before

status=0
bash "$convert" -j 2 -n 7 in out 2>second.log || status=$?
((status == 1)) || fail "exit code $status, expected 1 for the file that is no fax: $(cat second.log)"
grep -q 'none.txt: no fax stream' second.log || fail "nothing said of none.txt: $(cat second.log)"
(($(outputs | wc -l) == pages)) || fail "$(outputs | wc -l) outputs, expected $pages"
while read -r output; do
    cmp -s "$output" page.png || fail "$output: not the page"
done < <(outputs)
[[ -z $(find out -name '.kfax-*') ]] || fail "unfinished files are left"
outputs | tr '\n' '\0' | xargs -0 stat -c '%n %i %y' >after
[[ -z $(comm -23 before after) ]] || fail "done twice: $(comm -23 before after)"
# Batches that were under way when all was killed told nothing; the others told of each file once.
sort out/.convert-many/results | uniq -d | grep -q . && fail "told twice: $(sort out/.convert-many/results | uniq -d)"
(($(grep -c '"status":"good"' out/.convert-many/results) <= pages)) || fail "more good files than there are"
((done_before - $(grep -c '"status":"skipped"' out/.convert-many/results) >= 0)) || fail "skipped what was not done"

# Done is done; other options are another run, and one at a time.
bash "$convert" -j 2 -n 7 in out 2>/dev/null || true
outputs | tr '\n' '\0' | xargs -0 stat -c '%n %i %y' | cmp -s - after || fail "a finished run was done again"
rm in/none.txt
bash "$convert" -j 2 -n 50 in out --to pbm || fail "exit code $? for good files"
(($(find out -name '*.pbm' | wc -l) == pages)) || fail "the second kind of output is not complete"
(
    flock 9
    ! bash "$convert" in out 2>locked.log
) 9>out/.convert-many/lock || fail "two runs at once"
grep -q 'another run' locked.log || fail "no reason given: $(cat locked.log)"

# Completion of kfax(1) for bash: commands, their options, what these take, and files.

_kfax() {
    local cur prev command= word
    cur=${COMP_WORDS[COMP_CWORD]}
    prev=${COMP_WORDS[COMP_CWORD - 1]}
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
        info | verify | load | save)
            command=$word
            break
            ;;
        esac
    done

    case $prev in
    --format | --code)
        mapfile -t COMPREPLY < <(compgen -W "g3 g3-2d g4 g3-all2d header g3-noeol" -- "$cur")
        return
        ;;
    --to)
        mapfile -t COMPREPLY < <(compgen -W "raw tif pdf png pbm" -- "$cur")
        return
        ;;
    -d | --out-dir)
        mapfile -t COMPREPLY < <(compgen -d -- "$cur")
        return
        ;;
    -j | --jobs | --memory | --page | --password | --width | --height | --offset | --thumbnail | --dpi | --rows-per-strip | --tile | --threshold)
        COMPREPLY=()
        return
        ;;
    esac

    local options="-h --help"
    local run="-0 --null -j --jobs --memory --json -q --quiet -k --keep-going --fail-fast --password"
    local raw="--format --width --height --offset --reverse-bits"
    local output="--to --dpi --square --rows-per-strip --tile -d --out-dir --skip-existing --keep-tree --keep-ext"
    case $command in
    info) options+=" $run --page" ;;
    verify) options+=" $run $raw --page" ;;
    load) options+=" $run $raw $output --code --page --all-pages --mirror --invert --repair --batch --thumbnail" ;;
    save) options+=" $run $output --format --page --reverse-bits --align-eol --no-invert --threshold" ;;
    *)
        options+=" -V --version --filter"
        if [[ $cur != -* && $prev != --filter ]]; then
            mapfile -t COMPREPLY < <(compgen -W "info verify load save" -- "$cur")
            return
        fi
        ;;
    esac
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")
        compopt -o filenames 2>/dev/null
    fi
}

complete -F _kfax kfax

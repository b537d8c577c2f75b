# bash completion for kelvane

_kelvane() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local commands="formats detect info convert edit process draw batch algorithms plugins preset midi settings"
    local globals="--help --quiet --yes --no --progress --settings --set"
    local input="--as --raw-rate --raw-channels --raw-format --raw-big-endian --raw-unsigned --raw-offset"
    local command="" action="" word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ -z $command ]]; then
            [[ " $commands " == *" $word "* ]] && command=$word
        elif [[ $command == settings && -z $action ]]; then
            [[ " list get set reset pset " == *" $word "* ]] && action=$word
        elif [[ $command == preset && -z $action ]]; then
            [[ " show extract apply " == *" $word "* ]] && action=$word
        elif [[ $command == midi && -z $action ]]; then
            [[ " events edit " == *" $word "* ]] && action=$word
        fi
    done

    case $previous in
        --progress) COMPREPLY=($(compgen -W "auto none json" -- "$current")) && return ;;
        --do)
            local steps="auto-create delete-unused delete-duplicates merge-stereo split-stereo unroll-loops append-loop-tail replace-waves="
            [[ $command == process ]] && steps=$(kelvane algorithms 2>/dev/null | awk '!/^ / {print $1}')
            COMPREPLY=($(compgen -W "$steps" -- "$current")) && return ;;
        --channels) COMPREPLY=($(compgen -W "auto mono stereo" -- "$current")) && return ;;
        --name-mode) COMPREPLY=($(compgen -W "number base-name name source bank" -- "$current")) && return ;;
        --to | --as) COMPREPLY=($(compgen -W "$(kelvane formats 2>/dev/null | awk 'NR > 1 {print $2}' | sort -u)" -- "$current")) && return ;;
    esac

    local words=""
    case $command in
        "") words="$commands $globals --version" ;;
        formats) words="--import --export --json $globals" ;;
        detect) words="--json $globals" ;;
        info) words="--json --loudness --warnings $input $globals" ;;
        convert) words="--to --data --channels --bit-rate --item --name-mode --parameter-set --report --strict --sub-dirs --force $input $globals" ;;
        edit) words="--output --do --to --data --force $input $globals" ;;
        batch) words="--mode --to --output --do --effect --jobs --timeout --memory --existing --report --resume --shard --merge-reports --save-job --dry-run --no-sandbox --silence-threshold --separate-subdirs --overwrite-all --same-dir-as-source --keep-subdirs --path-levels --keep-tree --split-stereo --merge-stereo --normalize --trim-start --trim-end --resample --resample-rate --only-downsample --resample-quality --auto-merge-songs $input $globals" ;;
        process) words="--output --do --items --waves --range --to --data --force $input $globals" ;;
        draw) words="--output --waveform --spectrum --spectrogram --loop --waves --range --size --dark --force $input $globals" ;;
        algorithms) words="--audio --midi --instrument --json $globals" ;;
        plugins) words="--json $globals" ;;
        preset)
            words="show extract apply $globals"
            [[ $action == show ]] && words="--json $globals"
            [[ $action == extract ]] && words="--item --force $input $globals"
            [[ $action == apply ]] && words="--item --to --force $input $globals"
            ;;
        midi)
            words="events edit $globals"
            [[ $action == events ]] && words="--track --json --notation $input $globals"
            [[ $action == edit ]] && words="--output --track --insert --modify --delete --to --force $input $globals"
            ;;
        settings)
            words="list get set reset pset $globals"
            if [[ $action == get || $action == set || $action == reset ]]; then
                words="$(kelvane settings list 2>/dev/null | awk '{print $1}') $globals"
            fi
            ;;
    esac
    COMPREPLY=($(compgen -W "$words" -- "$current"))
    if [[ $command != settings && $command != formats && $current != -* ]]; then
        COMPREPLY+=($(compgen -f -- "$current"))
    fi
}
complete -o filenames -F _kelvane kelvane

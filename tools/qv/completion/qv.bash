# Completion of qv's commands and options in bash. Values and everything else that a command takes are files.

# The words that may stand behind a command, given as its words joined with '_'; empty for what is no command.
_qv_words() {
    local folder="--layout" range="--layout --from --to --last" link="--table --timeout"
    case $1 in
        qv) echo "cert format history json rights serial tag tls colour dump crc16 guid url annotate help --version" ;;
        qv_cert) echo "init show check" ;;
        qv_cert_init) echo "--authority --host --alias --type --organization --unit --uri --days" ;;
        qv_cert_show) echo " " ;;
        qv_cert_check) echo "--authority --host --alias --warn-days" ;;
        qv_format) echo "number time" ;;
        qv_format_number) echo " " ;;
        qv_format_time) echo "--zone --locale" ;;
        qv_history)
            echo "record import read stats plot files validate housekeep delete standby replicate compare export ddl"
            ;;
        qv_history_record) echo "$folder --every --for --keep --max-file --flush-every --replicate-to $link" ;;
        qv_history_import) echo "$folder --keep-going" ;;
        qv_history_read) echo "$range --tag --limit --sorted --zone --time-format" ;;
        qv_history_stats) echo "$range --tag --every" ;;
        qv_history_plot) echo "$range --tag --svg --width --height --ascii" ;;
        qv_history_files | qv_history_validate) echo "$folder" ;;
        qv_history_housekeep) echo "$folder --keep --max-file" ;;
        qv_history_delete) echo "$folder --yes" ;;
        qv_history_standby) echo "$folder --listen --quiet $link" ;;
        qv_history_replicate) echo "$folder --to --once --quiet $link" ;;
        qv_history_compare) echo "--layout" ;;
        qv_history_export) echo "$range --format --output" ;;
        qv_history_ddl) echo "--engine --layout --table" ;;
        qv_json) echo "format check eval print" ;;
        qv_json_format) echo "--compact --pretty" ;;
        qv_json_eval) echo "--lines" ;;
        qv_json_check | qv_json_print) echo " " ;;
        qv_rights) echo "check show explain init diff logon" ;;
        qv_rights_check | qv_rights_show | qv_rights_diff) echo " " ;;
        qv_rights_explain) echo "--zone" ;;
        qv_rights_init) echo "--guest" ;;
        qv_rights_logon) echo "--service" ;;
        qv_serial) echo "check ports talk" ;;
        qv_serial_check | qv_serial_ports) echo " " ;;
        qv_serial_talk) echo "--line-end --linger --raw --trace" ;;
        qv_tag) echo "match sort relative absolute rename" ;;
        qv_tag_match) echo "--case" ;;
        qv_tag_sort) echo "--reverse" ;;
        qv_tag_relative | qv_tag_absolute) echo " " ;;
        qv_tag_rename) echo "--base --new-base" ;;
        qv_tls) echo "connect" ;;
        qv_tls_connect) echo "--ca --name --pin --plain --insecure --timeout --linger --trace" ;;
        qv_colour | qv_url | qv_annotate) echo " " ;;
        qv_dump) echo "--base64 --back" ;;
        qv_crc16) echo "--initial" ;;
        qv_guid) echo "--count" ;;
        qv_help) echo "--man" ;;
    esac
}

_qv() {
    local current=${COMP_WORDS[COMP_CWORD]} command=qv word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* || -z $(_qv_words "${command}_$word") ]] || command+=_$word
    done
    # Options come up where a '-' asks for them; elsewhere they would stand in the way of files.
    COMPREPLY=()
    for word in $(_qv_words "$command") --json --csv --help; do
        [[ $word != "$current"* || ($word == -* && $current != -*) ]] || COMPREPLY+=("$word")
    done
}

complete -o default -F _qv qv

# bash completion for vellira-batch                        -*- shell-script -*-
#
# Completes the commands, the options of each, the files they take, the
# setting keys after --set (KEY=) and, after PAGEEXTRACT= and EXTRACT=, the
# exact mode texts. Commands and options are read from the program's own
# --help, keys and modes from "vellira-batch keys", once per shell and
# program, so the completion always follows the installed program.

# The program the command line names, as a path bash can run.
_vellira_batch_program() {
    local program=$1
    [[ $program == "~"* ]] && program=$HOME${program#"~"}
    type -P -- "$program" 2>/dev/null || { [[ -x $program ]] && printf '%s\n' "$program"; }
}

# Reads the program's --help (and each command's) and its keys listing into
# _vellira_batch_data; does nothing when it is already read for this program.
_vellira_batch_load() {
    local program=$1
    [[ ${_vellira_batch_data[program]-} == "$program" ]] && return 0
    _vellira_batch_data=([program]="$program")
    declare -ga _vellira_batch_keys=() _vellira_batch_split_modes=() _vellira_batch_naming_modes=()

    _vellira_batch_data[commands]=$(_vellira_batch_help_commands "$program")
    _vellira_batch_data[options]=$(_vellira_batch_help_options "$program")
    local command
    for command in ${_vellira_batch_data[commands]}; do
        _vellira_batch_data[options:$command]=$(_vellira_batch_help_options "$program" "$command")
    done

    # The listing: a line per key, its name in the first column followed by
    # its type; then a section per mode list, its heading naming the key
    # (PAGEEXTRACT=TEXT, EXTRACT=TEXT), each mode indented and in double quotes.
    local line section="" pattern_key='^([A-Z][A-Z0-9_]*)[[:space:]]+[a-z]' pattern_mode='^[[:space:]]+"([^"]+)"'
    while IFS= read -r line; do
        if [[ $line =~ ^[^[:space:]] ]]; then
            section=""
            if [[ $line =~ $pattern_key ]]; then
                _vellira_batch_keys+=("${BASH_REMATCH[1]}")
            elif [[ $line == *PAGEEXTRACT=* ]]; then
                section="split"
            elif [[ $line == *EXTRACT=* ]]; then
                section="naming"
            fi
        elif [[ -n $section && $line =~ $pattern_mode ]]; then
            if [[ $section == split ]]; then
                _vellira_batch_split_modes+=("${BASH_REMATCH[1]}")
            else
                _vellira_batch_naming_modes+=("${BASH_REMATCH[1]}")
            fi
        fi
    done < <("$program" keys 2>/dev/null)
}

# The lines of one section of a --help ("Options:", "Subcommands:"): the
# indented lines after its heading, up to the first blank or unindented one.
_vellira_batch_help_section() {
    local heading=$1 line listing=0
    while IFS= read -r line; do
        if ((listing)); then
            [[ $line == [[:space:]]*[^[:space:]]* ]] || break
            printf '%s\n' "$line"
        elif [[ $line == "$heading" ]]; then
            listing=1
        fi
    done < <("${@:2}" --help 2>/dev/null)
}

# The commands a --help lists.
_vellira_batch_help_commands() {
    local line pattern='^[[:space:]]+([a-z][-a-z0-9]*)([[:space:]]|$)'
    while IFS= read -r line; do
        [[ $line =~ $pattern ]] && printf '%s\n' "${BASH_REMATCH[1]}"
    done < <(_vellira_batch_help_section Subcommands: "$1")
}

# The options a --help lists ("-q,--quiet", "--params FILE ..."), one a line,
# each followed by " VALUE" when it takes one.
_vellira_batch_help_options() {
    local line names name value pattern='^[[:space:]]+(-[^[:space:]]+)( ([A-Z][^[:space:]]*))?'
    while IFS= read -r line; do
        [[ $line =~ $pattern ]] || continue
        names=${BASH_REMATCH[1]} value=${BASH_REMATCH[3]:+ VALUE}
        names=${names%%=*}
        for name in ${names//,/ }; do
            [[ $name == -* ]] && printf '%s%s\n' "$name" "$value"
        done
    done < <(_vellira_batch_help_section Options: "$@")
}

# Adds to COMPREPLY each of the texts (after the first argument) that begin
# with the first argument, quoted as `quoting` says: "escape" for a word
# outside quotes, "'" or '"' for a word inside quotes of that kind.
_vellira_batch_offer() {
    local quoting=$1 prefix=$2 text
    shift 2
    for text in "$@"; do
        [[ $text == "$prefix"* ]] || continue
        case $quoting in
            escape) printf -v text '%q' "$text" ;;
            "'") text=${text//"'"/"'\\''"} ;;
            '"') text=${text//\\/\\\\} text=${text//'"'/'\"'} text=${text//'$'/'\$'} text=${text//'`'/'\`'} ;;
        esac
        COMPREPLY+=("$text")
    done
}

# Files (with the given extension, any case) and folders.
_vellira_batch_files() {
    local cur=$1 extension=${2-} pattern=""
    compopt -o filenames 2>/dev/null || :
    if [[ -n $extension ]]; then
        local c
        for ((c = 0; c < ${#extension}; c++)); do
            local letter=${extension:c:1}
            pattern+="[${letter,}${letter^}]"
        done
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -d -- "$cur"; compgen -f -X "!*.$pattern" -- "$cur")
    else
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$cur")
    fi
}

# The value of a setting: the mode texts of PAGEEXTRACT and EXTRACT, folders
# and files for the settings that name them.
_vellira_batch_value() {
    local key=$1 value=$2 quoting=$3
    case $key in
        PAGEEXTRACT) _vellira_batch_offer "$quoting" "$value" "${_vellira_batch_split_modes[@]}" ;;
        EXTRACT) _vellira_batch_offer "$quoting" "$value" "${_vellira_batch_naming_modes[@]}" ;;
        OUTPUTDIR | REPORTOPTIONSOUTPUTFOLDER)
            if [[ $quoting == escape ]]; then
                compopt -o filenames 2>/dev/null || :
                mapfile -t COMPREPLY < <(compgen -d -- "$value")
            fi ;;
        FILENAME) [[ $quoting == escape ]] && _vellira_batch_files "$value" pdf ;;
        EMAILLOGFILE) [[ $quoting == escape ]] && _vellira_batch_files "$value" ;;
    esac
}

_vellira_batch() {
    local cur=$2 prev=$3 program
    COMPREPLY=()
    program=$(_vellira_batch_program "$1") || return 0
    _vellira_batch_load "$program"

    local word=${COMP_WORDS[COMP_CWORD]} before=""
    ((COMP_CWORD >= 2)) && before=${COMP_WORDS[COMP_CWORD - 2]}

    # The command: the first word after the program that is not an option.
    local command="" i
    for ((i = 1; i < COMP_CWORD; i++)); do
        if [[ ${COMP_WORDS[i]} != -* ]]; then
            command=${COMP_WORDS[i]}
            break
        fi
    done

    # A word holding "=" comes in pieces, "KEY", "=" and "VALUE", the piece at
    # the cursor being what is replaced; inside quotes ('KEY=VALUE) it comes
    # whole, and the whole of it is replaced.
    local key="" value="" option="" whole=0 quoting=escape
    if [[ $word == = ]]; then
        key=$prev option=$before
    elif [[ $cur == *=* ]]; then
        key=${cur%%=*} value=${cur#*=} option=$prev whole=1
        [[ $word == [\'\"]* ]] && quoting=${word:0:1}
    elif [[ $prev == = ]]; then
        key=$before value=$cur
        ((COMP_CWORD >= 3)) && option=${COMP_WORDS[COMP_CWORD - 3]}
    fi
    if [[ $key == -* ]]; then
        # --option=VALUE: the value as that option's.
        ((whole)) && return 0
        prev=$key cur=$value
    elif [[ -n $key ]]; then
        [[ $option == --set ]] || return 0
        [[ $quoting == escape ]] && value=${value//\\/}
        _vellira_batch_value "$key" "$value" "$quoting"
        if ((whole)); then
            local texts=() text
            for text in "${COMPREPLY[@]}"; do texts+=("$key=$text"); done
            COMPREPLY=("${texts[@]}")
        fi
        return 0
    fi

    # The value of an option.
    case $prev in
        --set)
            local names=()
            _vellira_batch_offer escape "$cur" "${_vellira_batch_keys[@]}"
            for word in "${COMPREPLY[@]}"; do names+=("$word="); done
            COMPREPLY=("${names[@]}")
            compopt -o nospace 2>/dev/null || :
            return 0 ;;
        --params) _vellira_batch_files "$cur" pcs; return 0 ;;
        --list) _vellira_batch_files "$cur" lst; return 0 ;;
        --trace) _vellira_batch_files "$cur"; return 0 ;;
        --save) _vellira_batch_files "$cur" pcs; return 0 ;;
        -o | --output) _vellira_batch_files "$cur" json; return 0 ;;
        -*)
            # Any other option that takes a value (a number): nothing to offer.
            local options=${_vellira_batch_data[options:$command]-${_vellira_batch_data[options]}}
            [[ $'\n'$options$'\n' == *$'\n'"$prev VALUE"$'\n'* ]] && return 0 ;;
    esac

    if [[ -z $command ]]; then
        if [[ $cur == -* ]]; then
            mapfile -t COMPREPLY < <(compgen -W "${_vellira_batch_data[options]// VALUE/}" -- "$cur")
        else
            mapfile -t COMPREPLY < <(compgen -W "${_vellira_batch_data[commands]}" -- "$cur")
        fi
        return 0
    fi
    if [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "${_vellira_batch_data[options:$command]// VALUE/}" -- "$cur")
        return 0
    fi
    case $command in
        split | show | positions | plan) _vellira_batch_files "$cur" pdf ;;
        apply) _vellira_batch_files "$cur" json ;;
        watch)
            # The inboxes: folders.
            compopt -o filenames 2>/dev/null || :
            mapfile -t COMPREPLY < <(compgen -d -- "$cur") ;;
        keys) _vellira_batch_offer escape "$cur" "${_vellira_batch_keys[@]}" ;;
    esac
    return 0
}

declare -gA _vellira_batch_data=()
complete -F _vellira_batch vellira-batch

# Completion of zotuning for fish. Commands and options come from the tool's own help, names from the project.

# The words before the cursor that name commands.
function __zotuning_command
    set -l names (__zotuning_commands zotuning)
    set -l command
    for word in (commandline -opc)[2..-1]
        if contains -- $word (string split -f 1 \t -- $names)
            set -a command $word
            set names (__zotuning_commands zotuning $command)
        end
    end
    string join \n -- $command
end

function __zotuning_commands
    $argv --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\)  *\(.*\)/\1\t\2/p'
end

function __zotuning_project
    set -l words (commandline -opc)
    set -l at (contains -i -- -C $words)
    and string join \n -- -C $words[(math $at + 1)]
end

function __zotuning_first_column
    zotuning (__zotuning_project) $argv 2>/dev/null | sed '1d; s/ .*//'
end

# LABEL=VALUE; of labels without names LABEL=.
function __zotuning_labels
    zotuning (__zotuning_project) labels 2>/dev/null |
        awk 'function end() { if (label != "" && !named) print label }
             /^[^ ]/ { end(); label = $1; sub(/:$/, "=", label); named = 0; next }
             { print label $1; named = 1 }
             END { end() }'
end

function __zotuning_words
    set -l command (__zotuning_command)
    set -l previous (commandline -opc)[-1]
    set -l current (commandline -ct)
    switch $previous
        case -C --proto --into -o --out
            __fish_complete_directories $current
            return
        case --sensor
            __zotuning_first_column sensors
            return
        case --of
            __zotuning_first_column sensors
            echo project
            return
        case --against
            echo default
            __zotuning_first_column sensors
            return
        case --module
            __zotuning_first_column modules
            return
        case --select --ignore --allow --explain
            zotuning check --explain all | sed -n 's/^## //p'
            test $previous = --explain; and echo all
            return
        case '-*'
            set -l values (zotuning $command --help 2>/dev/null | sed -n "s/^  [^ ]*$previous [^ ]*:{\([^}]*\)}.*/\1/p")
            if test -n "$values"
                string split , -- $values
                return
            end
    end
    if string match -q -- '-*' $current
        zotuning $command --help 2>/dev/null | sed -n 's/^  \(-[^ ]*\).*/\1/p' | string split , | string replace -r ':.*' ''
        printf '%s\n' -C --json -v
        return
    end
    set -l options (string match -- '-*' (commandline -opc))
    if test "$options[-1]" = --where
        __zotuning_labels
        printf 'sensor=%s\n' default (__zotuning_first_column sensors)
        return
    end
    if test "$command" = 'sensors add' -a "$previous" = --from
        __zotuning_first_column sensors
        return
    end
    set -l names (__zotuning_commands zotuning $command)
    if test (count $names) -gt 0
        string join \n -- $names
        return
    end
    switch "$command"
        case template 'schema json'
            __zotuning_first_column modules
        case help
            __zotuning_commands zotuning
        case labels
            zotuning (__zotuning_project) labels 2>/dev/null | sed -n 's/^\([^ ]*\):.*/\1/p'
        case diff
            echo default
            __zotuning_first_column sensors
            __fish_complete_path $current
        case tree report 'sensors remove' 'sensors rename'
            __zotuning_first_column sensors
        case 'version set'
            __zotuning_first_column version list
        case new which
            if test "$previous" = which
                __zotuning_first_column sensors
            else
                __zotuning_labels
            end
        case '*'
            __fish_complete_path $current
    end
end

complete -c zotuning -f -a '(__zotuning_words)'

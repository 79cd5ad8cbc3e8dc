#include "Completion.h"

namespace
{

std::string Joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const auto& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// The script before and after the command's words.
constexpr const char* kHead = R"bash(# Completion of quendra's commands for bash:  source <(quendra completion bash)

# The items of the server's folder that a path has come to.
_quendra_items() {
    local folder=${1%/*}/ kind name
    while read -r kind name; do
        name=$folder$name
        [ "$kind" = true ] && name+=/
        [[ $name == "$1"* ]] && COMPREPLY+=("$name")
    done < <("${COMP_WORDS[0]}" --json ls "$folder" 2>/dev/null </dev/null |
        sed 's/^.*"items":\[//; s/},{/\n/g' | sed -n 's/.*"directory":\([a-z]*\),.*"name":"\([^"\\]*\)".*/\1 \2/p')
    # Quoted as needed; behind a folder no space.
    compopt -o filenames 2>/dev/null
    [[ ${COMPREPLY[*]} == */ ]] && compopt -o nospace 2>/dev/null
}

_quendra() {
    local current=${COMP_WORDS[COMP_CWORD]} command='' options='' index arguments=0 IFS=$' \t\n'
    COMPREPLY=()
    for ((index = 1; index < COMP_CWORD; ++index)); do
        if [ -n "$command" ]; then
            [[ ${COMP_WORDS[index]} == -* ]] || arguments=$((arguments + 1))
        elif [[ " $_quendra_commands " == *" ${COMP_WORDS[index]} "* ]]; then
            command=${COMP_WORDS[index]}
        fi
    done
    case $command in
)bash";

constexpr const char* kTail = R"bash(    esac
    if [[ $current == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options $_quendra_options" -- "$current")
    elif [ -z "$command" ]; then
        mapfile -t COMPREPLY < <(compgen -W "$_quendra_commands" -- "$current")
    elif [ "$command" = completion ]; then
        mapfile -t COMPREPLY < <(compgen -W bash -- "$current")
    elif [[ $current == /* && $command$arguments != put0 && $command$arguments != get1 && $command != audit ]]; then
        _quendra_items "$current"
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        compopt -o filenames 2>/dev/null
    fi
}
complete -F _quendra quendra
)bash";

} // namespace

std::string BashCompletion(const std::vector<CommandWords>& commands)
{
    std::vector<std::string> names;
    std::string common;
    std::string cases;
    for (const auto& [command, options] : commands)
    {
        if (command.empty())
            common = Joined(options);
        else
            names.push_back(command);
        if (!command.empty() && !options.empty())
            cases += "    " + command + ") options='" + Joined(options) + "' ;;\n";
    }
    return kHead + cases + kTail + "_quendra_commands='" + Joined(names) + "'\n_quendra_options='" + common + "'\n";
}

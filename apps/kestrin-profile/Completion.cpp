#include "Completion.hpp"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

#include <fmt/format.h>

#include "CurlCommand.hpp"
#include "Text.hpp"

namespace KestrinProfileCLI {

namespace {

using Texts = std::vector<std::string>;

/// What the scripts know of the command line. A path is the command so far, each word after a
/// blank: " history add".
struct Words {
    explicit Words(const CommandEntry& program)
        : commands(flattened(program)), common(program.options) {
        for (const CommandEntry* const command : commands)
            for (const auto& option : command->options)
                addValueNames(option);
    }

    [[nodiscard]] static std::string pathOf(const CommandEntry& command) {
        return command.path.empty() ? "" : " " + command.path;
    }

    /// The options that may stand at a command: its own, and the program's, which may stand
    /// anywhere.
    [[nodiscard]] std::vector<OptionEntry> optionsAt(const CommandEntry& command) const {
        auto options = command.options;
        if (!command.path.empty()) options.insert(options.end(), common.begin(), common.end());
        options.push_back({{"--help"}, {}, false, "Print help"});
        return options;
    }

    /// The paths of all commands, each as a pattern that a shell's `case` takes.
    [[nodiscard]] Texts quotedPaths() const {
        Texts paths;
        for (const CommandEntry* const command : commands)
            if (!command->path.empty()) paths.push_back(shellQuoted(pathOf(*command)));
        return paths;
    }

    /// The paths of the commands whose arguments are profiles, in the same way.
    [[nodiscard]] Texts quotedPathsOfProfiles() const {
        Texts paths;
        for (const CommandEntry* const command : commands)
            if (takesProfiles(*command)) paths.push_back(shellQuoted(pathOf(*command)));
        return paths;
    }

    [[nodiscard]] static bool takesProfiles(const CommandEntry& command) {
        return std::ranges::find(command.arguments, profile, &ArgumentEntry::name) !=
               command.arguments.end();
    }

    [[nodiscard]] Texts valueNames() const {
        Texts names = fileNames;
        for (const auto& more : {profileNames, otherNames})
            names.insert(names.end(), more.begin(), more.end());
        return names;
    }

    static constexpr const char* profile = "PROFILE";

    std::vector<const CommandEntry*> commands;
    std::vector<OptionEntry> common;
    Texts fileNames;     ///< the options whose value is the name of a file
    Texts profileNames;  ///< those whose value is a profile
    Texts otherNames;    ///< the options with another value

  private:
    void addValueNames(const OptionEntry& option) {
        if (!option.needsValue) return;
        auto& names = option.value == "FILE"    ? fileNames
                      : option.value == profile ? profileNames
                                                : otherNames;
        for (const auto& name : option.names)
            if (std::ranges::find(names, name) == names.end()) names.push_back(name);
    }
};

constexpr const char* bashScript = R"(# Completion of kestrin-profile in bash.
_kestrin_profile_names() {
    local name
    while IFS= read -r name; do
        [[ $name == "$current"* ]] || continue
        printf -v name %q "$name"
        COMPREPLY+=("$prefix$name")
    done < <(kestrin-profile ${config:+--config "$config"} completion profiles 2>/dev/null)
}
_kestrin_profile() {
    local current= previous= typed= word words= prefix= config= index
    local -a line=()
    COMPREPLY=()
    # bash splits --name=value if = is one of its word breaks.
    for word in "${COMP_WORDS[@]:0:COMP_CWORD+1}"; do
        if [[ $current == --*= || $current == --* && $word == = ]]; then
            current+=$word
            line[${#line[@]}-1]=$current
        else
            current=$word
            line+=("$current")
        fi
    done
    for word in "${line[@]:1:${#line[@]}-2}"; do
        case $previous in
            --config) config=$word previous=; continue ;;
            @VALUES@) previous=; continue ;;
        esac
        [[ $word == --config=* ]] && config=${word#*=}
        previous=$word
        case "$typed $word" in
            @PATHS@) typed="$typed $word" ;;
        esac
    done
    if [[ $current == --*=* ]]; then
        previous=${current%%=*}
        [[ $COMP_WORDBREAKS == *=* ]] || prefix=$previous=
        current=${current#*=}
        case $previous in
            @FILES@ | @PROFILES@) ;;
            *) return ;;
        esac
    fi
    case $previous in
        @FILES@)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -P "$prefix" -- "$current")
            return ;;
        @PROFILES@) _kestrin_profile_names; return ;;
        @OTHERS@) return ;;
    esac
    case $typed in
@WORDS@    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
    [[ $current == -* ]] && return
    case $typed in
        @PROFILE_PATHS@) _kestrin_profile_names ;;
    esac
}
complete -F _kestrin_profile kestrin-profile
)";

constexpr const char* zshScript = R"zsh(#compdef kestrin-profile
# Completion of kestrin-profile in zsh.
_kestrin_profile_names() {
    local -a names
    names=(${(f)"$(kestrin-profile ${config:+--config} ${config:+$config} completion profiles 2>/dev/null)"})
    compadd -- $names
}
_kestrin_profile() {
    local typed= previous= config= word
    local -a commands options
    local -i index
    for ((index = 2; index < CURRENT; index++)); do
        word=$words[index]
        case $previous in
            (--config) config=$word previous=; continue ;;
            (@VALUES@) previous=; continue ;;
        esac
        [[ $word == --config=* ]] && config=${word#*=}
        previous=$word
        case "$typed $word" in
            (@PATHS@) typed="$typed $word" ;;
        esac
    done
    if [[ $PREFIX == --*=* ]]; then
        previous=${PREFIX%%=*}
        compset -P 1 '*='
        case $previous in
            (@FILES@ | @PROFILES@) ;;
            (*) return ;;
        esac
    fi
    case $previous in
        (@FILES@) _files; return ;;
        (@PROFILES@) _kestrin_profile_names; return ;;
        (@OTHERS@) return ;;
    esac
    case $typed in
@WORDS@    esac
    _describe command commands
    _describe -o option options
    case $typed in
        (@PROFILE_PATHS@) _kestrin_profile_names ;;
    esac
}
if [[ $funcstack[1] == _kestrin-profile ]]; then
    _kestrin_profile "$@"
else
    compdef _kestrin_profile kestrin-profile
fi
)zsh";

constexpr const char* fishScript = R"(# Completion of kestrin-profile in fish.
function __kestrin_profile_at
    set -l typed ''
    set -l previous ''
    for word in (commandline -opc)[2..-1]
        switch "$previous"
            case @VALUES@
                set previous ''
                continue
        end
        set previous $word
        switch "$typed $word"
            case @PATHS@
                set typed "$typed $word"
        end
    end
    test "$typed" = "$argv[1]"
end
function __kestrin_profile_names
    set -l config
    set -l previous ''
    for word in (commandline -opc)[2..-1]
        test "$previous" = --config; and set config --config $word
        string match -q -- '--config=*' $word; and set config $word
        set previous $word
    end
    kestrin-profile $config completion profiles 2>/dev/null
end
complete -c kestrin-profile -f
@WORDS@)";

std::string bashWords(const Words& words) {
    std::string lines;
    for (const CommandEntry* const command : words.commands) {
        Texts all;
        for (const auto& below : command->commands)
            all.push_back(below.name);
        for (const auto& option : words.optionsAt(*command))
            all.insert(all.end(), option.names.begin(), option.names.end());
        lines += fmt::format("        {}) words='{}' ;;\n", shellQuoted(Words::pathOf(*command)),
                             joined(all, " "));
    }
    return lines;
}

std::string zshWords(const Words& words) {
    std::string lines;
    for (const CommandEntry* const command : words.commands) {
        Texts below;
        Texts options;
        for (const auto& each : command->commands)
            below.push_back(shellQuoted(each.name + ":" + each.description));
        for (const auto& option : words.optionsAt(*command))
            for (const auto& name : option.names)
                options.push_back(shellQuoted(name + ":" + option.description));
        lines += fmt::format("        ({}) commands=({}) options=({}) ;;\n",
                             shellQuoted(Words::pathOf(*command)), joined(below, " "),
                             joined(options, " "));
    }
    return lines;
}

std::string fishQuoted(std::string text) {
    return "'" + replaced(replaced(std::move(text), "\\", "\\\\"), "'", "\\'") + "'";
}

constexpr const char* fishProfiles = " -a '(__kestrin_profile_names)'";

std::string fishOption(const OptionEntry& option) {
    std::string words;
    for (const auto& name : option.names)
        words += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    if (option.needsValue) words += option.value == "FILE" ? " -r -F" : " -x";
    if (option.value == Words::profile) words += fishProfiles;
    return words + " -d " + fishQuoted(option.description);
}

std::string fishWords(const Words& words) {
    std::string lines;
    for (const CommandEntry* const command : words.commands) {
        const std::string begin =
            fmt::format("complete -c kestrin-profile -n {}",
                        fishQuoted("__kestrin_profile_at " + fishQuoted(Words::pathOf(*command))));
        for (const auto& below : command->commands)
            lines +=
                fmt::format("{} -a {} -d {}\n", begin, below.name, fishQuoted(below.description));
        if (Words::takesProfiles(*command)) lines += begin + fishProfiles + "\n";
        for (const auto& option : words.optionsAt(*command))
            lines += begin + fishOption(option) + "\n";
    }
    return lines;
}

/// A script with its gaps filled.
std::string script(std::string text, const Words& words, std::string_view alternatives,
                   const std::string& lines) {
    for (const auto& [gap, filling] :
         {std::pair("@VALUES@", joined(words.valueNames(), alternatives)),
          {"@PATHS@", joined(words.quotedPaths(), alternatives)},
          {"@FILES@", joined(words.fileNames, alternatives)},
          {"@PROFILES@", joined(words.profileNames, alternatives)},
          {"@PROFILE_PATHS@", joined(words.quotedPathsOfProfiles(), alternatives)},
          {"@OTHERS@", joined(words.otherNames, alternatives)},
          {"@WORDS@", lines}})
        text = replaced(std::move(text), gap, filling);
    return text;
}

}  // namespace

std::string bashCompletion(const CommandEntry& program) {
    const Words words(program);
    return script(bashScript, words, " | ", bashWords(words));
}

std::string zshCompletion(const CommandEntry& program) {
    const Words words(program);
    return script(zshScript, words, " | ", zshWords(words));
}

std::string fishCompletion(const CommandEntry& program) {
    const Words words(program);
    return script(fishScript, words, " ", fishWords(words));
}

}  // namespace KestrinProfileCLI

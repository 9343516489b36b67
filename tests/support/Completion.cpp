#include "support/Completion.h"

#include <algorithm>
#include <vector>

namespace Corvane {
namespace {

enum class Value { None, Directory, File, Other };

struct Option {
    std::vector<std::string> names; // with their dashes
    std::string description;
    Value value = Value::None;
};

struct Subcommand {
    std::string path; // names with blanks between them; "" for the command itself
    std::string description;
    std::vector<Option> options;
};

constexpr const char *kHead =
    "# Made from the options that corvane declares; CompletionTest says how.\n";

std::string firstClause(const std::string &text) {
    return text.substr(0, std::min({text.find(';'), text.find(". "), text.find(':')}));
}

Value valueOf(const CLI::Option &option) {
    if (option.get_items_expected_max() == 0) {
        return Value::None;
    }
    const std::string type = option.get_type_name();
    if (type == "DIR") {
        return Value::Directory;
    }
    const bool isFile = type == "FILE" || type == "FILE.score" || type == "RESULT" ||
                        type == "SOCKET" || type == "PATH";
    return isFile ? Value::File : Value::Other;
}

// Groups of options are subcommands without a name.
void addOptions(CLI::App &app, std::vector<Option> &options) {
    for (const CLI::Option *option : app.get_options()) {
        Option each;
        for (const std::string &name : option->get_snames()) {
            each.names.push_back("-" + name);
        }
        for (const std::string &name : option->get_lnames()) {
            each.names.push_back("--" + name);
        }
        // Groups have the option for help once more.
        const bool isKnown =
            std::any_of(options.begin(), options.end(),
                        [&each](const Option &other) { return other.names == each.names; });
        if (!each.names.empty() && !isKnown) {
            each.description = firstClause(option->get_description());
            each.value = valueOf(*option);
            options.push_back(std::move(each));
        }
    }
    for (CLI::App *group : app.get_subcommands([](CLI::App *) { return true; })) {
        if (group->get_name().empty()) {
            addOptions(*group, options);
        }
    }
}

// The command and all below it, those above others first.
class Subcommands {
public:
    explicit Subcommands(CLI::App &command) { add(command, ""); }

    const std::vector<Subcommand> &all() const { return all_; }

    std::vector<const Subcommand *> below(const std::string &path) const {
        std::vector<const Subcommand *> found;
        for (const Subcommand &each : all_) {
            const std::size_t blank = each.path.rfind(' ');
            const std::string above = blank == std::string::npos ? "" : each.path.substr(0, blank);
            if (!each.path.empty() && above == path) {
                found.push_back(&each);
            }
        }
        return found;
    }

private:
    void add(CLI::App &app, const std::string &path) {
        Subcommand subcommand;
        subcommand.path = path;
        subcommand.description = firstClause(app.get_description());
        addOptions(app, subcommand.options);
        all_.push_back(std::move(subcommand));
        for (CLI::App *each : app.get_subcommands([](CLI::App *) { return true; })) {
            if (!each->get_name().empty()) {
                add(*each, path.empty() ? each->get_name() : path + ' ' + each->get_name());
            }
        }
    }

    std::vector<Subcommand> all_;
};

std::string lastName(const Subcommand &subcommand) {
    return subcommand.path.substr(subcommand.path.rfind(' ') + 1);
}

std::string joined(const std::vector<std::string> &words, const std::string &between) {
    std::string text;
    for (const std::string &word : words) {
        text += (text.empty() ? "" : between) + word;
    }
    return text;
}

std::vector<std::string> namesOf(const Subcommand &subcommand, Value value) {
    std::vector<std::string> names;
    for (const Option &option : subcommand.options) {
        if (option.value == value) {
            names.insert(names.end(), option.names.begin(), option.names.end());
        }
    }
    return names;
}

// The paths that a word leads to, as a pattern of both shells.
std::string pathsPattern(const Subcommands &subcommands) {
    std::vector<std::string> paths;
    for (const Subcommand &each : subcommands.all()) {
        if (!each.path.empty()) {
            paths.push_back('"' + each.path + '"');
        }
    }
    return joined(paths, " | ");
}

std::string bash(const Subcommands &subcommands) {
    std::string text = kHead;
    text += "_corvane() {\n"
            "    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]}\n"
            "    local path= word options= subcommands= directories= files= others=\n"
            "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
            "        case \"${path:+$path }$word\" in\n        " +
            pathsPattern(subcommands) +
            ") path=${path:+$path }$word ;;\n        esac\n    done\n    case $path in\n";
    for (const Subcommand &each : subcommands.all()) {
        std::vector<std::string> all;
        for (const Option &option : each.options) {
            all.insert(all.end(), option.names.begin(), option.names.end());
        }
        std::vector<std::string> names;
        for (const Subcommand *below : subcommands.below(each.path)) {
            names.push_back(lastName(*below));
        }
        text += "    \"" + each.path + "\")\n        options='" + joined(all, " ") + "'\n";
        text += "        subcommands='" + joined(names, " ") + "'\n";
        text += "        directories=' " + joined(namesOf(each, Value::Directory), " ") + " '\n";
        text += "        files=' " + joined(namesOf(each, Value::File), " ") + " '\n";
        text += "        others=' " + joined(namesOf(each, Value::Other), " ") + " '\n        ;;\n";
    }
    text += "    esac\n"
            "    COMPREPLY=()\n"
            "    if [[ $directories == *\" $prev \"* ]]; then\n"
            "        compopt -o filenames 2>/dev/null\n"
            "        mapfile -t COMPREPLY < <(compgen -d -- \"$cur\")\n"
            "    elif [[ $others == *\" $prev \"* ]]; then\n"
            "        return\n"
            "    elif [[ $cur == -* && $files != *\" $prev \"* ]]; then\n"
            "        mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$cur\")\n"
            "    elif [[ -n $subcommands && $files != *\" $prev \"* ]]; then\n"
            "        mapfile -t COMPREPLY < <(compgen -W \"$subcommands\" -- \"$cur\")\n"
            "    else\n"
            "        compopt -o filenames 2>/dev/null\n"
            "        mapfile -t COMPREPLY < <(compgen -f -- \"$cur\")\n"
            "    fi\n"
            "}\n"
            "complete -F _corvane corvane\n";
    return text;
}

// For words in single quotes, in which a colon ends the name.
std::string zshWord(const std::string &text) {
    std::string word;
    for (const char each : text) {
        word += each == '\'' ? std::string("'\\''") : std::string(each == ':' ? "\\" : "") + each;
    }
    return word;
}

std::string zsh(const Subcommands &subcommands) {
    std::string text = "#compdef corvane\n";
    text += kHead;
    text += "_corvane() {\n"
            "    local at= word prev=${words[CURRENT-1]}\n"
            "    local -a options subcommands directories files others\n"
            "    for word in \"${(@)words[2,CURRENT-1]}\"; do\n"
            "        case \"${at:+$at }$word\" in\n        (" +
            pathsPattern(subcommands) +
            ") at=\"${at:+$at }$word\" ;;\n        esac\n    done\n    case $at in\n";
    for (const Subcommand &each : subcommands.all()) {
        text += "    (\"" + each.path + "\")\n        options=(\n";
        for (const Option &option : each.options) {
            for (const std::string &name : option.names) {
                text += "            '" + name + ':' + zshWord(option.description) + "'\n";
            }
        }
        text += "        )\n        subcommands=(\n";
        for (const Subcommand *below : subcommands.below(each.path)) {
            text += "            '" + lastName(*below) + ':' + zshWord(below->description) + "'\n";
        }
        text += "        )\n        directories=(" + joined(namesOf(each, Value::Directory), " ") +
                ")\n        files=(" + joined(namesOf(each, Value::File), " ") +
                ")\n        others=(" + joined(namesOf(each, Value::Other), " ") +
                ")\n        ;;\n";
    }
    text += "    esac\n"
            "    if (( ${directories[(Ie)$prev]} )); then\n"
            "        _files -/\n"
            "    elif (( ${files[(Ie)$prev]} )); then\n"
            "        _files\n"
            "    elif (( ${others[(Ie)$prev]} )); then\n"
            "        _message 'a value'\n"
            "    elif [[ $PREFIX == -* ]]; then\n"
            "        _describe -o option options\n"
            "    elif (( ${#subcommands} )); then\n"
            "        _describe subcommand subcommands\n"
            "    else\n"
            "        _files\n"
            "    fi\n"
            "}\n"
            "if [ \"$funcstack[1]\" = _corvane ]; then\n"
            "    _corvane \"$@\"\n"
            "else\n"
            "    compdef _corvane corvane\n"
            "fi\n";
    return text;
}

std::string fishWord(const std::string &text) {
    std::string word;
    for (const char each : text) {
        word += each == '\'' || each == '\\' ? std::string("\\") + each : std::string(1, each);
    }
    return word;
}

std::string fish(const Subcommands &subcommands) {
    std::vector<std::string> paths;
    for (const Subcommand &each : subcommands.all()) {
        if (!each.path.empty()) {
            paths.push_back('\'' + each.path + '\'');
        }
    }
    std::string text = kHead;
    text += "function __corvane_at\n"
            "    set -l at ''\n"
            "    for word in (commandline -opc)[2..-1]\n"
            "        set -l next (string trim \"$at $word\")\n"
            "        if contains -- $next " +
            joined(paths, " ") +
            "\n            set at $next\n        end\n    end\n"
            "    test \"$at\" = \"$argv[1]\"\nend\n";
    for (const Subcommand &each : subcommands.all()) {
        const std::string start = "complete -c corvane -n '__corvane_at \"" + each.path + "\"' ";
        for (const Subcommand *below : subcommands.below(each.path)) {
            text += start + "-f -a " + lastName(*below) + " -d '" + fishWord(below->description) +
                    "'\n";
        }
        for (const Option &option : each.options) {
            text += start;
            for (const std::string &name : option.names) {
                text += name.rfind("--", 0) == 0 ? "-l " + name.substr(2) + ' '
                                                 : "-s " + name.substr(1) + ' ';
            }
            text += option.value == Value::Directory ? "-x -a '(__fish_complete_directories)' "
                    : option.value == Value::File    ? "-r -F "
                    : option.value == Value::Other   ? "-x "
                                                     : "";
            text += "-d '" + fishWord(option.description) + "'\n";
        }
    }
    return text;
}

} // namespace

std::string completionOf(CLI::App &command, Shell shell) {
    const Subcommands subcommands(command);
    switch (shell) {
    case Shell::Bash:
        return bash(subcommands);
    case Shell::Zsh:
        return zsh(subcommands);
    default:
        return fish(subcommands);
    }
}

} // namespace Corvane

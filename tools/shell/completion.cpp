// SPDX-License-Identifier: BSD-2-Clause

#include "tools/shell/completion.h"

#include <algorithm>
#include <vector>

namespace aiplc::tools {
namespace {

struct Word {
    std::string text;   // "--loss" or "-o"
    std::string about;  // first line of its help
    bool takesValue = false;
};

struct Command {
    std::string name;
    std::string about;
    std::vector<Word> words;
};

std::string FirstLine(const std::string &text) {
    return text.substr(0, text.find('\n'));
}

// In single quotes, for all three shells.
std::string Quoted(const std::string &text) {
    std::string quoted = "'";
    for (const char letter : text)
        quoted += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
    return quoted + "'";
}

// An option without a group is an old name, kept for scripts.
std::vector<Word> WordsOf(const CLI::App &app) {
    std::vector<Word> words;
    for (const CLI::Option *option : app.get_options()) {
        if (option->get_group().empty()) continue;
        const bool takesValue = option->get_expected_max() > 0;
        for (const std::string &name : option->get_lnames())
            words.push_back({"--" + name, FirstLine(option->get_description()), takesValue});
        for (const std::string &name : option->get_snames())
            words.push_back({"-" + name, FirstLine(option->get_description()), takesValue});
    }
    return words;
}

std::vector<Command> CommandsOf(const CLI::App &program) {
    std::vector<Command> commands;
    for (const CLI::App *app : program.get_subcommands([](const CLI::App *) { return true; }))
        commands.push_back({app->get_name(), FirstLine(app->get_description()), WordsOf(*app)});
    return commands;
}

template <typename Items>
std::string Joined(const Items &items) {
    std::string text;
    for (const auto &item : items)
        text += (text.empty() ? "" : " ") + item;
    return text;
}

std::vector<std::string> Texts(const std::vector<Word> &words) {
    std::vector<std::string> texts;
    texts.reserve(words.size());
    for (const Word &word : words)
        texts.push_back(word.text);
    return texts;
}

std::string Bash(const CLI::App &program) {
    std::vector<std::string> first = Texts(WordsOf(program));
    std::string cases;
    for (const Command &command : CommandsOf(program)) {
        first.insert(first.begin(), command.name);
        cases +=
            "        " + command.name + ") words=" + Quoted(Joined(Texts(command.words))) + " ;;\n";
    }
    return "# Completion of aiplc for bash.\n"
           "_aiplc() {\n"
           "    local words word=${COMP_WORDS[COMP_CWORD]}\n"
           "    case ${COMP_WORDS[1]} in\n" +
           cases + "        *) words=" + Quoted(Joined(first)) +
           " ;;\n"
           "    esac\n"
           "    if [[ $word == -* || $COMP_CWORD -eq 1 ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
           "    else\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
           "    fi\n"
           "}\n"
           "complete -o filenames -F _aiplc aiplc\n";
}

// Brackets and colons have a meaning in what _arguments takes.
std::string ZshText(const std::string &text) {
    std::string plain;
    for (const char letter : text) {
        if (letter == ':') plain += '\\';
        if (letter != '[' && letter != ']') plain += letter;
    }
    return plain;
}

std::string ZshArguments(const std::vector<Word> &words) {
    std::string text;
    for (const Word &word : words) {
        const std::string value = word.takesValue ? ":value:_files" : "";
        text += " \\\n            " + Quoted(word.text + "[" + ZshText(word.about) + "]" + value);
    }
    return text + " \\\n            '*:file:_files'";
}

std::string Zsh(const CLI::App &program) {
    std::string names;
    std::string cases;
    for (const Command &command : CommandsOf(program)) {
        names += "        " + Quoted(command.name + ":" + ZshText(command.about)) + "\n";
        cases += "        " + command.name + ") _arguments" + ZshArguments(command.words) + " ;;\n";
    }
    return "#compdef aiplc\n"
           "# Completion of aiplc for zsh.\n"
           "_aiplc() {\n"
           "    local -a commands=(\n" +
           names +
           "    )\n"
           "    if (( CURRENT == 2 )); then\n"
           "        _describe command commands\n"
           "        return\n"
           "    fi\n"
           "    local command=$words[2]\n"
           "    shift words\n"
           "    (( CURRENT-- ))\n"
           "    case $command in\n" +
           cases +
           "    esac\n"
           "}\n"
           "_aiplc \"$@\"\n";
}

std::string Fish(const CLI::App &program) {
    std::string text = "# Completion of aiplc for fish.\n";
    for (const Command &command : CommandsOf(program)) {
        text += "complete -c aiplc -n __fish_use_subcommand -f -a " + command.name + " -d " +
                Quoted(command.about) + "\n";
        for (const Word &word : command.words) {
            const bool isLong = word.text.starts_with("--");
            text += "complete -c aiplc -n '__fish_seen_subcommand_from " + command.name + "' " +
                    (isLong ? "-l " + word.text.substr(2) : "-s " + word.text.substr(1)) +
                    (word.takesValue ? " -r" : "") + " -d " + Quoted(word.about) + "\n";
        }
    }
    return text;
}

}  // namespace

std::string CompletionScript(const CLI::App &program, const std::string &shell) {
    if (shell == "bash") return Bash(program);
    if (shell == "zsh") return Zsh(program);
    if (shell == "fish") return Fish(program);
    return {};
}

}  // namespace aiplc::tools

// SPDX-License-Identifier: BSD-2-Clause

#include "tools/command_line.h"

#include <opus/opus.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tools/compare/compare.h"
#include "tools/compare/compare_command.h"
#include "tools/conceal/conceal.h"
#include "tools/conceal/conceal_command.h"
#include "tools/live/receive.h"
#include "tools/live/receive_command.h"
#include "tools/live/send.h"
#include "tools/live/send_command.h"
#include "tools/play/model_facts.h"
#include "tools/shell/command_name.h"
#include "tools/shell/completion.h"
#include "tools/shell/failure.h"

namespace aiplc::tools {
namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitGate = 3;
constexpr int kExitInterrupted = 130;
constexpr int kExitReaderGone = 141;  // as a shell counts SIGPIPE

void PrintError(const std::string &command, const char *message) {
    std::fprintf(stderr, "aiplc: %s: %s\n", command.c_str(), message);
}

int RunCommand(const std::string &command, const std::function<int()> &run) {
    try {
        return run();
    } catch (const UsageError &error) {
        PrintError(command, error.what());
        return kExitUsage;
    } catch (const Interrupted &) {
        PrintError(command, "interrupted; nothing was written");
        return kExitInterrupted;
    } catch (const ReaderGone &) {
        return kExitReaderGone;
    } catch (const std::bad_alloc &) {
        PrintError(command, "not enough memory");
        return kExitFailure;
    } catch (const std::exception &error) {
        PrintError(command, error.what());
        return kExitFailure;
    }
}

int RunCompare(const CompareOptions &options) {
    const std::vector<std::string> failures = Compare(options);
    for (const std::string &failure : failures)
        PrintError("compare", ("--fail-if " + failure).c_str());
    return failures.empty() ? 0 : kExitGate;
}

// The command line as a shell takes it.
std::string Quoted(int argc, char **argv) {
    std::string line = "aiplc";
    for (int i = 1; i < argc; ++i) {
        std::string argument = argv[i];
        const bool plain =
            !argument.empty() &&
            argument.find_first_not_of(
                "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789%+,-./:=@_") ==
                std::string::npos;
        if (!plain) {
            for (size_t at = 0; (at = argument.find('\'', at)) != std::string::npos; at += 4)
                argument.replace(at, 1, "'\\''");
            argument.insert(0, 1, '\'').push_back('\'');
        }
        line += " " + argument;
    }
    return line;
}

// Where a wrong command line was wrong.
std::string CommandOf(const CLI::App &program, int argc, char **argv) {
    for (const CLI::App *command : program.get_subcommands([](const CLI::App *) { return true; })) {
        if (command->parsed() || (argc > 1 && command->get_name() == argv[1]))
            return command->get_name();
    }
    return {};
}

// Answers "help", alone or before a command, and words that are no command; nothing for all else.
std::optional<int> AnswerWord(const CLI::App &program, int argc, char **argv) {
    if (argc < 2 || argv[1][0] == '-') return std::nullopt;
    std::vector<std::string> names;
    for (const CLI::App *command : program.get_subcommands([](const CLI::App *) { return true; }))
        names.push_back(command->get_name());
    const auto isCommand = [&](const char *word) { return std::ranges::count(names, word) > 0; };
    if (isCommand(argv[1])) return std::nullopt;
    if (std::string(argv[1]) != "help") {
        std::fprintf(stderr, "aiplc: %s; see aiplc --help\n",
                     UnknownCommand(argv[1], names).c_str());
        return kExitUsage;
    }
    const bool ofCommand = argc > 2 && isCommand(argv[2]);
    std::fputs((ofCommand ? program.get_subcommand(argv[2]) : &program)->help().c_str(), stdout);
    return 0;
}

}  // namespace

int RunCommandLine(int argc, char **argv) {
    CLI::App program("Packet-loss concealment for Opus speech", "aiplc");
    program.require_subcommand(1);
    program.footer(
        "\naiplc COMMAND --help explains a command with examples. aiplc completion bash|zsh|fish\n"
        "prints a shell's completion script.");
    bool verbose = false;
    program.add_flag("--verbose", verbose, "with --version: the worker's model as well");
    program.set_version_flag("-V,--version", [&verbose] {
        const auto version =
            std::string("aiplc ") + AIPLC_VERSION + ", " + opus_get_version_string();
        return verbose ? version + '\n' + ModelFacts() : version;
    });
    ConcealOptions conceal;
    CompareOptions compare;
    ReceiveOptions receive;
    SendOptions send;
    const CLI::App *concealCommand = AddConceal(program, conceal);
    AddCompare(program, compare);
    const CLI::App *receiveCommand = AddReceive(program, receive);
    const CLI::App *sendCommand = AddSend(program, send);
    if (argc == 3 && std::string(argv[1]) == "completion") {
        const std::string script = CompletionScript(program, argv[2]);
        if (script.empty()) {
            std::fprintf(stderr,
                         "aiplc: completion: no script for '%s': there are bash, zsh and fish\n",
                         argv[2]);
            return kExitUsage;
        }
        std::fputs(script.c_str(), stdout);
        return 0;
    }
    if (const auto answered = AnswerWord(program, argc, argv)) return *answered;
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        if (error.get_exit_code() == 0) return program.exit(error);  // --help, --version
        const std::string command = CommandOf(program, argc, argv);
        std::fprintf(stderr, "aiplc: %s%s; see aiplc %s--help\n",
                     command.empty() ? "" : (command + ": ").c_str(), error.what(),
                     command.empty() ? "" : (command + " ").c_str());
        return kExitUsage;
    }
    if (concealCommand->parsed()) {
        return RunCommand("conceal", [&] {
            Conceal(conceal);
            return 0;
        });
    }
    if (receiveCommand->parsed()) {
        return RunCommand("receive", [&] {
            Receive(receive);
            return 0;
        });
    }
    if (sendCommand->parsed()) {
        return RunCommand("send", [&] {
            Send(send);
            return 0;
        });
    }
    compare.command = Quoted(argc, argv);
    return RunCommand("compare", [&] { return RunCompare(compare); });
}

}  // namespace aiplc::tools

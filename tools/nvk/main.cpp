#include <algorithm>
#include <cstdio>
#include <iostream>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Version.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

std::vector<Command>& registry() {
    static std::vector<Command> list;
    return list;
}

void printOverview(std::ostream& out) {
    out << "nvk " << tovan::libraryVersion() << ": data trees, JSON, protocols and credentials from the command line\n\n"
        << "usage: nvk COMMAND [ARGS...]\n\ncommands:\n";
    std::vector<Command> sorted = commands();
    std::sort(sorted.begin(), sorted.end(), [](const Command& a, const Command& b) {
        return std::string(a.name) < b.name;
    });
    for (const Command& c : sorted) {
        std::string name = c.name;
        name.resize(std::max<size_t>(name.size() + 2, 14), ' ');
        out << "  " << name << c.summary << "\n";
    }
    out << "\nRun 'nvk help COMMAND' for a command's arguments.\n";
}

int runHelp(const std::vector<std::string>& args) {
    if (args.empty()) {
        printOverview(std::cout);
        return ExitOk;
    }
    const Command* c = findCommand(args[0]);
    if (!c) {
        std::cerr << "nvk help: unknown command '" << args[0] << "'\n";
        return ExitUsage;
    }
    std::cout << "usage: " << c->usage << "\n\n" << c->summary << "\n";
    return ExitOk;
}

int runVersion(const std::vector<std::string>& args) {
    if (!args.empty()) return usageError(*findCommand("version"), "takes no arguments");
    std::cout << "nvk " << tovan::libraryVersion() << "\n";
    return ExitOk;
}

const CommandRegistration helpCommand{{"help", "list the commands, or show one command's usage", "nvk help [COMMAND]",
                                       &runHelp}};
const CommandRegistration versionCommand{{"version", "print the library's version", "nvk version", &runVersion}};

}  // namespace

CommandRegistration::CommandRegistration(const Command& command) { registry().push_back(command); }

const std::vector<Command>& commands() { return registry(); }

const Command* findCommand(const std::string& name) {
    for (const Command& c : registry())
        if (name == c.name) return &c;
    return nullptr;
}

int usageError(const Command& command, const std::string& message) {
    std::cerr << "nvk " << command.name << ": " << message << "\nusage: " << command.usage << "\n";
    return ExitUsage;
}

int runSubcommand(const Command& command, const std::vector<std::string>& args, std::initializer_list<Subcommand> subs) {
    if (!args.empty())
        for (const Subcommand& sub : subs)
            if (args[0] == sub.name) return sub.run(args);
    if (!args.empty()) return usageError(command, "unknown subcommand '" + args[0] + "'");
    std::string choices;
    size_t i = 0;
    for (const Subcommand& sub : subs) {
        if (i++) choices += i == subs.size() ? " or " : ", ";
        choices += "'" + std::string(sub.name) + "'";
    }
    return usageError(command, "expected " + choices);
}

}  // namespace nvk

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty()) {
        nvk::printOverview(std::cerr);
        return nvk::ExitUsage;
    }
    if (args[0] == "--help" || args[0] == "-h") args[0] = "help";
    if (args[0] == "--version") args[0] = "version";
    const nvk::Command* command = nvk::findCommand(args[0]);
    if (!command) {
        std::cerr << "nvk: unknown command '" << args[0] << "'; run 'nvk help' for the list\n";
        return nvk::ExitUsage;
    }
    try {
        return command->run(std::vector<std::string>(args.begin() + 1, args.end()));
    } catch (const tovan::Exception& e) {
        std::cerr << "nvk " << command->name << ": " << e.what() << "\n";
        return nvk::ExitBadInput;
    }
}

#pragma once
// Subcommands of the nvk tool register themselves, one file each:
//   static const nvk::CommandRegistration reg{{"json", "read JSON records", "nvk json FILE [...]", &runJson}};
#include <initializer_list>
#include <string>
#include <vector>

namespace nvk {

/// Exit statuses shared by every subcommand.
enum ExitStatus { ExitOk = 0, ExitBadInput = 1, ExitUsage = 2 };

struct Command {
    const char* name;
    const char* summary;  // one line for `nvk help`
    const char* usage;    // full usage text for `nvk help NAME`
    int (*run)(const std::vector<std::string>& args);  // arguments after the name
};

struct CommandRegistration {
    explicit CommandRegistration(const Command& command);
};

const std::vector<Command>& commands();
const Command* findCommand(const std::string& name);

/// Prints "nvk NAME: message" and the command's usage on standard error, returns ExitUsage.
int usageError(const Command& command, const std::string& message);

/// One word of a command with subcommands ("nvk credentials new"); `run` gets
/// the arguments from the subcommand's name on.
struct Subcommand {
    const char* name;
    int (*run)(const std::vector<std::string>& args);
};

/// Runs the subcommand that args[0] names, or reports a usage error: "expected
/// 'a' or 'b'" without one, "unknown subcommand 'x'" for another word.
int runSubcommand(const Command& command, const std::vector<std::string>& args, std::initializer_list<Subcommand> subs);

}  // namespace nvk

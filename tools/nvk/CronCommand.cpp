// nvk cron next: the next run of a cron trigger spec.
#include <iostream>

#include "nvk/platform/NumberText.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/SchedulerText.h"

namespace nvk {
namespace {

int runCron(const std::vector<std::string>& args);

const CommandRegistration registration{
    {"cron", "show when a cron trigger spec runs next",
     "nvk cron next \"S M H DOM MON DOW YEAR\" [--at \"YYYY-MM-DD HH:MM:SS\"] [--offset MIN] [--json]\n"
     "  A trigger spec is seven fields separated by single blanks: second, minute, hour, day of month,\n"
     "  month, day of week (1 Sunday to 7 Saturday) and year. Four shapes are calculated:\n"
     "    daily    S M H * * ? *       weekly   S M H ? * DOW *\n"
     "    monthly  S M H DOM MON ? *   once     S M H DOM MON ? YEAR\n"
     "  DOW, DOM and MON are lists of numbers and ranges (\"2,4\", \"1-5\"); \"*\" in them means all.\n"
     "  --at      the time to count from (default: now, local time)\n"
     "  --offset  minutes to run earlier than the trigger spec says (negative: later)\n"
     "  Prints 'frequency: none|once|daily|weekly|monthly' and 'next: YYYY-MM-DDTHH:MM:SS' (or\n"
     "  'next: none'), or with --json one object {\"frequency\": F, \"next\": TEXT or null}. A spec\n"
     "  of none of the shapes, a past once and a date that never comes (31 February) are frequency\n"
     "  none; monthly runs are searched four years ahead. The result is read as UTC and shown in the\n"
     "  system's local time, as the server does.",
     &runCron}};

const Command& self() { return *findCommand("cron"); }

int runNext(const std::vector<std::string>& args) {
    if (args.size() < 2) return usageError(self(), "next takes a SPEC");
    tovan::DateTimeValue at;
    bool haveAt = false, json = false;
    int offset = 0;
    for (size_t i = 2; i < args.size(); ++i) {
        const std::string& option = args[i];
        if (option == "--json") {
            json = true;
            continue;
        }
        if (option != "--at" && option != "--offset") return usageError(self(), "unknown option '" + option + "'");
        if (i + 1 == args.size()) return usageError(self(), option + " needs a value");
        const std::string& value = args[++i];
        if (option == "--at") {
            if (!parseAtOption(value, at)) return usageError(self(), "--at takes \"YYYY-MM-DD HH:MM:SS\", not '" + value + "'");
            haveAt = true;
        } else if (!tovan::parseInteger(std::string_view(value), offset) || offset < -525600 || offset > 525600) {
            return usageError(self(), "--offset takes minutes, at most a year either way, not '" + value + "'");
        }
    }
    SchedulerTask task;
    task.setTriggerSpec(tovan::toWide(args[1]));
    std::cout << nextRunText(task, haveAt ? &at : nullptr, offset, json);
    return ExitOk;
}

int runCron(const std::vector<std::string>& args) { return runSubcommand(self(), args, {{"next", &runNext}}); }

}  // namespace
}  // namespace nvk

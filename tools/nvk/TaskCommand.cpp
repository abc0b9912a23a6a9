// nvk task show: a scheduler task definition file and its next run.
#include <iostream>

#include "nvk/services/SchedulerTaskReader.h"
#include "tools/nvk/Command.h"
#include "tools/nvk/SchedulerText.h"

namespace nvk {
namespace {

int runTask(const std::vector<std::string>& args);

const CommandRegistration registration{
    {"task", "show a scheduler task definition file and its next run",
     "nvk task show FILE [--at \"YYYY-MM-DD HH:MM:SS\"]\n"
     "  FILE is a task definition file (examples/nightly-clean.xml shows the layout). Prints the\n"
     "  task's name (the file's name), group (from the folders: user, admin, package, else core),\n"
     "  type and spec, trigger, event (an ExternalEvent trigger's), owner, disabled reason and\n"
     "  runtime parameters, one per line, then its frequency and next run as 'nvk cron next' does\n"
     "  (from --at, or now). A file that is no task is reported with the reason on standard error,\n"
     "  exit status 1.",
     &runTask}};

const Command& self() { return *findCommand("task"); }

int runShow(const std::vector<std::string>& args) {
    if (args.size() != 2 && !(args.size() == 4 && args[2] == "--at"))
        return usageError(self(), "show takes FILE and optionally --at TIME");
    tovan::DateTimeValue at;
    if (args.size() == 4 && !parseAtOption(args[3], at))
        return usageError(self(), "--at takes \"YYYY-MM-DD HH:MM:SS\", not '" + args[3] + "'");
    SchedulerTask task;
    SchedulerTaskReader().readTask(tovan::toWide(args[1]), task);
    auto text = [](const tovan::WString& s) { return tovan::toNarrow(s); };
    std::cout << "name: " << text(task.getName()) << "\ngroup: " << text(SchedulerTask::toString(task.getGroup()))
              << "\ntask: " << text(SchedulerTask::toString(task.getTaskType())) << " " << text(task.getTaskSpec())
              << "\ntrigger: " << text(SchedulerTask::toString(task.getTriggerType())) << " "
              << text(task.getTriggerSpec()) << "\n";
    if (!task.getEventID().isEmpty()) std::cout << "event: " << text(task.getEventID()) << "\n";
    std::cout << "owner: " << text(task.getOwner())
              << "\ndisabled: " << text(SchedulerTask::toString(task.getDisabledReason())) << "\n";
    if (const auto& params = task.getRuntimeProperties())
        for (int i = 0; i < params->getSize(); ++i)
            std::cout << "param " << text(params->get(i).getName()) << ": "
                      << text(params->get(i).getValue().toString()) << "\n";
    std::cout << nextRunText(task, args.size() == 4 ? &at : nullptr, 0, false);
    return ExitOk;
}

int runTask(const std::vector<std::string>& args) { return runSubcommand(self(), args, {{"show", &runShow}}); }

}  // namespace
}  // namespace nvk

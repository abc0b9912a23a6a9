// nvk scheduler serve|list|add|delete: a scheduler service and its client.
#include <csignal>
#include <filesystem>
#include <iostream>
#include <map>

#include "nvk/platform/NumberText.h"
#include "nvk/platform/Random.h"
#include "nvk/services/CSchedulerService.h"
#include "nvk/services/CSchedulerServiceClient.h"
#include "nvk/services/SchedulerTaskReader.h"
#include "tools/nvk/Command.h"

namespace nvk {
namespace {

using tovan::WString;

int runScheduler(const std::vector<std::string>& args);

const CommandRegistration registration{
    {"scheduler", "run a scheduler service, or list, add and delete its tasks",
     "nvk scheduler serve --root DIR [--port P] [--session KEY]\n"
     "       nvk scheduler list --server URL --session KEY [--timeout MS]\n"
     "       nvk scheduler add --server URL --session KEY --user USER FILE [--name NAME] [--timeout MS]\n"
     "       nvk scheduler delete --server URL --session KEY --user USER NAME [--timeout MS]\n"
     "  serve   serves the task definition files under DIR, a folder that exists, at\n"
     "          http://127.0.0.1:P/schedulercrud/tasks (loopback only; P 0 or left out: a free\n"
     "          port) until interrupted; prints the URL and the session key (a random one unless\n"
     "          --session is given) first. Added tasks go to DIR/user/USER/NAME.xml. Every request\n"
     "          must carry the key.\n"
     "  list    prints each task of the service: name, owner, task type and spec, trigger type and\n"
     "          spec, and the disabled reason when there is one\n"
     "  add     adds the task of a definition file (see 'nvk help task') for USER, under the file's\n"
     "          name or NAME\n"
     "  delete  deletes USER's task NAME\n"
     "  --timeout  the longest an exchange may take, in milliseconds (default 60000)\n"
     "  A refusal of the service is reported with its status and text on standard error (exit\n"
     "  status 1), as are a refused connection and a timeout.",
     &runScheduler}};

const Command& self() { return *findCommand("scheduler"); }

// Options of the form --name VALUE; the words without a dash, in order.
bool readOptions(const std::vector<std::string>& args, std::initializer_list<const char*> known,
                 std::map<std::string, std::string>& options, std::vector<std::string>& words, std::string& error) {
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a.rfind("--", 0) != 0) {
            words.push_back(a);
            continue;
        }
        bool ok = false;
        for (const char* k : known) ok |= a == k;
        if (!ok) {
            error = "unknown option '" + a + "'";
            return false;
        }
        if (i + 1 == args.size()) {
            error = a + " needs a value";
            return false;
        }
        options[a] = args[++i];
    }
    return true;
}

int runServe(const std::vector<std::string>& args) {
    std::map<std::string, std::string> options;
    std::vector<std::string> words;
    std::string error;
    if (!readOptions(args, {"--root", "--port", "--session"}, options, words, error)) return usageError(self(), error);
    if (!words.empty()) return usageError(self(), "serve takes no words, not '" + words[0] + "'");
    if (!options.count("--root")) return usageError(self(), "serve needs --root DIR");
    int port = 0;
    if (options.count("--port") && (!tovan::parseInteger(std::string_view(options["--port"]), port) || port < 0 || port > 65535))
        return usageError(self(), "--port takes 0 to 65535, not '" + options["--port"] + "'");
    // A mistyped root would give a service that answers every list with 500.
    std::error_code unreadable;
    if (!std::filesystem::is_directory(options["--root"], unreadable)) {
        std::cerr << "nvk scheduler: --root " << options["--root"] << " is not a folder\n";
        return ExitBadInput;
    }
    std::string session = options["--session"];
    if (session.empty()) {
        uint8_t bytes[16];
        tovan::vcRandom::FillUnpredictable(bytes, sizeof bytes);
        for (uint8_t b : bytes) session += std::string{tovan::kHexDigits[b >> 4], tovan::kHexDigits[b & 15]};
    }
    // The service's threads inherit this mask, so that the signals that end
    // it reach the wait below and nothing else.
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);
    CSchedulerService service(tovan::toWide(options["--root"]), tovan::toWide(session));
    int bound = service.start(port);
    std::cout << "serving " << options["--root"] << " at http://127.0.0.1:" << bound << "/schedulercrud/tasks\n"
              << "session: " << session << std::endl;
    int received = 0;
    sigwait(&stopSignals, &received);
    service.stop();
    std::cout << "stopped" << std::endl;
    return ExitOk;
}

// The client of list, add and delete, from their common options.
std::unique_ptr<CSchedulerServiceClient> clientFor(std::map<std::string, std::string>& options, bool needUser,
                                                   std::string& error) {
    if (!options.count("--server") || !options.count("--session") || (needUser && !options.count("--user"))) {
        error = needUser ? "--server, --session and --user are required" : "--server and --session are required";
        return nullptr;
    }
    long timeout = tovan::CHttp::DefaultTimeoutMs;
    if (options.count("--timeout") && (!tovan::parseInteger(std::string_view(options["--timeout"]), timeout) || timeout < 1)) {
        error = "--timeout takes a positive number of milliseconds, not '" + options["--timeout"] + "'";
        return nullptr;
    }
    std::string server = options["--server"];
    while (!server.empty() && server.back() == '/') server.pop_back();
    auto client = std::make_unique<CSchedulerServiceClient>(tovan::toWide(server), tovan::toWide(options["--session"]),
                                                            tovan::toWide(options["--user"]));
    client->setTimeouts(std::min(timeout, tovan::CHttp::DefaultConnectTimeoutMs), timeout);
    return client;
}

int runClientCall(const std::vector<std::string>& args, size_t wordsWanted, bool needUser,
                  int (*call)(CSchedulerServiceClient&, const std::vector<std::string>&, const std::string& name)) {
    std::map<std::string, std::string> options;
    std::vector<std::string> words;
    std::string error;
    if (!readOptions(args, {"--server", "--session", "--user", "--name", "--timeout"}, options, words, error))
        return usageError(self(), error);
    if (words.size() != wordsWanted)
        return usageError(self(), args[0] + (wordsWanted ? " takes one " + std::string(args[0] == "add" ? "FILE" : "NAME")
                                                          : " takes no words"));
    auto client = clientFor(options, needUser, error);
    if (!client) return usageError(self(), error);
    return call(*client, words, options["--name"]);
}

int list(CSchedulerServiceClient& client, const std::vector<std::string>&, const std::string&) {
    tovan::Array<SchedulerTask> tasks;
    client.getTasks(tasks);
    for (const SchedulerTask& t : tasks) {
        std::cout << tovan::toNarrow(t.getName()) << "  owner=" << tovan::toNarrow(t.getOwner()) << "  "
                  << tovan::toNarrow(SchedulerTask::toString(t.getTaskType())) << " " << tovan::toNarrow(t.getTaskSpec())
                  << "  " << tovan::toNarrow(SchedulerTask::toString(t.getTriggerType())) << " \""
                  << tovan::toNarrow(t.getTriggerSpec()) << "\"";
        if (t.isDisabled()) std::cout << "  disabled=" << tovan::toNarrow(SchedulerTask::toString(t.getDisabledReason()));
        std::cout << "\n";
    }
    std::cout << tasks.size() << (tasks.size() == 1 ? " task\n" : " tasks\n");
    return ExitOk;
}

int add(CSchedulerServiceClient& client, const std::vector<std::string>& words, const std::string& name) {
    SchedulerTask task;
    SchedulerTaskReader().readTask(tovan::toWide(words[0]), task);
    if (!name.empty()) task.setName(tovan::toWide(name));
    client.addTask(task);
    std::cout << "added " << tovan::toNarrow(task.getName()) << "\n";
    return ExitOk;
}

int remove(CSchedulerServiceClient& client, const std::vector<std::string>& words, const std::string&) {
    client.deleteTask(tovan::toWide(words[0]));
    std::cout << "deleted " << words[0] << "\n";
    return ExitOk;
}

int runList(const std::vector<std::string>& args) { return runClientCall(args, 0, false, &list); }
int runAdd(const std::vector<std::string>& args) { return runClientCall(args, 1, true, &add); }
int runDelete(const std::vector<std::string>& args) { return runClientCall(args, 1, true, &remove); }

int runScheduler(const std::vector<std::string>& args) {
    return runSubcommand(self(), args, {{"serve", &runServe}, {"list", &runList}, {"add", &runAdd}, {"delete", &runDelete}});
}

}  // namespace
}  // namespace nvk

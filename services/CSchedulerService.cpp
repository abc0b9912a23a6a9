#include "nvk/services/CSchedulerService.h"

#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "nvk/platform/Exception.h"
#include "nvk/platform/Http.h"
#include "nvk/services/SchedulerTaskReader.h"
#include "nvk/services/SchedulerText_internal.h"

namespace nvk {

using tovan::WString;
namespace fs = std::filesystem;

namespace {

constexpr const char* kClass = "CSchedulerService";
constexpr const char* kTasksPath = "/schedulercrud/tasks";

void answer(httplib::Response& res, int status, const std::string& text) {
    res.status = status;
    res.set_content(text + "\n", "text/plain; charset=utf-8");
}

// The query's and the form's keys together. The service reads form bodies
// itself: cpp-httplib refuses form bodies over 8 KB, and a task with many
// runtime properties is larger.
struct Form {
    httplib::Params params;
    bool has(const char* key) const { return params.count(key) > 0; }
    std::string get(const char* key) const {
        auto it = params.find(key);
        return it == params.end() ? std::string() : it->second;
    }
};

constexpr size_t kMaxBody = 16 << 20;

// A form key the request must carry; false after a 400 answer.
bool required(const Form& form, httplib::Response& res, const char* key, WString& value) {
    if (form.get(key).empty()) {
        answer(res, 400, std::string("Missing form key ") + key);
        return false;
    }
    value = tovan::toWide(form.get(key));
    return true;
}

void appendElement(std::string& out, const char* name, const WString& value) {
    out += "<tf:";
    out += name;
    out += '>';
    scheduler::appendXmlText(out, value);
    out += "</tf:";
    out += name;
    out += ">";
}

}  // namespace

struct CSchedulerService::Impl {
    WString root;
    std::string session;
    httplib::Server server;
    std::thread thread;
    std::atomic<bool> loopEnded{false};  // the server's loop returned, by stop() or on its own
    std::mutex files;  // adds and deletes, one at a time

    fs::path userFolder(const WString& user) const {
        // The user's name takes the escapes of a task name, so that it stays one folder.
        WString folder = SchedulerTaskReader::taskFileName(user);
        return fs::path(tovan::toNarrow(root)) / "user" /
               tovan::toNarrow(WString(folder.view().substr(0, folder.length() - 4)));
    }

    void add(const Form& req, httplib::Response& res) {
        WString user, name, spec;
        if (!required(req, res, "_userid", user) || !required(req, res, "$name", name) ||
            !required(req, res, "$protocol", spec))
            return;
        SchedulerTask task;
        task.setName(name);
        task.setTaskSpec(spec);
        task.setTriggerSpec(tovan::toWide(req.get("$triggerspec")));
        task.setEventID(tovan::toWide(req.get("$eventid")));
        task.setOwner(user);
        try {
            if (req.has("$tasktype")) task.setTaskType(SchedulerTask::toTaskType(tovan::toWide(req.get("$tasktype"))));
            if (req.has("$triggertype"))
                task.setTriggerType(SchedulerTask::toTriggerType(tovan::toWide(req.get("$triggertype"))));
            std::string disabled = req.has("$disabled") ? req.get("$disabled") : "";
            if (disabled == "true") task.setDisabledReason(SchedulerTask::USER_DISABLED);
            else if (!disabled.empty() && disabled != "false")
                task.setDisabledReason(SchedulerTask::toDisabledReason(tovan::toWide(disabled)));
        } catch (const tovan::BadParameterException& e) {
            answer(res, 400, std::string("Task is invalid: ") + e.what());
            return;
        }
        // An ExternalEvent trigger waits for its event; every other one follows its spec.
        WString needed;
        if (task.getTriggerType() == SchedulerTask::ExternalEvent ? !required(req, res, "$eventid", needed)
                                                                  : !required(req, res, "$triggerspec", needed))
            return;
        if (req.has("$properties"))
            task.setRuntimeProperties(scheduler::decodeProperties(tovan::toWide(req.get("$properties"))));
        if (!task.isValid()) {
            answer(res, 400, "Task is invalid");
            return;
        }
        fs::path folder = userFolder(user);
        fs::path file = folder / tovan::toNarrow(SchedulerTaskReader::taskFileName(name));
        std::lock_guard<std::mutex> hold(files);
        if (fs::exists(file)) {
            answer(res, 409, "Task " + tovan::toNarrow(name) + " of " + tovan::toNarrow(user) + " already exists");
            return;
        }
        bool newFolder = fs::create_directories(folder);
        try {
            SchedulerTaskReader::writeTask(tovan::toWide(file.string()), task);
        } catch (const tovan::BadParameterException& e) {
            // A text the file cannot carry: the task would be listed changed, or not at all.
            std::error_code ignored;
            if (newFolder) fs::remove(folder, ignored);
            answer(res, 400, std::string("Task is invalid: ") + e.what());
            return;
        }
        answer(res, 200, "Added " + tovan::toNarrow(name));
    }

    void remove(const Form& req, httplib::Response& res) {
        WString user, name;
        if (!required(req, res, "_userid", user) || !required(req, res, "$name", name)) return;
        fs::path file = userFolder(user) / tovan::toNarrow(SchedulerTaskReader::taskFileName(name));
        std::lock_guard<std::mutex> hold(files);
        if (!fs::remove(file)) {
            answer(res, 404, "No task " + tovan::toNarrow(name) + " of " + tovan::toNarrow(user));
            return;
        }
        fs::path companion = file;
        companion.replace_extension(".2.xml");
        fs::remove(companion);
        answer(res, 200, "Deleted " + tovan::toNarrow(name));
    }
};

CSchedulerService::CSchedulerService(const WString& root, const WString& session) : impl_(new Impl) {
    if (session.isEmpty()) throw tovan::BadParameterException(kClass, "CSchedulerService", u"The session key must not be empty");
    impl_->root = root;
    impl_->session = tovan::toNarrow(session);
    httplib::Server& server = impl_->server;
    Impl& impl = *impl_;
    const std::string header = tovan::toNarrow(WString(tovan::NVK_SessionHeader));
    // cpp-httplib's default also sets SO_REUSEPORT, which would let a second
    // service take a port that one already serves.
    server.set_socket_options([](socket_t sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    // Headers and body go out in separate writes; without this each answer
    // waits for the client's delayed acknowledgement.
    server.set_tcp_nodelay(true);
    server.set_pre_routing_handler([&impl, header](const httplib::Request& req, httplib::Response& res) {
        if (!req.has_header(header.c_str())) {
            answer(res, 401, "Missing session header " + header);
            return httplib::Server::HandlerResponse::Handled;
        }
        if (req.get_header_value(header.c_str()) != impl.session) {
            answer(res, 403, "Wrong session");
            return httplib::Server::HandlerResponse::Handled;
        }
        if (req.path != kTasksPath) {
            answer(res, 404, "Unknown request " + req.path + " (the service answers " + kTasksPath + ")");
            return httplib::Server::HandlerResponse::Handled;
        }
        if (req.method != "GET" && req.method != "POST") {
            answer(res, 405, "Method " + req.method + " is not allowed on " + kTasksPath);
            return httplib::Server::HandlerResponse::Handled;
        }
        return httplib::Server::HandlerResponse::Unhandled;
    });
    server.Get(kTasksPath, [this](const httplib::Request&, httplib::Response& res) {
        res.set_content(listTasks(), "application/xml; charset=utf-8");
    });
    server.Post(kTasksPath, [&impl](const httplib::Request& req, httplib::Response& res,
                                    const httplib::ContentReader& content) {
        Form form{req.params};
        std::string body;
        bool tooLarge = false;
        bool read = content([&body, &tooLarge](const char* data, size_t length) {
            tooLarge = body.size() + length > kMaxBody;
            if (!tooLarge) body.append(data, length);
            return !tooLarge;
        });
        if (tooLarge) {
            answer(res, 413, "Request body over 16 MB");
            return;
        }
        // A broken chunk, or a body without a length that the client never
        // ends (cpp-httplib reads it up to its read timeout).
        if (!read) {
            answer(res, 400, "The request body could not be read (it needs a Content-Length or whole chunks)");
            return;
        }
        httplib::detail::parse_query_text(body, form.params);
        std::string action = form.get("_actionType");
        if (action == "add") impl.add(form, res);
        else if (action == "delete") impl.remove(form, res);
        else answer(res, 400, "Unknown _actionType '" + action + "' (add or delete)");
    });
    server.set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr failure) {
        try {
            std::rethrow_exception(failure);
        } catch (const std::exception& e) {
            answer(res, 500, e.what());
        } catch (...) {
            answer(res, 500, "Internal error");
        }
    });
}

CSchedulerService::~CSchedulerService() { stop(); }

int CSchedulerService::start(int port) {
    if (impl_->thread.joinable()) throw tovan::Exception(kClass, "start", u"The service is already running");
    httplib::Server& server = impl_->server;
    int bound = port == 0 ? server.bind_to_any_port("127.0.0.1") : (server.bind_to_port("127.0.0.1", port) ? port : -1);
    if (bound <= 0) throw tovan::Exception(kClass, "start", u"Cannot listen on 127.0.0.1 port %d", port);
    port_ = bound;
    impl_->loopEnded = false;
    impl_->thread = std::thread([impl = impl_.get()] {
        impl->server.listen_after_bind();
        impl->loopEnded = true;
    });
    return port_;
}

void CSchedulerService::stop() {
    if (!impl_->thread.joinable()) return;
    // stop() acts only once the loop runs; it starts at once after start(). A loop that
    // ended on its own (a failed accept) never shows as running again: no wait for it.
    while (!impl_->server.is_running() && !impl_->loopEnded) std::this_thread::yield();
    impl_->server.stop();
    impl_->thread.join();
}

std::string CSchedulerService::listTasks() const {
    std::vector<fs::path> files;
    fs::path root(tovan::toNarrow(impl_->root));
    std::error_code error;
    for (fs::recursive_directory_iterator it(root, error), end; !error && it != end; it.increment(error)) {
        const fs::path& p = it->path();
        std::string name = p.filename().string();
        if (it->is_regular_file() && name[0] != '.' && name.ends_with(".xml") && !name.ends_with(".2.xml"))
            files.push_back(p);
    }
    if (error)
        throw tovan::Exception(kClass, "listTasks", u"Cannot list the tasks under %ls: %hs", impl_->root, error.message());
    std::sort(files.begin(), files.end());
    std::string out = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<tf:tasks xmlns:tf=\"urn:nvk:scheduler\">\n";
    SchedulerTaskReader reader;
    for (const fs::path& p : files) {
        SchedulerTask task;
        try {
            reader.readTask(tovan::toWide(p.string()), task);
        } catch (const tovan::Exception&) {
            continue;  // the reader has warned with the reason
        }
        out += "<tf:item>";
        appendElement(out, "TaskName", task.getName());
        appendElement(out, "TaskType", SchedulerTask::toString(task.getTaskType()));
        appendElement(out, "TaskSpec", task.getTaskSpec());
        appendElement(out, "TriggerType", SchedulerTask::toString(task.getTriggerType()));
        appendElement(out, "TriggerSpec", task.getTriggerSpec());
        appendElement(out, "TaskOwner", task.getOwner());
        appendElement(out, "EventID", task.getEventID());
        appendElement(out, "Properties", scheduler::encodeProperties(task.getRuntimeProperties().get()));
        appendElement(out, "Disabled", SchedulerTask::toString(task.getDisabledReason()));
        out += "</tf:item>\n";
    }
    out += "</tf:tasks>\n";
    return out;
}

}  // namespace nvk

#pragma once
// CSchedulerService: a scheduler service over a folder of task definition
// files, for the client (CSchedulerServiceClient) to talk to: the embedded
// default, and what `nvk scheduler serve` runs. It listens on loopback only.
//
// Every request carries the session key in the header X-NVK-Session
// (NVK_SessionHeader); without it the answer is 401 "Missing session header
// X-NVK-Session", with another key 403 "Wrong session". Under
// /schedulercrud/tasks:
//   GET   the tasks of every definition file under the root, as XML:
//         <tf:tasks xmlns:tf="urn:nvk:scheduler"><tf:item> with tf:TaskName,
//         tf:TaskType, tf:TaskSpec, tf:TriggerType, tf:TriggerSpec,
//         tf:TaskOwner, tf:EventID, tf:Properties (the runtime properties as
//         "name=value&..." percent-encoded) and tf:Disabled (the reason);
//         files that are no task are left out with a warning.
//   POST  a form with _actionType "add" or "delete" and _userid, the user:
//         add: $name, $protocol (the task spec), $triggerspec ($eventid for
//         an ExternalEvent trigger), and optionally $tasktype and
//         $triggertype (texts; Protocol and Cron by default),
//         $properties (as in the list) and $disabled (a reason, or true or
//         false). The task goes to ROOT/user/USER/NAME.xml; 409 when the
//         user has a task of that name already.
//         delete: the task's name in the query, "?$name=NAME" (or in the
//         form); 404 when the user has no task of that name.
// A request that cannot be served is answered with its status and one line
// of text: 400 for a missing or bad form key, an invalid task or a body that
// cannot be read, 404 for another path, 405 for another method, 413 for a
// body over 16 MB, 500 when the root cannot be read or written. Adds and deletes are serialised; every file is written to a
// temporary file first and renamed into place.
#include <memory>
#include <string>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace nvk {

class NVK_EXPORT CSchedulerService {
public:
    /// Serves the definition files under `root` to clients holding `session`.
    /// An empty session raises BadParameterException "The session key must
    /// not be empty" (class "CSchedulerService").
    CSchedulerService(const tovan::WString& root, const tovan::WString& session);
    /// Stops the service when it still runs.
    ~CSchedulerService();
    CSchedulerService(const CSchedulerService&) = delete;
    CSchedulerService& operator=(const CSchedulerService&) = delete;

    /// Starts listening on 127.0.0.1 at `port` (0: a free port) and serving in
    /// threads of its own; returns the port. Raises Exception "Cannot listen
    /// on 127.0.0.1 port %d" when the port is taken, and "The service is
    /// already running" when started twice.
    int start(int port = 0);
    /// Stops listening and waits for the requests in progress. Does nothing
    /// when not running.
    void stop();
    int getPort() const { return port_; }

    /// The task list as GET answers it; raises Exception "Cannot list the tasks
    /// under %ls: %hs" when the root cannot be read.
    std::string listTasks() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
    int port_ = 0;
};

}  // namespace nvk

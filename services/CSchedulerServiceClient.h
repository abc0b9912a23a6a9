#pragma once
// CSchedulerServiceClient: lists, adds and deletes the tasks of a scheduler
// service (CSchedulerService describes the requests) for one user and one
// session. Calls from several threads take turns: each holds the client's
// lock for its whole exchange.
#include "nvk/platform/Array.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Http.h"
#include "nvk/platform/Lock.h"
#include "nvk/platform/String.h"
#include "nvk/services/SchedulerTask.h"

namespace nvk {

class NVK_EXPORT CSchedulerServiceClient {
public:
    /// The part of the URL between "/schedulercrud/" and the query.
    static constexpr char16_t RequestPart[] = u"tasks";
    /// The query parameter that names the task to delete.
    static constexpr char16_t DeleteParameter[] = u"$name";

    /// `serverEndpoint`: the service's base URL ("http://127.0.0.1:8765"), a
    /// trailing "/" left out; `sessionKey` goes with every request in
    /// NVK_SessionHeader; `userId` is the user whose tasks are added and deleted.
    CSchedulerServiceClient(const tovan::WString& serverEndpoint, const tovan::WString& sessionKey,
                            const tovan::WString& userId);
    CSchedulerServiceClient(const CSchedulerServiceClient&) = delete;
    CSchedulerServiceClient& operator=(const CSchedulerServiceClient&) = delete;

    /// Connect and total timeouts of each exchange, in milliseconds (CHttp's rules).
    void setTimeouts(long connectMs, long totalMs);

    /// Replaces `tasks` with the service's tasks; true when there is at least
    /// one. Failures of the exchange raise CHttp's exceptions; an answer that
    /// is not XML raises Exception "The answer of %ls is not a task list: %ls"
    /// (class "CSchedulerServiceClient") with the reader's message, and an item
    /// with an unknown type text the task's "Unsupported ..." exception; in
    /// every failure `tasks` is left as it was.
    bool getTasks(tovan::Array<SchedulerTask>& tasks);
    /// Adds `task` for the user. An invalid task raises BadParameterException
    /// "Task is invalid" before anything is sent.
    void addTask(const SchedulerTask& task);
    /// Deletes the user's task `name`.
    void deleteTask(const tovan::WString& name);

    const tovan::WString& getUrl() const { return url_; }

protected:
    /// A task from the fields of one listed item, under the keys of a task
    /// definition file ("TaskName", "TaskSpec", "TriggerSpec", "TriggerType",
    /// "TaskType", "Disabled", "TaskOwner", "EventID") and "Properties".
    void toTask(const tovan::iPropertyCollection& item, SchedulerTask& task) const;

private:
    tovan::CriticalSection lock_;
    tovan::CHttp http_;
    tovan::WString url_;
    tovan::WString userId_;
};

}  // namespace nvk

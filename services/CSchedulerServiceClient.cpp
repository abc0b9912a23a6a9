#include "nvk/services/CSchedulerServiceClient.h"

#include "nvk/interchange/XmlReader.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/ReferenceSet.h"
#include "nvk/platform/Util.h"
#include "nvk/services/SchedulerText_internal.h"

namespace nvk {

using tovan::WString;

namespace {

constexpr const char* kClass = "CSchedulerServiceClient";

// The fields of an item, by the names toTask reads them under.
constexpr const char16_t* kItemFields[][2] = {
    {u"string(tf:TaskName)", u"TaskName"},       {u"string(tf:TaskSpec)", u"TaskSpec"},
    {u"string(tf:TriggerSpec)", u"TriggerSpec"}, {u"string(tf:TriggerType)", u"TriggerType"},
    {u"string(tf:Properties)", u"Properties"},   {u"string(tf:TaskType)", u"TaskType"},
    {u"string(tf:Disabled)", u"Disabled"},       {u"string(tf:TaskOwner)", u"TaskOwner"},
    {u"string(tf:EventID)", u"EventID"},
};

WString text(const tovan::iPropertyCollection& item, const char16_t* name) {
    const tovan::iProperty* p = item.find(name);
    return p ? p->getValue().toString() : WString::empty();
}

}  // namespace

CSchedulerServiceClient::CSchedulerServiceClient(const WString& serverEndpoint, const WString& sessionKey,
                                                 const WString& userId)
    : userId_(userId) {
    url_ = tovan::format(u"%ls%ls%ls", serverEndpoint, WString(u"/schedulercrud/"), WString(RequestPart));
    http_.setHeader(tovan::NVK_SessionHeader, sessionKey);
}

void CSchedulerServiceClient::setTimeouts(long connectMs, long totalMs) {
    tovan::AutoCriticalSection hold(lock_);
    http_.setConnectTimeoutMs(connectMs);
    http_.setTimeoutMs(totalMs);
}

bool CSchedulerServiceClient::getTasks(tovan::Array<SchedulerTask>& tasks) {
    std::string body;
    {
        tovan::AutoCriticalSection hold(lock_);
        body = http_.get(url_);
    }
    tovan::Ptr<CBaseNode> doc;
    try {
        doc = XmlReader::ReadBytes(body);
    } catch (const tovan::Exception& e) {
        throw tovan::Exception(kClass, "getTasks", u"The answer of %ls is not a task list: %ls", url_, e.getMessage());
    }
    tovan::NodeReferenceSet items;
    doc->query(u"/*/tf:item", tovan::QueryDefault, items);
    tovan::Array<SchedulerTask> read;
    tovan::Ptr<CPropertyCollection> fields(CPropertyCollection::newInstance());
    for (size_t i = 0; i < items.size(); ++i) {
        fields->removeAll();
        for (const auto& [path, name] : kItemFields) {
            WString value;
            items.get(i)->query(path, tovan::QueryDefault, value);
            fields->define(name, value);
        }
        SchedulerTask task;
        toTask(*fields, task);
        read.push_back(task);
    }
    tasks = std::move(read);
    return tasks.size() > 0;
}

void CSchedulerServiceClient::toTask(const tovan::iPropertyCollection& item, SchedulerTask& task) const {
    SchedulerTask t;
    t.setName(text(item, u"TaskName"));
    t.setTaskSpec(text(item, u"TaskSpec"));
    t.setTriggerSpec(text(item, u"TriggerSpec"));
    WString triggerType = text(item, u"TriggerType"), taskType = text(item, u"TaskType");
    WString disabled = text(item, u"Disabled");
    if (!triggerType.isEmpty()) t.setTriggerType(SchedulerTask::toTriggerType(triggerType));
    if (!taskType.isEmpty()) t.setTaskType(SchedulerTask::toTaskType(taskType));
    if (!disabled.isEmpty()) t.setDisabledReason(SchedulerTask::toDisabledReason(disabled));
    t.setOwner(text(item, u"TaskOwner"));
    t.setEventID(text(item, u"EventID"));
    t.setRuntimeProperties(scheduler::decodeProperties(text(item, u"Properties")));
    task = t;
}

void CSchedulerServiceClient::addTask(const SchedulerTask& task) {
    if (!task.isValid()) throw tovan::BadParameterException(kClass, "addTask", u"Task is invalid");
    std::vector<std::pair<WString, WString>> form = {
        {u"_actionType", u"add"},
        {u"_userid", userId_},
        {u"$name", task.getName()},
        {u"$protocol", task.getTaskSpec()},
        {u"$tasktype", SchedulerTask::toString(task.getTaskType())},
        {u"$triggertype", SchedulerTask::toString(task.getTriggerType())},
        {u"$triggerspec", task.getTriggerSpec()},
        {u"$eventid", task.getEventID()},
        {u"$properties", scheduler::encodeProperties(task.getRuntimeProperties().get())},
        {u"$disabled", SchedulerTask::toString(task.getDisabledReason())},
    };
    tovan::AutoCriticalSection hold(lock_);
    http_.postForm(url_, form);
}

void CSchedulerServiceClient::deleteTask(const WString& name) {
    WString url = tovan::format(u"%ls?%ls=%ls", url_, WString(tovan::util::urlEncodeComponent(WString(DeleteParameter))),
                                tovan::util::urlEncodeComponent(name));
    tovan::AutoCriticalSection hold(lock_);
    http_.postForm(url, {{u"_actionType", u"delete"}, {u"_userid", userId_}});
}

}  // namespace nvk

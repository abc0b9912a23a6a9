#pragma once
// SchedulerTask: one task the server runs on a schedule (a protocol, a
// service or a class, started by a trigger), and the calculation of the next
// run of a cron trigger.
//
// A cron trigger spec is seven fields separated by single blanks: second,
// minute, hour, day of month, month, day of week (1 Sunday to 7 Saturday),
// year. getNextRunTime understands four shapes of it:
//   daily    S M H * * ? *        every day at H:M:S
//   weekly   S M H ? * DOW *      on the days DOW names ("2,4", "2-6")
//   monthly  S M H DOM MON ? *    on the days DOM of the months MON
//   once     S M H DOM MON ? Y    once, at that date and time
// with S, M and H plain numbers. The search looks at most 1460 days (four
// years) ahead, which is enough to find the next 29 February.
#include <cstdint>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/Array.h"
#include "nvk/platform/DateTimeValue.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/Regex.h"
#include "nvk/platform/String.h"

namespace nvk {

/// Positions of the fields of a cron trigger spec.
inline constexpr int CRON_SECOND_IDX = 0;
inline constexpr int CRON_MINUTE_IDX = 1;
inline constexpr int CRON_HOUR_IDX = 2;
inline constexpr int CRON_DAYOFMONTH_IDX = 3;
inline constexpr int CRON_MONTH_IDX = 4;
inline constexpr int CRON_DAYOFWEEK_IDX = 5;
inline constexpr int CRON_YEAR_IDX = 6;

class NVK_EXPORT SchedulerTask {
public:
    // Fixed to int so that any number a caller or a file hands in is a value of the type:
    // isValid and the text functions refuse the unnamed ones instead of reading them undefined.
    enum TaskType : int { Protocol = 0, Service = 1, JavaClass = 2 };
    enum TriggerType : int { Cron = 0, Interval = 1, Once = 2, FileEvent = 3, ExternalEvent = 4 };
    enum SchedulerTaskGroup : int { Admin = 0, Core = 1, Package = 2, User = 3 };
    enum DisabledReason : int { NONE = 0, UNAUTHORIZED = 1, BLOCKED_BY_ADMIN = 2, INVALID_TRIGGER = 3, USER_DISABLED = 4, OTHER = 5 };
    enum TaskFrequency : int { FrequencyNone = 0, FrequencyOnce = 1, FrequencyDaily = 2, FrequencyWeekly = 3, FrequencyMonthly = 4 };

    /// The expression that splits a cron trigger spec into its seven fields.
    static constexpr char16_t CronExpression[] =
        u"([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+)";

    /// A Protocol task with a Cron trigger, group user, not disabled, every
    /// text empty and no runtime properties.
    SchedulerTask();
    /// Copies share the runtime property collection (it is a shared reference).
    SchedulerTask(const SchedulerTask& other) = default;
    SchedulerTask& operator=(const SchedulerTask& other) = default;
    /// Back to the state of a new task.
    void reset();

    const tovan::WString& getID() const { return id_; }
    void setID(const tovan::WString& id) { id_ = id; }
    const tovan::WString& getName() const { return name_; }
    void setName(const tovan::WString& name) { name_ = name; }
    TaskType getTaskType() const { return taskType_; }
    void setTaskType(TaskType type) { taskType_ = type; }
    /// What the task runs; one field read under the name that fits the task type.
    const tovan::WString& getTaskSpec() const { return taskSpec_; }
    void setTaskSpec(const tovan::WString& spec) { taskSpec_ = spec; }
    const tovan::WString& getProtocol() const { return taskSpec_; }
    const tovan::WString& getJavaClass() const { return taskSpec_; }
    const tovan::WString& getServiceUrl() const { return taskSpec_; }
    const tovan::WString& getFileSystemObject() const { return taskSpec_; }
    TriggerType getTriggerType() const { return triggerType_; }
    void setTriggerType(TriggerType type) { triggerType_ = type; }
    const tovan::WString& getTriggerSpec() const { return triggerSpec_; }
    void setTriggerSpec(const tovan::WString& spec) { triggerSpec_ = spec; }
    const tovan::WString& getEventID() const { return eventId_; }
    void setEventID(const tovan::WString& id) { eventId_ = id; }
    const tovan::WString& getOwner() const { return owner_; }
    void setOwner(const tovan::WString& owner) { owner_ = owner; }
    const tovan::WString& getPassword() const { return password_; }
    /// `encoded` says whether `text` is already in the stored (encoded) form.
    void setPassword(const tovan::WString& text, bool encoded) {
        password_ = text;
        passwordEncoded_ = encoded;
    }
    bool isPasswordEncoded() const { return passwordEncoded_; }
    SchedulerTaskGroup getGroup() const { return group_; }
    void setGroup(SchedulerTaskGroup group) { group_ = group; }
    /// The properties handed to the task when it runs ("Param:" keys of a
    /// definition file, without the prefix); null when there are none.
    const tovan::Ptr<CPropertyCollection>& getRuntimeProperties() const { return runtimeProperties_; }
    void setRuntimeProperties(tovan::Ptr<CPropertyCollection> properties) { runtimeProperties_ = std::move(properties); }
    DisabledReason getDisabledReason() const { return disabled_; }
    void setDisabledReason(DisabledReason reason) { disabled_ = reason; }
    bool isDisabled() const { return disabled_ != NONE; }

    /// A task the server can take: a name, a task spec and a trigger spec that
    /// are not empty (an ExternalEvent trigger needs an event ID instead of a
    /// spec), and known enumeration values.
    bool isValid() const;

    /// The text of each value; an unknown value gives the enumeration's
    /// "Unsupported ..." text, or raises it as BadParameterException (class
    /// "SchedulerTask", operation "toString") when `throwOnUnknown`.
    static tovan::WString toString(TaskType value, bool throwOnUnknown = false);
    static tovan::WString toString(TriggerType value, bool throwOnUnknown = false);
    static tovan::WString toString(SchedulerTaskGroup value, bool throwOnUnknown = false);
    static tovan::WString toString(DisabledReason value, bool throwOnUnknown = false);
    /// Texts back to values, compared without regard to case. An unknown text
    /// raises BadParameterException with the enumeration's "Unsupported ..."
    /// text (operation "toTaskType" and so on).
    static TaskType toTaskType(const tovan::WString& text);
    static TriggerType toTriggerType(const tovan::WString& text);
    static SchedulerTaskGroup toTaskGroup(const tovan::WString& text);
    static DisabledReason toDisabledReason(const tovan::WString& text);

    /// The next run of a Cron trigger after the current local time, `offset`
    /// minutes earlier than the trigger spec says (the offset of the server's zone,
    /// for instance). `regex` is a reusable expression object (set to
    /// CronExpression when it holds none) and `fields` receives the whole
    /// match and the seven fields. Returns false with `frequency` 0 for any
    /// other trigger type, a spec that is not seven fields, or one of none of
    /// the shapes, `next` then left as it was or holding the rejected date
    /// (a past once). A numeric field out of its range (hour 24, 30
    /// February) makes the trigger spec one of none of the shapes. A monthly spec
    /// whose month field names no month at all ("13", "0-5") has no run:
    /// false with `frequency` 0.
    ///
    /// The result is converted from UTC to the system's local time at the
    /// end, as the server does; where the system's zone is UTC that changes
    /// nothing but the label.
    bool getNextRunTime(tovan::DateTimeValue& next, TaskFrequency& frequency, int offset = 0,
                        tovan::vcRegex* regex = nullptr, tovan::Array<tovan::WString>* fields = nullptr) const;
    /// The same from the given time instead of the clock.
    bool getNextRunTimeFrom(const tovan::DateTimeValue& now, tovan::DateTimeValue& next, TaskFrequency& frequency,
                            int offset = 0, tovan::vcRegex* regex = nullptr,
                            tovan::Array<tovan::WString>* fields = nullptr) const;

    /// The text of a set of 1-based numbers held as `count` flags (flag i is
    /// number i + 1): runs of three or more as "a-b", others one by one, items
    /// joined by ","; "" when no flag is set. ExtractCronField reads it back.
    static void GetCronField(const bool* flags, int count, tovan::WString& text);
    /// Sets the flags of the numbers `text` names: items separated by ",",
    /// each "a-b" or "a", numbers read as their leading digits (text without
    /// any reads as 0). Numbers 1 to count set flags 0 to count - 1; larger
    /// ones are ignored and an item whose start reads as 0 ("0-5") sets
    /// nothing. An item whose end reads as 0 ("0", "*", "3-*") sets every flag.
    static void ExtractCronField(const tovan::WString& text, bool* flags, int count);
    /// The index of the day-of-week flags for DateTimeValue's day number (1
    /// Sunday to 7 Saturday): the number minus one. Another number raises
    /// BadParameterException "Day of week %d is out of range (1 to 7)".
    static int ConvertDTVDayOfWeekToCron(int dayOfWeek);

    /// Writes the task into `out` under the definition file's keys:
    /// "TaskName", "TaskType", "TaskSpec", "TriggerType", "TriggerSpec",
    /// "TaskOwner", "Disabled" (the reason's text), "TaskID", "EventID",
    /// "TaskGroup", and each runtime property as "Param:" and its name.
    /// Properties of those names already there are replaced; others stay.
    void toPropertyCollection(tovan::iPropertyCollection& out) const;

    /// The folder of the scheduler's configuration: the server's root (the
    /// environment variable NVK_SERVER_ROOT) followed by "/config/scheduler".
    /// False, `path` untouched, when the variable is not set or empty.
    static bool buildSchedulerRootPath(tovan::WString& path);

private:
    tovan::WString id_ = tovan::WString::empty(), name_ = tovan::WString::empty(), taskSpec_ = tovan::WString::empty(),
                   triggerSpec_ = tovan::WString::empty(), eventId_ = tovan::WString::empty(),
                   owner_ = tovan::WString::empty(), password_ = tovan::WString::empty();
    TaskType taskType_ = Protocol;
    TriggerType triggerType_ = Cron;
    SchedulerTaskGroup group_ = User;
    DisabledReason disabled_ = NONE;
    bool passwordEncoded_ = false;
    tovan::Ptr<CPropertyCollection> runtimeProperties_;
};

}  // namespace nvk

#include "nvk/services/SchedulerTask.h"

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "nvk/platform/Exception.h"
#include "nvk/platform/NumberText.h"

namespace nvk {

using tovan::BadParameterException;
using tovan::DateTimeValue;
using tovan::WString;

namespace {

constexpr const char* kClass = "SchedulerTask";

constexpr const char16_t* kTaskTypes[] = {u"Protocol", u"Service", u"JavaClass"};
constexpr const char16_t* kTriggerTypes[] = {u"Cron", u"Interval", u"Once", u"FileEvent", u"ExternalEvent"};
constexpr const char16_t* kGroups[] = {u"admin", u"core", u"package", u"user"};
constexpr const char16_t* kDisabledReasons[] = {u"NONE",    u"UNAUTHORIZED", u"BLOCKED_BY_ADMIN", u"INVALID_TRIGGER",
                                                u"USER_DISABLED", u"OTHER"};

template <size_t N>
WString enumText(const char16_t* const (&texts)[N], int value, const char16_t* unsupported, bool throwOnUnknown) {
    if (value >= 0 && size_t(value) < N) return WString(texts[value]);
    if (throwOnUnknown) throw BadParameterException(kClass, "toString", u"%ls", WString(unsupported));
    return WString(unsupported);
}

template <size_t N>
int enumValue(const char16_t* const (&texts)[N], const WString& text) {
    for (size_t i = 0; i < N; ++i)
        if (tovan::equalsNoCase(text, WString(texts[i]))) return int(i);
    return -1;
}

// The framework's string-to-integer reading: leading blanks, an optional
// sign, then as many digits as there are; no digits read as 0. Values beyond
// 32 bits stop at the nearest bound.
int leadingInteger(std::u16string_view text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == u' ' || text[i] == u'\t')) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == u'+' || text[i] == u'-')) negative = text[i++] == u'-';
    int64_t value = 0;
    for (; i < text.size() && text[i] >= u'0' && text[i] <= u'9'; ++i)
        if (value <= INT_MAX) value = value * 10 + (text[i] - u'0');
    if (negative) value = -value;
    return int(value > INT_MAX ? INT_MAX : value < INT_MIN ? INT_MIN : value);
}

// "Numeric" in the shapes: one or more decimal digits and nothing else.
bool isNumeric(const WString& text, int& value) {
    std::u16string_view v = text.view();
    if (v.empty() || v.size() > 9) return false;
    for (char16_t c : v)
        if (c < u'0' || c > u'9') return false;
    value = leadingInteger(v);
    return true;
}

bool isText(const WString& field, const char16_t* text) { return field.view() == text; }

// A time of day of the trigger spec, or false when a field is no number or out of range.
bool timeOfDay(const tovan::Array<WString>& f, int& hour, int& minute, int& second) {
    return isNumeric(f[1 + CRON_SECOND_IDX], second) && isNumeric(f[1 + CRON_MINUTE_IDX], minute) &&
           isNumeric(f[1 + CRON_HOUR_IDX], hour) && hour <= 23 && minute <= 59 && second <= 59;
}

DateTimeValue todayAt(const DateTimeValue& now, int hour, int minute, int second) {
    return DateTimeValue(now.getYear(), now.getMonth(), now.getDay(), hour, minute, second, 0, WString(u"UTC"));
}

}  // namespace

SchedulerTask::SchedulerTask() = default;

void SchedulerTask::reset() { *this = SchedulerTask(); }

bool SchedulerTask::isValid() const {
    if (taskType_ < Protocol || taskType_ > JavaClass || triggerType_ < Cron || triggerType_ > ExternalEvent ||
        group_ < Admin || group_ > User || disabled_ < NONE || disabled_ > OTHER)
        return false;
    if (name_.isEmpty() || taskSpec_.isEmpty()) return false;
    return triggerType_ == ExternalEvent ? !eventId_.isEmpty() : !triggerSpec_.isEmpty();
}

WString SchedulerTask::toString(TaskType value, bool throwOnUnknown) {
    return enumText(kTaskTypes, value, u"Unsupported Task Type", throwOnUnknown);
}
WString SchedulerTask::toString(TriggerType value, bool throwOnUnknown) {
    return enumText(kTriggerTypes, value, u"Unsupported Trigger Type", throwOnUnknown);
}
WString SchedulerTask::toString(SchedulerTaskGroup value, bool throwOnUnknown) {
    return enumText(kGroups, value, u"Unsupported task group", throwOnUnknown);
}
WString SchedulerTask::toString(DisabledReason value, bool throwOnUnknown) {
    return enumText(kDisabledReasons, value, u"Unsupported Disabled value", throwOnUnknown);
}

SchedulerTask::TaskType SchedulerTask::toTaskType(const WString& text) {
    int v = enumValue(kTaskTypes, text);
    if (v < 0) throw BadParameterException(kClass, "toTaskType", u"Unsupported Task Type");
    return TaskType(v);
}
SchedulerTask::TriggerType SchedulerTask::toTriggerType(const WString& text) {
    int v = enumValue(kTriggerTypes, text);
    if (v < 0) throw BadParameterException(kClass, "toTriggerType", u"Unsupported Trigger Type");
    return TriggerType(v);
}
SchedulerTask::SchedulerTaskGroup SchedulerTask::toTaskGroup(const WString& text) {
    int v = enumValue(kGroups, text);
    if (v < 0) throw BadParameterException(kClass, "toTaskGroup", u"Unsupported task group");
    return SchedulerTaskGroup(v);
}
SchedulerTask::DisabledReason SchedulerTask::toDisabledReason(const WString& text) {
    int v = enumValue(kDisabledReasons, text);
    if (v < 0) throw BadParameterException(kClass, "toDisabledReason", u"Unsupported Disabled value");
    return DisabledReason(v);
}

bool SchedulerTask::getNextRunTime(DateTimeValue& next, TaskFrequency& frequency, int offset, tovan::vcRegex* regex,
                                   tovan::Array<WString>* fields) const {
    return getNextRunTimeFrom(DateTimeValue::now(), next, frequency, offset, regex, fields);
}

bool SchedulerTask::getNextRunTimeFrom(const DateTimeValue& clock, DateTimeValue& next, TaskFrequency& frequency,
                                       int offset, tovan::vcRegex* regex, tovan::Array<WString>* fields) const {
    frequency = FrequencyNone;
    if (triggerType_ != Cron) return false;
    tovan::vcRegex local;
    tovan::vcRegex& re = regex ? *regex : local;
    if (!re.hasExpression()) re.setExpression(WString(CronExpression));
    tovan::Array<WString> found;
    tovan::Array<WString>& f = fields ? *fields : found;
    // The local time read as if it were UTC: the calculation works on the
    // fields, and the final conversion reads the result the same way.
    DateTimeValue now = clock;
    now.setTimeZone(u"UTC");
    const int64_t shift = -int64_t(offset);
    if (!re.search(triggerSpec_, &f)) return false;

    const WString& dom = f[1 + CRON_DAYOFMONTH_IDX];
    const WString& month = f[1 + CRON_MONTH_IDX];
    const WString& dow = f[1 + CRON_DAYOFWEEK_IDX];
    const WString& year = f[1 + CRON_YEAR_IDX];
    int hour = 0, minute = 0, second = 0;
    const bool timed = timeOfDay(f, hour, minute, second);

    if (timed && isText(dom, u"*") && isText(month, u"*") && isText(dow, u"?") && isText(year, u"*")) {
        frequency = FrequencyDaily;
        next = todayAt(now, hour, minute, second);
        next.addMinutes(shift);
        if (next.isBefore(now)) next.addDays(1);
        if (next.isBefore(now)) next.addDays(1);
    } else if (timed && isText(dom, u"?") && isText(month, u"*") && isText(year, u"*")) {
        frequency = FrequencyWeekly;
        next = todayAt(now, hour, minute, second);
        next.addMinutes(shift);
        bool days[7];
        ExtractCronField(dow, days, 7);
        if (!days[ConvertDTVDayOfWeekToCron(next.dayOfWeek())] || next.isBefore(now))
            for (int i = 0; i < 7; ++i) {
                next.addDays(1);
                if (days[ConvertDTVDayOfWeekToCron(next.dayOfWeek())]) break;
            }
    } else if (timed && isText(dow, u"?") && isText(year, u"*")) {
        frequency = FrequencyMonthly;
        next = todayAt(now, hour, minute, second);
        next.addMinutes(shift);
        bool months[12], days[31];
        ExtractCronField(month, months, 12);
        ExtractCronField(dom, days, 31);
        // With no month at all ("13", "0-5") the month walk below would never
        // stop: such a spec has no run, rather than a caller that hangs.
        const bool anyMonth = std::find(months, months + 12, true) != months + 12;
        if (!anyMonth) frequency = FrequencyNone;
        auto matches = [&] { return months[next.getMonth() - 1] && days[next.getDay() - 1] && !next.isBefore(now); };
        while (anyMonth && !matches()) {
            // Four years bound the search for dates such as 29 February.
            if (next.julianDay() - now.julianDay() >= 1460) {
                frequency = FrequencyNone;
                break;
            }
            while (next.isBefore(now)) next.addDays(1);
            while (!months[next.getMonth() - 1]) {
                next.addMonths(1);
                next.setDate(next.getYear(), next.getMonth(), 1);
            }
            do {
                if (days[next.getDay() - 1]) break;
                next.addDays(1);
            } while (next.getDay() != 1);
        }
    } else {
        int d = 0, m = 0, y = 0;
        if (!timed || !isNumeric(dom, d) || !isNumeric(month, m) || !isNumeric(year, y) || y < 1 || y > 9999 ||
            m < 1 || m > 12 || d < 1 || d > DateTimeValue::daysInMonth(y, m))
            return false;
        frequency = FrequencyOnce;
        next = DateTimeValue(y, m, d, hour, minute, second, 0, WString(u"UTC"));
        next.addMinutes(shift);
        if (next.isBefore(now)) frequency = FrequencyNone;
    }
    next.convertToLocal();
    return frequency != FrequencyNone;
}

void SchedulerTask::GetCronField(const bool* flags, int count, WString& text) {
    std::u16string out;
    for (int i = 0; i < count;) {
        if (!flags[i]) {
            ++i;
            continue;
        }
        int end = i;
        while (end + 1 < count && flags[end + 1]) ++end;
        if (!out.empty()) out += u',';
        if (end - i >= 2) {
            out += tovan::integerWide(i + 1).view();
            out += u'-';
            out += tovan::integerWide(end + 1).view();
            i = end + 1;
        } else {
            out += tovan::integerWide(i + 1).view();
            ++i;
        }
    }
    text = WString(std::move(out));
}

// The walk over an item runs over unsigned indexes from start - 1 to end - 1.
// Read literally, an end of 0 makes that bound 0xFFFFFFFF, which every index
// satisfies, so the walk would never end; by the time it wrapped around it
// would have set every flag. We set every flag and go on, so that no trigger
// spec ("0 0 9 ? * * *", weekly on every day) can hang a caller.
void SchedulerTask::ExtractCronField(const WString& text, bool* flags, int count) {
    for (int i = 0; i < count; ++i) flags[i] = false;
    std::u16string_view rest = text.view();
    while (true) {
        size_t comma = rest.find(u',');
        std::u16string_view item = rest.substr(0, comma);
        size_t dash = item.find(u'-');
        int a = leadingInteger(item.substr(0, dash));
        int b = dash == std::u16string_view::npos ? a : leadingInteger(item.substr(dash + 1));
        uint32_t start = uint32_t(a) - 1, end = uint32_t(b) - 1;
        if (end == 0xFFFFFFFFu) {
            for (int i = 0; i < count; ++i) flags[i] = true;
        } else {
            for (uint32_t i = start; i <= end && i < uint32_t(count); ++i) flags[i] = true;
        }
        if (comma == std::u16string_view::npos) break;
        rest.remove_prefix(comma + 1);
    }
}

int SchedulerTask::ConvertDTVDayOfWeekToCron(int dayOfWeek) {
    if (dayOfWeek < 1 || dayOfWeek > 7)
        throw BadParameterException(kClass, "ConvertDTVDayOfWeekToCron", u"Day of week %d is out of range (1 to 7)",
                                    dayOfWeek);
    return dayOfWeek - 1;
}

void SchedulerTask::toPropertyCollection(tovan::iPropertyCollection& out) const {
    // A property already there is replaced whole, so that it takes the
    // task's type of value as well as the value.
    auto put = [&out](const WString& name, const tovan::Value& value) {
        out.remove(name);
        out.define(name, value);
    };
    put(u"TaskName", tovan::StringValue(name_));
    put(u"TaskType", tovan::StringValue(toString(taskType_)));
    put(u"TaskSpec", tovan::StringValue(taskSpec_));
    put(u"TriggerType", tovan::StringValue(toString(triggerType_)));
    put(u"TriggerSpec", tovan::StringValue(triggerSpec_));
    put(u"TaskOwner", tovan::StringValue(owner_));
    put(u"Disabled", tovan::StringValue(toString(disabled_)));
    put(u"TaskID", tovan::StringValue(id_));
    put(u"EventID", tovan::StringValue(eventId_));
    put(u"TaskGroup", tovan::StringValue(toString(group_)));
    if (!runtimeProperties_) return;
    for (int i = 0; i < runtimeProperties_->getSize(); ++i) {
        const tovan::iProperty& p = runtimeProperties_->get(i);
        put(WString(u"Param:").append(p.getName().view()), p.getValue());
    }
}

bool SchedulerTask::buildSchedulerRootPath(WString& path) {
    const char* root = std::getenv("NVK_SERVER_ROOT");
    if (!root || !*root) return false;
    std::string text = root;
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    path = tovan::toWide(text + "/config/scheduler");
    return true;
}

}  // namespace nvk

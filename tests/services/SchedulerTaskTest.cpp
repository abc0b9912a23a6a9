#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <random>
#include <sstream>

#include "nvk/services/SchedulerTask.h"
#include "tests/support/TestSupport.h"

using namespace nvk;
using tovan::Array;
using tovan::BadParameterException;
using tovan::DateTimeValue;
using tovan::WString;
using nvktest::utf8;
using nvktest::ZoneScope;

namespace {

SchedulerTask cronTask(const std::string& spec) {
    SchedulerTask t;
    t.setTriggerSpec(tovan::toWide(spec));
    return t;
}

struct NextRun {
    bool found;
    int frequency;
    std::string next;  // "YYYY-MM-DDThh:mm:ss"
};

std::string fields(const DateTimeValue& v) {
    char text[32];
    snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d", v.getYear(), v.getMonth(), v.getDay(), v.getHour(),
             v.getMinute(), v.getSecond());
    return text;
}

NextRun nextRun(const std::string& spec, const DateTimeValue& now, int offset = 0) {
    DateTimeValue next;
    SchedulerTask::TaskFrequency frequency;
    bool found = cronTask(spec).getNextRunTimeFrom(now, next, frequency, offset);
    return {found, int(frequency), fields(next)};
}

std::string flagsText(const std::string& text, int count) {
    bool flags[64];
    SchedulerTask::ExtractCronField(tovan::toWide(text), flags, count);
    std::string out;
    for (int i = 0; i < count; ++i) out += flags[i] ? '1' : '0';
    return out;
}

}  // namespace

// The cases every reader of the calculation works out by hand first.
TEST(SchedulerTaskNextRun, TheFourShapesByHand) {
    ZoneScope utc("UTC0");
    const DateTimeValue three(2024, 3, 14, 3, 0, 0);  // a Thursday (day 5)
    using S = SchedulerTask;
    const struct {
        const char* spec;
        DateTimeValue now;
        int offset, frequency;
        const char* next;  // null where nothing is left in it
    } rows[] = {
        {"0 30 2 * * ? *", three, 0, S::FrequencyDaily, "2024-03-15T02:30:00"},
        {"0 30 4 * * ? *", three, 0, S::FrequencyDaily, "2024-03-14T04:30:00"},
        // Weekly on Mondays and Wednesdays: today only when 09:00 is still ahead.
        {"0 0 9 ? * 2,4 *", three, 0, S::FrequencyWeekly, "2024-03-18T09:00:00"},
        {"0 0 9 ? * 2,4 *", DateTimeValue(2024, 3, 13, 8, 59, 59), 0, S::FrequencyWeekly, "2024-03-13T09:00:00"},
        {"0 0 9 ? * 2,4 *", DateTimeValue(2024, 3, 13, 9, 0, 1), 0, S::FrequencyWeekly, "2024-03-18T09:00:00"},
        // 29 February within four years; 31 February never.
        {"0 0 0 29 2 ? *", DateTimeValue(2024, 3, 1, 0, 0, 0), 0, S::FrequencyMonthly, "2028-02-29T00:00:00"},
        {"0 0 0 31 2 ? *", three, 0, S::FrequencyNone, nullptr},
        // A date gone by has no run; the rejected date is left in next.
        {"0 0 12 1 1 ? 2000", three, 0, S::FrequencyNone, "2000-01-01T12:00:00"},
        {"0 0 12 1 1 ? 2031", three, 0, S::FrequencyOnce, "2031-01-01T12:00:00"},
        // The offset moves the run earlier by that many minutes.
        {"0 30 2 * * ? *", three, 60, S::FrequencyDaily, "2024-03-15T01:30:00"},
        {"0 30 2 * * ? *", three, -60, S::FrequencyDaily, "2024-03-14T03:30:00"},
    };
    for (const auto& r : rows) {
        NextRun got = nextRun(r.spec, r.now, r.offset);
        EXPECT_EQ(got.found, r.frequency != S::FrequencyNone) << r.spec;
        EXPECT_EQ(got.frequency, r.frequency) << r.spec;
        if (r.next) {
            EXPECT_EQ(got.next, r.next) << r.spec << " offset " << r.offset;
        }
    }
}

TEST(SchedulerTaskNextRun, WhatIsNotCalculated) {
    ZoneScope utc("UTC0");
    DateTimeValue now(2024, 3, 14, 3, 0, 0);
    SchedulerTask interval = cronTask("0 30 2 * * ? *");
    interval.setTriggerType(SchedulerTask::Interval);
    DateTimeValue next(2001, 2, 3), before = next;
    SchedulerTask::TaskFrequency frequency = SchedulerTask::FrequencyDaily;
    Array<WString> f;
    EXPECT_FALSE(interval.getNextRunTimeFrom(now, next, frequency, 0, nullptr, &f));
    EXPECT_EQ(frequency, SchedulerTask::FrequencyNone);
    EXPECT_TRUE(next == before);
    EXPECT_EQ(f.size(), 0u) << "returns before the expression is searched";

    for (const char* spec : {"0 30 2 * * ?", "", "0 30 2 * * L *", "0 30 x * * ? *", "0 30 24 * * ? *",
                             "0 60 2 * * ? *", "0 0 0 30 2 ? 2030", "0 0 0 1 13 ? 2030", "0 0 0 1 1 ? 0"}) {
        NextRun r = nextRun(spec, now);
        EXPECT_FALSE(r.found) << spec;
        EXPECT_EQ(r.frequency, 0) << spec;
    }
    // The caller's expression object is filled in and reused; the fields come back.
    tovan::vcRegex re;
    SchedulerTask t = cronTask("0 15 10 ? * 1-7 *");
    ASSERT_TRUE(t.getNextRunTimeFrom(now, next, frequency, 0, &re, &f));
    EXPECT_EQ(utf8(re.getExpression()), "([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+) ([^\\s]+)");
    ASSERT_EQ(f.size(), 8u);
    EXPECT_EQ(utf8(f[1 + CRON_MINUTE_IDX]), "15");
    EXPECT_EQ(utf8(f[1 + CRON_DAYOFWEEK_IDX]), "1-7");
}

// The departure: an item whose end reads as 0 sets every flag instead of
// walking without end, so a weekly "*" means every day.
TEST(SchedulerTaskNextRun, AStarOrZeroEndSetsEveryFlag) {
    ZoneScope utc("UTC0");
    EXPECT_EQ(flagsText("*", 7), "1111111");
    EXPECT_EQ(flagsText("0", 7), "1111111");
    EXPECT_EQ(flagsText("3-*", 7), "1111111");
    EXPECT_EQ(flagsText("0-5", 7), "0000000");
    EXPECT_EQ(flagsText("0-5,7", 7), "0000001");
    NextRun r = nextRun("0 0 9 ? * * *", DateTimeValue(2024, 3, 14, 10, 0, 0));
    EXPECT_EQ(r.frequency, SchedulerTask::FrequencyWeekly);
    EXPECT_EQ(r.next, "2024-03-15T09:00:00");
}

// The departure: a monthly spec that names no month has no run, where the
// month-by-month walk would go on for ever.
TEST(SchedulerTaskNextRun, AMonthFieldWithNoMonthHasNoRun) {
    ZoneScope utc("UTC0");
    DateTimeValue now(2024, 3, 14, 3, 0, 0);
    for (const char* spec : {"0 0 0 1 13 ? *", "0 0 0 1 0-5 ? *", "0 0 0 1 14-20,15 ? *", "0 0 0 * 13 ? *"}) {
        DateTimeValue next(2001, 2, 3);
        SchedulerTask::TaskFrequency frequency = SchedulerTask::FrequencyDaily;
        EXPECT_FALSE(cronTask(spec).getNextRunTimeFrom(now, next, frequency)) << spec;
        EXPECT_EQ(frequency, SchedulerTask::FrequencyNone) << spec;
    }
    // One month that exists among those that do not is enough.
    NextRun r = nextRun("0 0 0 1 13,0-5,4 ? *", now);
    EXPECT_EQ(r.frequency, SchedulerTask::FrequencyMonthly);
    EXPECT_EQ(r.next, "2024-04-01T00:00:00");
}

TEST(SchedulerTaskCronFields, ItemsListsAndRanges) {
    EXPECT_EQ(flagsText("2,4", 7), "0101000");
    EXPECT_EQ(flagsText("2-4,7", 7), "0111001");
    EXPECT_EQ(flagsText("6-9", 7), "0000011") << "numbers past the count are ignored";
    EXPECT_EQ(flagsText("5-3", 7), "0000000");
    EXPECT_EQ(flagsText("2x-3y", 7), "0110000") << "leading digits count";
    EXPECT_EQ(flagsText(" 3", 7), "0010000");
    EXPECT_EQ(flagsText("99999999999", 7), "0000000");
    EXPECT_EQ(flagsText("1-99999999999", 12), "111111111111");

    // GetCronField's text reads back to the same flags.
    std::mt19937 rng(7);
    for (int round = 0; round < 2000; ++round) {
        int count = 1 + int(rng() % 40);
        bool flags[40], back[40];
        bool any = false;
        for (int i = 0; i < count; ++i) any |= flags[i] = rng() % 3 == 0;
        WString text;
        SchedulerTask::GetCronField(flags, count, text);
        if (!any) {
            EXPECT_EQ(utf8(text), "");
            continue;
        }
        SchedulerTask::ExtractCronField(text, back, count);
        for (int i = 0; i < count; ++i) ASSERT_EQ(back[i], flags[i]) << utf8(text);
    }
    bool sample[10] = {true, true, true, false, true, true, false, false, true, true};
    WString text;
    SchedulerTask::GetCronField(sample, 10, text);
    EXPECT_EQ(utf8(text), "1-3,5,6,9,10");

    EXPECT_EQ(SchedulerTask::ConvertDTVDayOfWeekToCron(1), 0);
    EXPECT_EQ(SchedulerTask::ConvertDTVDayOfWeekToCron(7), 6);
    EXPECT_THROW_MSG(SchedulerTask::ConvertDTVDayOfWeekToCron(8), BadParameterException,
                     "Day of week 8 is out of range (1 to 7)");
}

// The result is read as UTC and converted to the system's zone at the end.
TEST(SchedulerTaskNextRun, TheResultIsConvertedToLocalTime) {
    ZoneScope eastern("EST5");
    DateTimeValue next;
    SchedulerTask::TaskFrequency frequency;
    ASSERT_TRUE(cronTask("0 30 2 * * ? *").getNextRunTimeFrom(DateTimeValue(2024, 3, 14, 3, 0, 0), next, frequency));
    EXPECT_EQ(utf8(next.toString()), "2024-03-14T21:30:00 EST");
}

namespace {

// ---- the second calculation: look at every day from today on -----------------

struct Spec {
    int second, minute, hour;
    std::string dom, month, dow, year;
    std::string text() const {
        std::ostringstream s;
        s << second << ' ' << minute << ' ' << hour << ' ' << dom << ' ' << month << ' ' << dow << ' ' << year;
        return s.str();
    }
};

// Whether `n` is in a well-formed list of items "a", "a-b" and "*".
bool inSet(const std::string& text, int n) {
    std::stringstream items(text);
    std::string item;
    while (std::getline(items, item, ',')) {
        if (item == "*") return true;
        size_t dash = item.find('-');
        int a = std::stoi(item.substr(0, dash));
        int b = dash == std::string::npos ? a : std::stoi(item.substr(dash + 1));
        if (a <= n && n <= b) return true;
    }
    return false;
}

// The run on day `d`: that day at the trigger's hour, minute and second, moved by the offset.
DateTimeValue runOn(DateTimeValue d, const Spec& s, int offset) {
    d.setTime(s.hour, s.minute, s.second);
    d.addMinutes(-offset);
    return d;
}

struct Expected {
    int frequency;
    DateTimeValue next;
    bool edge = false;  // within a month of the four-year bound: checked by hand, not here
};

Expected bruteForce(const Spec& s, const DateTimeValue& now, int offset) {
    DateTimeValue today(now.getYear(), now.getMonth(), now.getDay());
    if (s.dom == "*" && s.month == "*") {  // daily
        for (DateTimeValue d = today;; d.addDays(1))
            if (!runOn(d, s, offset).isBefore(now)) return {2, runOn(d, s, offset)};
    }
    if (s.dom == "?") {  // weekly; "today" and "the next seven days" are the shift's days
        for (DateTimeValue d = today;; d.addDays(1)) {
            DateTimeValue run = runOn(d, s, offset);
            if (inSet(s.dow, run.dayOfWeek()) && !run.isBefore(now)) return {3, run};
            if (d.julianDay() - today.julianDay() > 8) return {3, run};
        }
    }
    if (s.year == "*") {  // monthly
        for (DateTimeValue d = today; d.julianDay() - now.julianDay() < 1460 + 70; d.addDays(1)) {
            DateTimeValue run = runOn(d, s, offset);
            if (!run.isBefore(now) && inSet(s.month, run.getMonth()) && inSet(s.dom, run.getDay())) {
                int64_t ahead = run.julianDay() - now.julianDay();
                return {ahead < 1460 ? 4 : 0, run, ahead >= 1460 - 1};
            }
        }
        return {0, DateTimeValue()};
    }
    DateTimeValue run = runOn(DateTimeValue(std::stoi(s.year), std::stoi(s.month), std::stoi(s.dom)), s, offset);
    return {run.isBefore(now) ? 0 : 1, run};
}

std::string randomItems(std::mt19937& rng, int count) {
    std::string out;
    int items = 1 + int(rng() % 3);
    for (int i = 0; i < items; ++i) {
        int a = 1 + int(rng() % count);
        if (!out.empty()) out += ',';
        out += std::to_string(a);
        if (rng() % 2) out += "-" + std::to_string(a + int(rng() % (count - a + 1)));
    }
    return out;
}

DateTimeValue randomTime(std::mt19937& rng) {
    int year = 1999 + int(rng() % 32), month = 1 + int(rng() % 12);
    static const int endDays[] = {1, 28, 29, 30, 31};
    int day = rng() % 2 ? endDays[rng() % 5] : 1 + int(rng() % 31);
    day = std::min(day, DateTimeValue::daysInMonth(year, month));
    return DateTimeValue(year, month, day, int(rng() % 24), int(rng() % 60), int(rng() % 60));
}

}  // namespace

// Thousands of random well-formed specs and times, each shape against the
// day-by-day search, with offsets of up to a day either way (within which
// the calculation's fixed number of steps reaches the answer).
TEST(SchedulerTaskNextRun, AgreesWithADayByDaySearch) {
    ZoneScope utc("UTC0");
    std::mt19937 rng(20240229);
    int checked[5] = {}, edges = 0;
    for (int round = 0; round < 8000; ++round) {
        Spec s{int(rng() % 60), int(rng() % 60), int(rng() % 24), "*", "*", "?", "*"};
        DateTimeValue now = randomTime(rng);
        int offset = rng() % 3 == 0 ? 0 : int(rng() % 2879) - 1439;
        switch (round % 4) {
            case 0:
                break;
            case 1:
                s.dom = "?";
                s.dow = rng() % 8 == 0 ? "*" : randomItems(rng, 7);
                break;
            case 2:
                s.dom = rng() % 6 == 0 ? "*" : (rng() % 3 ? randomItems(rng, 31) : std::to_string(28 + rng() % 4));
                s.month = rng() % 4 == 0 && s.dom != "*" ? "*" : randomItems(rng, 12);
                break;
            default: {
                DateTimeValue when = randomTime(rng);
                s.year = std::to_string(when.getYear());
                s.month = std::to_string(when.getMonth());
                s.dom = std::to_string(when.getDay());
            }
        }
        if (s.dom == "?" && offset > 0) {
            // Past the first day a weekly run is not compared with now again:
            // a run moved earlier than the time of day now is found a day late.
            DateTimeValue tomorrow = runOn(DateTimeValue(now.getYear(), now.getMonth(), now.getDay()), s, offset);
            tomorrow.addDays(1);
            if (tomorrow.isBefore(now)) continue;
        }
        Expected want = bruteForce(s, now, offset);
        if (want.edge) {
            ++edges;
            continue;
        }
        NextRun got = nextRun(s.text(), now, offset);
        ASSERT_EQ(got.frequency, want.frequency) << s.text() << " at " << fields(now) << " offset " << offset;
        ASSERT_EQ(got.found, want.frequency != 0);
        if (want.frequency != 0) {
            ASSERT_EQ(got.next, fields(want.next)) << s.text() << " at " << fields(now) << " offset " << offset;
        }
        ++checked[want.frequency];
    }
    for (int f = 0; f < 5; ++f) EXPECT_GT(checked[f], 100) << "frequency " << f << " was hardly ever reached";
    EXPECT_LT(edges, 200);
}

// The bound is checked at the start of each step of the month walk, and a
// step from one 1 March to the next covers a whole year: a 29 February is
// found when the last 1 March before it lies fewer than 1460 days ahead.
TEST(SchedulerTaskNextRun, TheFourYearEdge) {
    ZoneScope utc("UTC0");
    // 2100 is no leap year: after 2096 the next 29 February is in 2104, and
    // 1 March 2103 is 1460 days after 1 March 2099.
    EXPECT_EQ(nextRun("0 0 0 29 2 ? *", DateTimeValue(2096, 3, 1)).frequency, 0);
    NextRun atBound = nextRun("0 0 0 29 2 ? *", DateTimeValue(2099, 3, 1));
    EXPECT_FALSE(atBound.found);
    EXPECT_EQ(atBound.frequency, 0);
    NextRun inside = nextRun("0 0 0 29 2 ? *", DateTimeValue(2099, 3, 2));
    EXPECT_EQ(inside.frequency, SchedulerTask::FrequencyMonthly);
    EXPECT_EQ(inside.next, "2104-02-29T00:00:00");
    // The bound counts calendar days: a minute before midnight of 1 March 2099
    // is as far from 2103 as its midnight, whatever the offset.
    EXPECT_EQ(nextRun("0 0 0 29 2 ? *", DateTimeValue(2099, 3, 1, 23, 59), -1).frequency, 0);
    EXPECT_EQ(nextRun("0 0 0 29 2 ? *", DateTimeValue(2099, 3, 2), 1).next, "2104-02-29T23:59:00");
    // Day 31 of a month that has 30 days: searched until the bound, then none.
    EXPECT_EQ(nextRun("0 0 0 31 4,6,9,11 ? *", DateTimeValue(2024, 1, 1)).frequency, 0);
}

TEST(SchedulerTask, EnumerationTexts) {
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::JavaClass)), "JavaClass");
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::ExternalEvent)), "ExternalEvent");
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::Package)), "package");
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::BLOCKED_BY_ADMIN)), "BLOCKED_BY_ADMIN");
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::TaskType(3))), "Unsupported Task Type");
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::TriggerType(-1))), "Unsupported Trigger Type");
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::SchedulerTaskGroup(4))), "Unsupported task group");
    EXPECT_EQ(utf8(SchedulerTask::toString(SchedulerTask::DisabledReason(6))), "Unsupported Disabled value");
    EXPECT_THROW_MSG(SchedulerTask::toString(SchedulerTask::TaskType(9), true), BadParameterException,
                     "Unsupported Task Type");
    EXPECT_THROW_MSG(SchedulerTask::toString(SchedulerTask::DisabledReason(9), true), BadParameterException,
                     "Unsupported Disabled value");
    EXPECT_EQ(SchedulerTask::toTaskType(u"service"), SchedulerTask::Service);
    EXPECT_EQ(SchedulerTask::toTriggerType(u"FileEvent"), SchedulerTask::FileEvent);
    EXPECT_EQ(SchedulerTask::toTaskGroup(u"Core"), SchedulerTask::Core);
    EXPECT_EQ(SchedulerTask::toDisabledReason(u"USER_DISABLED"), SchedulerTask::USER_DISABLED);
    EXPECT_THROW_MSG(SchedulerTask::toTaskType(u"Script"), BadParameterException, "Unsupported Task Type");
    EXPECT_THROW_MSG(SchedulerTask::toTriggerType(u""), BadParameterException, "Unsupported Trigger Type");
    EXPECT_THROW_MSG(SchedulerTask::toTaskGroup(u"users"), BadParameterException, "Unsupported task group");
    EXPECT_THROW_MSG(SchedulerTask::toDisabledReason(u"YES"), BadParameterException, "Unsupported Disabled value");
}

TEST(SchedulerTask, ValidityPropertiesAndCopies) {
    SchedulerTask t;
    EXPECT_FALSE(t.isValid());
    t.setName(u"nightly");
    t.setTaskSpec(u"Protocols/Clean.json");
    EXPECT_FALSE(t.isValid()) << "no trigger spec";
    t.setTriggerSpec(u"0 30 2 * * ? *");
    EXPECT_TRUE(t.isValid());
    t.setTriggerType(SchedulerTask::ExternalEvent);
    EXPECT_FALSE(t.isValid()) << "an event trigger needs its event";
    t.setEventID(u"upload-done");
    EXPECT_TRUE(t.isValid());
    t.setTaskType(SchedulerTask::TaskType(7));
    EXPECT_FALSE(t.isValid());
    t.setTaskType(SchedulerTask::Service);

    tovan::Ptr<CPropertyCollection> params(CPropertyCollection::newInstance());
    params->define(u"Input Folder", u"/data/in\u00e9");
    params->define(u"Limit", tovan::IntegerValue(5));
    t.setRuntimeProperties(params);
    t.setDisabledReason(SchedulerTask::USER_DISABLED);
    EXPECT_TRUE(t.isDisabled());
    SchedulerTask copy = t;
    EXPECT_EQ(copy.getRuntimeProperties().get(), params.get()) << "copies share the runtime properties";

    tovan::Ptr<CPropertyCollection> out(CPropertyCollection::newInstance());
    out->define(u"Other", u"kept");
    out->define(u"TaskName", u"replaced");
    t.toPropertyCollection(*out);
    EXPECT_EQ(utf8(out->get(u"TaskName").getValue().toString()), "nightly");
    EXPECT_EQ(utf8(out->get(u"TaskType").getValue().toString()), "Service");
    EXPECT_EQ(utf8(out->get(u"TriggerType").getValue().toString()), "ExternalEvent");
    EXPECT_EQ(utf8(out->get(u"Disabled").getValue().toString()), "USER_DISABLED");
    EXPECT_EQ(utf8(out->get(u"TaskGroup").getValue().toString()), "user");
    EXPECT_EQ(utf8(out->get(u"Param:Input Folder").getValue().toString()), "/data/in\xC3\xA9");
    EXPECT_EQ(out->get(u"Param:Limit").getValue().getTypeCode(), tovan::VT_Integer);
    EXPECT_EQ(utf8(out->get(u"Other").getValue().toString()), "kept");

    copy.reset();
    EXPECT_FALSE(copy.isValid());
    EXPECT_FALSE(copy.isDisabled());
    EXPECT_FALSE(copy.getRuntimeProperties());
    EXPECT_EQ(utf8(t.getName()), "nightly") << "reset leaves the original alone";
}

TEST(SchedulerTask, SchedulerRootPath) {
    const char* old = std::getenv("NVK_SERVER_ROOT");
    std::string saved = old ? old : "";
    WString path(u"untouched");
    unsetenv("NVK_SERVER_ROOT");
    EXPECT_FALSE(SchedulerTask::buildSchedulerRootPath(path));
    setenv("NVK_SERVER_ROOT", "", 1);
    EXPECT_FALSE(SchedulerTask::buildSchedulerRootPath(path));
    EXPECT_EQ(utf8(path), "untouched");
    setenv("NVK_SERVER_ROOT", "/srv/nvk/", 1);
    EXPECT_TRUE(SchedulerTask::buildSchedulerRootPath(path));
    EXPECT_EQ(utf8(path), "/srv/nvk/config/scheduler");
    old ? setenv("NVK_SERVER_ROOT", saved.c_str(), 1) : unsetenv("NVK_SERVER_ROOT");
}

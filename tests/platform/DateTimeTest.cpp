#include <gtest/gtest.h>

#include "nvk/platform/DateTimeValue.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

namespace {

std::string iso(const DateTimeValue& v) { return utf8(v.toString()); }

}  // namespace

// Walks every day of the supported range once from the first, whose Julian day and
// weekday (1 Sunday .. 7 Saturday) are known: each step is one Julian day, one weekday
// and exactly one calendar day further, so every other day's numbers follow, and the
// count of days pins the leap years.
TEST(DateTime, EveryDayFollowsTheOneBefore) {
    EXPECT_EQ(DateTimeValue::daysInMonth(2023, 13), 0);
    DateTimeValue day(1, 1, 1, 23, 59);
    EXPECT_EQ(day.julianDay(), 1721426);
    EXPECT_EQ(day.dayOfWeek(), 2);
    int64_t steps = 0, julian = day.julianDay();
    int weekday = day.dayOfWeek(), y = 1, m = 1, d = 1;
    while (!(y == 9999 && m == 12 && d == 31)) {
        day.addDays(1);
        ++steps;
        ASSERT_EQ(day.julianDay(), ++julian);
        ASSERT_EQ(day.dayOfWeek(), weekday = weekday % 7 + 1);
        bool nextInMonth = day.getDay() == d + 1 && day.getMonth() == m;
        bool nextMonth = day.getDay() == 1 && d == DateTimeValue::daysInMonth(y, m) &&
                         (day.getMonth() == m + 1 || (m == 12 && day.getMonth() == 1 && day.getYear() == y + 1));
        ASSERT_TRUE(nextInMonth || nextMonth) << y << "-" << m << "-" << d << " -> " << iso(day);
        y = day.getYear(), m = day.getMonth(), d = day.getDay();
    }
    EXPECT_EQ(steps, 5373484 - 1721426);
}

TEST(DateTime, AddingCarriesAndClampsMonthEnds) {
    DateTimeValue v(2023, 12, 31, 23, 59, 59, 999, u"UTC");
    v.addMilliseconds(1);
    EXPECT_EQ(iso(v), "2024-01-01T00:00:00Z");
    v.addMinutes(-1);
    v.addHours(25);
    v.addSeconds(61);
    EXPECT_EQ(iso(v), "2024-01-02T01:00:01Z");

    DateTimeValue m(2024, 1, 31, 8);
    m.addMonths(1);
    EXPECT_EQ(iso(m), "2024-02-29T08:00:00");  // clamped to the leap day
    m.addMonths(1);
    EXPECT_EQ(iso(m), "2024-03-29T08:00:00");  // the clamp is not undone
    m.setDate(2024, 3, 31);
    m.addMonths(-13);
    EXPECT_EQ(iso(m), "2023-02-28T08:00:00");
    m.addMonths(24);
    EXPECT_EQ(iso(m), "2025-02-28T08:00:00");

    DateTimeValue first(1, 1, 1);
    EXPECT_THROW_MSG(first.addMinutes(-1), BadParameterException,
                     "Adding -1 minutes to 0001-01-01T00:00:00 leaves the years 1 to 9999");
    EXPECT_THROW_MSG(first.addDays(INT64_MAX), BadParameterException,
                     "Adding 9223372036854775807 days to 0001-01-01T00:00:00 leaves the years 1 to 9999");
    EXPECT_THROW_MSG(first.addMonths(12 * 9999), BadParameterException,
                     "Adding 119988 months to 0001-01-01T00:00:00 leaves the years 1 to 9999");
    EXPECT_EQ(iso(first), "0001-01-01T00:00:00");
    EXPECT_THROW_MSG(first.set(2023, 2, 29, 0, 0, 0, 0), BadParameterException,
                     "Invalid date-time: day 29 is out of range 1 to 28 for 2023-02");
    EXPECT_EQ(iso(first), "0001-01-01T00:00:00");
}

TEST(DateTime, ComparisonIgnoresTheLabelEqualityDoesNot) {
    DateTimeValue a(2024, 5, 1, 10, 0, 0, 0, u"UTC"), b(2024, 5, 1, 10, 0, 0, 0, u"+02:00");
    EXPECT_EQ(a.compare(b), 0);
    EXPECT_FALSE(a == b);
    b.setTimeZone(u"UTC");
    EXPECT_TRUE(a == b);
    b.addMilliseconds(1);
    EXPECT_TRUE(a.isBefore(b));
    EXPECT_GT(b.compare(a), 0);
}

TEST(DateTime, IsoTextRoundTrip) {
    for (const char* text : {"2024-02-29T13:05:09.123Z", "0001-01-01T00:00:00", "9999-12-31T23:59:59.999-12:45",
                             "2024-03-01T08:00:00+05:30", "2024-03-01T08:00:00.050 CET"}) {
        DateTimeValue v = DateTimeValue::fromIso8601(toWide(text));
        EXPECT_EQ(iso(v), text);
        EXPECT_TRUE(DateTimeValue::fromIso8601(v.toString()) == v) << text;
    }
    struct Variant {
        const char* text;
        const char* read;
    };
    for (const Variant& c : {Variant{"2024-03-01", "2024-03-01T00:00:00"}, Variant{"2024-03-01 08:15", "2024-03-01T08:15:00"},
                             Variant{"2024-03-01t08:00:00,5-0700", "2024-03-01T08:00:00.500-07:00"},
                             Variant{"2024-03-01T08:00:00.123456789+02", "2024-03-01T08:00:00.123+02:00"},
                             Variant{"2024-03-01T08:00:00.1z", "2024-03-01T08:00:00.100Z"},
                             Variant{"2024-03-01 Pacific Time", "2024-03-01T00:00:00 Pacific Time"}})
        EXPECT_EQ(iso(DateTimeValue::fromIso8601(toWide(c.text))), c.read) << c.text;
}

TEST(DateTime, BadIsoTextIsRefusedWithTheReason) {
    struct Case {
        const char* text;
        const char* reason;
    };
    const Case cases[] = {
        {"", "expected a digit at position 0"},
        {"2024-3-01", "expected a digit at position 6"},
        {"2024/03/01", "expected '-' at position 4"},
        {"2024-03-01T08", "expected ':' at position 13"},
        {"2024-03-01T08:00:00.Z", "expected a digit at position 20"},
        {"2024-03-01T08:00:00.1234567890", "unexpected text at position 29"},
        {"2024-03-01T08:00:00Zjunk", "unexpected text at position 20"},
        {"2024-03-01 ", "expected a time zone name at position 11"},
        {"2024-03-01T08:00 ", "expected a time zone name at position 17"},
        {"2024-03-01T08:00:00+25:00", "offset hour 25 is out of range 0 to 23"},
        {"2024-03-01T08:00:00+05:3", "expected a digit at position 24"},
        {"0000-01-01", "year 0 is out of range 1 to 9999"},
        {"2024-13-01", "month 13 is out of range 1 to 12"},
        {"2023-02-29", "day 29 is out of range 1 to 28 for 2023-02"},
        {"2024-03-01T24:00", "hour 24 is out of range 0 to 23"},
        {"2024-03-01T08:60", "minute 60 is out of range 0 to 59"},
        {"2024-03-01T08:00:60", "second 60 is out of range 0 to 59"},
    };
    for (const Case& c : cases)
        EXPECT_THROW_MSG(DateTimeValue::fromIso8601(toWide(c.text)), BadParameterException,
                         std::string("Invalid ISO 8601 date-time \"") + c.text + "\": " + c.reason);
}

TEST(DateTime, ZoneConversions) {
    nvktest::ZoneScope zone("EST5EDT,M3.2.0,M11.1.0");
    DateTimeValue summer(2024, 7, 1, 12, 0, 0, 250, u"UTC");
    summer.convertToLocal();
    EXPECT_EQ(iso(summer), "2024-07-01T08:00:00.250 EDT");
    summer.convertToUtc();
    EXPECT_EQ(iso(summer), "2024-07-01T12:00:00.250Z");

    DateTimeValue winter(2024, 1, 15, 1, 30, 0, 0, u"+05:30");
    winter.convertToLocal();
    EXPECT_EQ(iso(winter), "2024-01-14T15:00:00 EST");
    winter.convertToLocal();  // already local: unchanged
    winter.setTimeZone(u"-03:00");
    winter.convertToUtc();
    EXPECT_EQ(iso(winter), "2024-01-14T18:00:00Z");

    DateTimeValue edge(1, 1, 1, 0, 0, 0, 0, u"UTC");
    EXPECT_THROW_MSG(edge.convertToLocal(), BadParameterException,
                     "Converting 0001-01-01T00:00:00Z to local time leaves the years 1 to 9999");
    EXPECT_EQ(iso(edge), "0001-01-01T00:00:00Z");

    DateTimeValue local = DateTimeValue::now(), utc = DateTimeValue::nowUtc();
    local.convertToUtc();
    EXPECT_LT(std::abs(utc.julianDay() * 86400 + utc.getHour() * 3600 + utc.getMinute() * 60 + utc.getSecond() -
                       (local.julianDay() * 86400 + local.getHour() * 3600 + local.getMinute() * 60 + local.getSecond())),
              5);
}

// Round trips, copies, short reads and lenient reading run with every other value class.
TEST(DateTime, IsAValueWithItsOwnBytes) {
    Ptr<Value> made = Value::make(VT_DateTime, true);
    EXPECT_EQ(iso(made->getAs<DateTimeValue>()), "1970-01-01T00:00:00");

    DateTimeValue v(2024, 2, 29, 13, 5, 9, 300, u"UTC");
    MemoryOutputStream out;
    v.serialize(out);
    const std::vector<uint8_t> expected = {0xE8, 0x07, 2, 29, 13, 5, 9, 0x2C, 0x01, 4, 0, 0, 0, 'U', 0, 'T', 0, 'C', 0};
    EXPECT_EQ(out.bytes(), expected);
    Ptr<Value> copy(v.clone());
    v.setTimeZone(u"+01:00");
    EXPECT_FALSE(copy->equals(v));
    EXPECT_FALSE(v.equals(StringValue(v.toString())));
    EXPECT_THROW_MSG(v.assign(StringValue(u"x")), BadParameterException,
                     "Cannot assign a Norvatek.StringValue to a Norvatek.DateTimeValue");
    v.assign(*copy);
    EXPECT_EQ(v.toString(), WString(u"2024-02-29T13:05:09.300Z"));

    made->assign(v);
    std::vector<uint8_t> bad = expected;
    bad[2] = 13;
    MemoryInputStream badMonth(bad);
    EXPECT_THROW_MSG(made->deserialize(badMonth), Exception,
                     "Invalid date-time in stream: month 13 is out of range 1 to 12");
    EXPECT_TRUE(made->equals(v));  // the failure left it alone
}

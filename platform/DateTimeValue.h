#pragma once
// A calendar date and time of day with a time zone label.
//
// Fields: year 1 to 9999, month 1 to 12, day 1 to the month's length, hour 0
// to 23, minute 0 to 59, second 0 to 59 (no leap seconds), millisecond 0 to
// 999. The calendar is the proleptic Gregorian one throughout.
//
// The time zone label says how to read the fields: "UTC"; an offset from UTC
// written "+hh:mm" or "-hh:mm"; the name of a zone as the system calls it
// ("CET"), meaning the system's local time; or empty, meaning unspecified.
// Arithmetic and comparison work on the fields alone and never look at the
// label; only convertToUtc and convertToLocal do.
//
// Every refusal is a BadParameterException from class "DateTimeValue" and
// leaves the value as it was.
//
// As a Value: type code VT_DateTime (5), class tag "Norvatek.DateTimeValue";
// equals() is operator==; the byte form is in platform/README.md.
#include <cstdint>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"
#include "nvk/platform/Value.h"

namespace tovan {

class NVK_EXPORT DateTimeValue : public Value {
    TOVAN_VALUE_CLASS(DateTimeValue)
public:
    /// 1970-01-01T00:00:00.000 with an empty label.
    DateTimeValue() = default;
    /// Raises "Invalid date-time: <reason>" (operation "set") for a field out of range.
    DateTimeValue(int year, int month, int day, int hour = 0, int minute = 0, int second = 0, int millisecond = 0,
                  WString timeZone = WString::empty());

    /// The system clock as local time, labelled with the system's zone name.
    static DateTimeValue now();
    /// The system clock as UTC, labelled "UTC".
    static DateTimeValue nowUtc();

    int getYear() const { return year_; }
    int getMonth() const { return month_; }
    int getDay() const { return day_; }
    int getHour() const { return hour_; }
    int getMinute() const { return minute_; }
    int getSecond() const { return second_; }
    int getMillisecond() const { return millisecond_; }
    const WString& getTimeZone() const { return timeZone_; }

    /// Every field at once; all are checked before any changes.
    void set(int year, int month, int day, int hour, int minute, int second, int millisecond);
    void setDate(int year, int month, int day);
    void setTime(int hour, int minute, int second, int millisecond = 0);
    /// Relabels without touching the fields; a null label is stored as empty.
    void setTimeZone(WString timeZone);

    /// Moves the value by whole units, carrying into the larger fields. A
    /// result outside the years 1 to 9999 raises "Adding %lld %hs to %ls leaves
    /// the years 1 to 9999" (operation "add").
    void addMilliseconds(int64_t count);
    void addSeconds(int64_t count);
    void addMinutes(int64_t count);
    void addHours(int64_t count);
    void addDays(int64_t count);
    /// Moves the month and keeps the time of day; a day beyond the new month's
    /// length becomes its last day (January 31 plus one month is February 28
    /// or 29). Clamping is not undone: adding one month and then another to
    /// January 31 gives March 28 or 29, not March 31.
    void addMonths(int64_t count);

    /// The Julian day number of the date (the day that begins at noon of the
    /// date): 2000-01-01 is 2451545.
    int64_t julianDay() const;
    /// 1 for Sunday to 7 for Saturday.
    int dayOfWeek() const;
    static bool isLeapYear(int year);
    /// 28 to 31; 0 for a month outside 1 to 12.
    static int daysInMonth(int year, int month);

    /// Orders by the fields alone (the label is ignored): <0, 0 or >0.
    int compare(const DateTimeValue& other) const;
    bool isBefore(const DateTimeValue& other) const { return compare(other) < 0; }
    /// Same fields and same label.
    bool operator==(const DateTimeValue& other) const;

    /// Reads the fields as UTC (label "UTC"), as the offset they carry, or as
    /// the system's local time (any other label, empty included), and gives
    /// the same instant in UTC, labelled "UTC".
    void convertToUtc();
    /// The same instant in the system's local time, labelled with the zone's
    /// name. A value labelled neither "UTC" nor with an offset is taken to be
    /// local already and is left alone.
    void convertToLocal();

    /// "YYYY-MM-DDThh:mm:ss", then ".mmm" when the millisecond is not 0, then
    /// "Z" for the label "UTC" or the offset for an offset label. Other labels
    /// are not written (see toString).
    WString toIso8601() const;
    /// toIso8601, followed by a blank and the label for a named zone other
    /// than UTC ("2024-03-01T08:00:00 CET"). fromIso8601 reads it back.
    WString toString() const override;
    /// Reads "YYYY-MM-DD", optionally followed by "T" (or a blank) and
    /// "hh:mm", ":ss", a fraction of 1 to 9 digits after "." or "," (kept to
    /// the millisecond, the rest dropped), and a zone: "Z" (label "UTC"),
    /// "+hh:mm", "+hhmm" or "+hh" (label "+hh:mm"; "-" alike), or a blank and
    /// a zone name (the rest of the text, blanks included). Bad text raises
    /// "Invalid ISO 8601 date-time \"%ls\": <reason>" (operation
    /// "fromIso8601"), the reason naming the 0-based position or the field
    /// out of range.
    static DateTimeValue fromIso8601(const WString& text);

    int getTypeCode() const override { return VT_DateTime; }
    bool equals(const Value& other) const override;
    void assign(const Value& other) override;
    /// Fields, then the label; see platform/README.md. Reading rejects fields
    /// out of range with Exception "Invalid date-time in stream: <reason>", and
    /// in strict mode also a null label (lenient reading takes it as empty).
    void serialize(iByteOutputStream& out) const override;
    void deserialize(iByteInputStream& in) override;

private:
    int64_t dayNumber() const;  // days since 1970-01-01
    int64_t millisecondOfDay() const;
    void assignFrom(int64_t dayNumber, int64_t millisecondOfDay);
    void addMillisecondsChecked(int64_t count, int64_t unit, const char* unitName);

    int16_t year_ = 1970;
    int8_t month_ = 1;
    int8_t day_ = 1;
    int8_t hour_ = 0;
    int8_t minute_ = 0;
    int8_t second_ = 0;
    int16_t millisecond_ = 0;
    WString timeZone_ = WString::empty();
};

}  // namespace tovan

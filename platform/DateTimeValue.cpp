#include "nvk/platform/DateTimeValue.h"

#include <chrono>
#include <ctime>
#include <string>

#include "nvk/platform/ByteOrder.h"
#include "nvk/platform/Exception.h"

namespace tovan {

namespace {

constexpr const char* kClass = "DateTimeValue";
constexpr int64_t kMsPerDay = 86400000;
constexpr int64_t kJulianDayOf1970 = 2440588;

constexpr int64_t floorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

// Days since 1970-01-01 of a proleptic Gregorian date, and back: the
// era-of-400-years method, exact for every year.
constexpr int64_t daysFromCivil(int64_t y, int m, int d) {
    y -= m <= 2;
    const int64_t era = floorDiv(y, 400);
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

void civilFromDays(int64_t z, int64_t& y, int& m, int& d) {
    z += 719468;
    const int64_t era = floorDiv(z, 146097);
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    d = int(doy - (153 * mp + 2) / 5 + 1);
    m = int(mp < 10 ? mp + 3 : mp - 9);
    y = yoe + era * 400 + (m <= 2);
}

/// A reason, in the framework's format (narrow, for the messages that quote it).
template <class... Args>
std::string textf(FormatFor<Args...> fmt, const Args&... args) {
    return toNarrow(format(fmt, args...));
}

/// Empty when every field is in range, else the reason.
std::string checkFields(int y, int mo, int d, int h, int mi, int s, int ms) {
    if (y < 1 || y > 9999) return textf(u"year %d is out of range 1 to 9999", y);
    if (mo < 1 || mo > 12) return textf(u"month %d is out of range 1 to 12", mo);
    int last = DateTimeValue::daysInMonth(y, mo);
    if (d < 1 || d > last) return textf(u"day %d is out of range 1 to %d for %04d-%02d", d, last, y, mo);
    if (h < 0 || h > 23) return textf(u"hour %d is out of range 0 to 23", h);
    if (mi < 0 || mi > 59) return textf(u"minute %d is out of range 0 to 59", mi);
    if (s < 0 || s > 59) return textf(u"second %d is out of range 0 to 59", s);
    if (ms < 0 || ms > 999) return textf(u"millisecond %d is out of range 0 to 999", ms);
    return {};
}

/// The offset from UTC in minutes that a label states ("UTC", "+hh:mm",
/// "-hh:mm"); false for a zone name or an empty label.
bool labelOffset(const WString& label, int& minutes) {
    std::u16string_view s = label.view();
    if (s == u"UTC") {
        minutes = 0;
        return true;
    }
    auto digit = [&](size_t i) { return s[i] >= u'0' && s[i] <= u'9'; };
    if (s.size() != 6 || (s[0] != u'+' && s[0] != u'-') || s[3] != u':' || !digit(1) || !digit(2) || !digit(4) ||
        !digit(5))
        return false;
    minutes = ((s[1] - u'0') * 10 + (s[2] - u'0')) * 60 + (s[4] - u'0') * 10 + (s[5] - u'0');
    if (s[0] == u'-') minutes = -minutes;
    return true;
}

/// Reads ISO 8601 text; raises with the reason and the position.
class IsoParser {
public:
    explicit IsoParser(const WString& text) : original_(text), s_(text.view()) {}

    DateTimeValue parse() {
        int y = number(4), mo, d, h = 0, mi = 0, sec = 0, ms = 0;
        expect(u'-', "'-'");
        mo = number(2);
        expect(u'-', "'-'");
        d = number(2);
        WString zone = WString::empty();
        bool timeFollows = at(u'T') || at(u't') || (at(u' ') && pos_ + 1 < s_.size() && isDigit(s_[pos_ + 1]));
        if (timeFollows) {
            ++pos_;
            h = number(2);
            expect(u':', "':'");
            mi = number(2);
            if (at(u':')) {
                ++pos_;
                sec = number(2);
                if (at(u'.') || at(u',')) {
                    ++pos_;
                    size_t start = pos_;
                    int scale = 100;
                    while (pos_ < s_.size() && isDigit(s_[pos_]) && pos_ - start < 9) {
                        ms += (s_[pos_] - u'0') * scale;
                        scale /= 10;
                        ++pos_;
                    }
                    if (pos_ == start)
                        throw BadParameterException(
                            kClass, "fromIso8601",
                            u"Invalid ISO 8601 date-time \"%ls\": expected a digit at position %d", original_,
                            int(pos_));
                }
            }
        }
        if (at(u'Z') || at(u'z')) {
            ++pos_;
            zone = u"UTC";
        } else if (at(u'+') || at(u'-')) {
            zone = offset();
        } else if (at(u' ')) {
            ++pos_;
            if (pos_ == s_.size())
                throw BadParameterException(
                    kClass, "fromIso8601",
                    u"Invalid ISO 8601 date-time \"%ls\": expected a time zone name at position %d", original_,
                    int(pos_));
            zone = WString(s_.substr(pos_));
            pos_ = s_.size();
        }
        if (pos_ != s_.size())
            throw BadParameterException(kClass, "fromIso8601",
                                        u"Invalid ISO 8601 date-time \"%ls\": unexpected text at position %d",
                                        original_, int(pos_));
        std::string reason = checkFields(y, mo, d, h, mi, sec, ms);
        if (!reason.empty())
            throw BadParameterException(kClass, "fromIso8601", u"Invalid ISO 8601 date-time \"%ls\": %hs", original_,
                                        reason);
        return DateTimeValue(y, mo, d, h, mi, sec, ms, zone);
    }

private:
    static bool isDigit(wchar c) { return c >= u'0' && c <= u'9'; }
    bool at(wchar c) const { return pos_ < s_.size() && s_[pos_] == c; }

    int number(int digits) {
        int value = 0;
        for (int i = 0; i < digits; ++i, ++pos_) {
            if (pos_ >= s_.size() || !isDigit(s_[pos_]))
                throw BadParameterException(kClass, "fromIso8601",
                                            u"Invalid ISO 8601 date-time \"%ls\": expected a digit at position %d",
                                            original_, int(pos_));
            value = value * 10 + (s_[pos_] - u'0');
        }
        return value;
    }

    void expect(wchar c, const char* what) {
        if (!at(c))
            throw BadParameterException(kClass, "fromIso8601",
                                        u"Invalid ISO 8601 date-time \"%ls\": expected %s at position %d", original_,
                                        what, int(pos_));
        ++pos_;
    }

    WString offset() {
        wchar sign = s_[pos_++];
        int hours = number(2), minutes = 0;
        if (at(u':')) {
            ++pos_;
            minutes = number(2);
        } else if (pos_ < s_.size() && isDigit(s_[pos_])) {
            minutes = number(2);
        }
        if (hours > 23)
            throw BadParameterException(kClass, "fromIso8601",
                                        u"Invalid ISO 8601 date-time \"%ls\": offset hour %d is out of range 0 to 23",
                                        original_, hours);
        if (minutes > 59)
            throw BadParameterException(kClass, "fromIso8601",
                                        u"Invalid ISO 8601 date-time \"%ls\": offset minute %d is out of range 0 to 59",
                                        original_, minutes);
        std::string text = textf(u"%c%02d:%02d", char(sign), hours, minutes);
        return toWide(text);
    }

    const WString& original_;
    std::u16string_view s_;
    size_t pos_ = 0;
};

}  // namespace

const ClassTag DateTimeValue::Tag("Norvatek.DateTimeValue");
static const ValueRegistration<DateTimeValue> registration(VT_DateTime);

DateTimeValue::DateTimeValue(int year, int month, int day, int hour, int minute, int second, int millisecond,
                             WString timeZone)
    : timeZone_(timeZone.isNull() ? WString::empty() : std::move(timeZone)) {
    set(year, month, day, hour, minute, second, millisecond);
}

void DateTimeValue::setTimeZone(WString timeZone) {
    timeZone_ = timeZone.isNull() ? WString::empty() : std::move(timeZone);
}

void DateTimeValue::set(int year, int month, int day, int hour, int minute, int second, int millisecond) {
    std::string reason = checkFields(year, month, day, hour, minute, second, millisecond);
    if (!reason.empty()) throw BadParameterException(kClass, "set", u"Invalid date-time: %hs", reason);
    year_ = int16_t(year);
    month_ = int8_t(month);
    day_ = int8_t(day);
    hour_ = int8_t(hour);
    minute_ = int8_t(minute);
    second_ = int8_t(second);
    millisecond_ = int16_t(millisecond);
}

void DateTimeValue::setDate(int year, int month, int day) {
    set(year, month, day, hour_, minute_, second_, millisecond_);
}

void DateTimeValue::setTime(int hour, int minute, int second, int millisecond) {
    set(year_, month_, day_, hour, minute, second, millisecond);
}

namespace {

DateTimeValue fromClock(bool utc) {
    using namespace std::chrono;
    int64_t ms = duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    std::time_t seconds = std::time_t(floorDiv(ms, 1000));
    std::tm tm{};
    if (utc) gmtime_r(&seconds, &tm);
    else localtime_r(&seconds, &tm);
    WString zone = utc ? WString(u"UTC") : (tm.tm_zone ? toWide(tm.tm_zone) : WString::empty());
    return DateTimeValue(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                         tm.tm_sec > 59 ? 59 : tm.tm_sec, int(ms - floorDiv(ms, 1000) * 1000), zone);
}

}  // namespace

DateTimeValue DateTimeValue::now() { return fromClock(false); }
DateTimeValue DateTimeValue::nowUtc() { return fromClock(true); }

bool DateTimeValue::isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DateTimeValue::daysInMonth(int year, int month) {
    static constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    if (month < 1 || month > 12) return 0;
    return month == 2 && isLeapYear(year) ? 29 : lengths[month - 1];
}

int64_t DateTimeValue::dayNumber() const { return daysFromCivil(year_, month_, day_); }

int64_t DateTimeValue::millisecondOfDay() const {
    return ((int64_t(hour_) * 60 + minute_) * 60 + second_) * 1000 + millisecond_;
}

void DateTimeValue::assignFrom(int64_t dayNumber, int64_t millisecondOfDay) {
    int64_t y;
    int m, d;
    civilFromDays(dayNumber, y, m, d);
    year_ = int16_t(y);
    month_ = int8_t(m);
    day_ = int8_t(d);
    hour_ = int8_t(millisecondOfDay / 3600000);
    minute_ = int8_t(millisecondOfDay / 60000 % 60);
    second_ = int8_t(millisecondOfDay / 1000 % 60);
    millisecond_ = int16_t(millisecondOfDay % 1000);
}

namespace {
// The first and last day numbers of the years 1 to 9999.
constexpr int64_t kFirstDay = daysFromCivil(1, 1, 1);
constexpr int64_t kLastDay = daysFromCivil(9999, 12, 31);
}  // namespace

void DateTimeValue::addMillisecondsChecked(int64_t count, int64_t unit, const char* unitName) {
    int64_t delta, total;
    int64_t start = dayNumber() * kMsPerDay + millisecondOfDay();
    if (__builtin_mul_overflow(count, unit, &delta) || __builtin_add_overflow(start, delta, &total) ||
        floorDiv(total, kMsPerDay) < kFirstDay || floorDiv(total, kMsPerDay) > kLastDay)
        throw BadParameterException(kClass, "add", u"Adding %lld %hs to %ls leaves the years 1 to 9999", count,
                                    unitName, toIso8601());
    int64_t days = floorDiv(total, kMsPerDay);
    assignFrom(days, total - days * kMsPerDay);
}

void DateTimeValue::addMilliseconds(int64_t count) { addMillisecondsChecked(count, 1, "milliseconds"); }
void DateTimeValue::addSeconds(int64_t count) { addMillisecondsChecked(count, 1000, "seconds"); }
void DateTimeValue::addMinutes(int64_t count) { addMillisecondsChecked(count, 60000, "minutes"); }
void DateTimeValue::addHours(int64_t count) { addMillisecondsChecked(count, 3600000, "hours"); }
void DateTimeValue::addDays(int64_t count) { addMillisecondsChecked(count, kMsPerDay, "days"); }

void DateTimeValue::addMonths(int64_t count) {
    int64_t months;
    if (__builtin_add_overflow(int64_t(year_) * 12 + (month_ - 1), count, &months) || months < 12 ||
        months >= 10000 * 12)
        throw BadParameterException(kClass, "add", u"Adding %lld %hs to %ls leaves the years 1 to 9999", count,
                                    "months", toIso8601());
    int year = int(months / 12), month = int(months % 12) + 1;
    year_ = int16_t(year);
    month_ = int8_t(month);
    if (day_ > daysInMonth(year, month)) day_ = int8_t(daysInMonth(year, month));
}

int64_t DateTimeValue::julianDay() const { return dayNumber() + kJulianDayOf1970; }

int DateTimeValue::dayOfWeek() const { return int((julianDay() + 1) % 7) + 1; }

int DateTimeValue::compare(const DateTimeValue& other) const {
    int64_t a = dayNumber() * kMsPerDay + millisecondOfDay();
    int64_t b = other.dayNumber() * kMsPerDay + other.millisecondOfDay();
    return a < b ? -1 : (a > b ? 1 : 0);
}

bool DateTimeValue::operator==(const DateTimeValue& other) const {
    return compare(other) == 0 && timeZone_ == other.timeZone_;
}

void DateTimeValue::convertToUtc() {
    int offset;
    int64_t total;
    if (labelOffset(timeZone_, offset)) {
        total = dayNumber() * kMsPerDay + millisecondOfDay() - int64_t(offset) * 60000;
    } else {
        std::tm tm{};
        tm.tm_year = year_ - 1900;
        tm.tm_mon = month_ - 1;
        tm.tm_mday = day_;
        tm.tm_hour = hour_;
        tm.tm_min = minute_;
        tm.tm_sec = second_;
        tm.tm_isdst = -1;  // let the system decide whether summer time applies
        std::time_t seconds = std::mktime(&tm);
        total = int64_t(seconds) * 1000 + millisecond_;
    }
    int64_t days = floorDiv(total, kMsPerDay);
    if (days < kFirstDay || days > kLastDay)
        throw BadParameterException(kClass, "convertToUtc", u"Converting %ls to UTC leaves the years 1 to 9999",
                                    toString());
    assignFrom(days, total - days * kMsPerDay);
    timeZone_ = u"UTC";
}

void DateTimeValue::convertToLocal() {
    int offset;
    if (!labelOffset(timeZone_, offset)) return;
    int64_t total = dayNumber() * kMsPerDay + millisecondOfDay() - int64_t(offset) * 60000;
    std::time_t seconds = std::time_t(floorDiv(total, 1000));
    std::tm tm{};
    localtime_r(&seconds, &tm);
    std::string reason = checkFields(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min,
                                     tm.tm_sec > 59 ? 59 : tm.tm_sec, 0);
    if (!reason.empty())
        throw BadParameterException(kClass, "convertToLocal",
                                    u"Converting %ls to local time leaves the years 1 to 9999", toString());
    set(tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec > 59 ? 59 : tm.tm_sec,
        int(total - floorDiv(total, 1000) * 1000));
    timeZone_ = tm.tm_zone ? toWide(tm.tm_zone) : WString::empty();
}

WString DateTimeValue::toIso8601() const {
    std::string text = textf(u"%04d-%02d-%02dT%02d:%02d:%02d", year_, month_, day_, hour_, minute_, second_);
    if (millisecond_ != 0) text += textf(u".%03d", millisecond_);
    int offset;
    if (timeZone_ == u"UTC") text += 'Z';
    else if (labelOffset(timeZone_, offset)) text += toNarrow(timeZone_);
    return toWide(text);
}

WString DateTimeValue::toString() const {
    WString text = toIso8601();
    int offset;
    if (!timeZone_.isEmpty() && !labelOffset(timeZone_, offset)) text.append(u' ').append(timeZone_.view());
    return text;
}

DateTimeValue DateTimeValue::fromIso8601(const WString& text) { return IsoParser(text).parse(); }

bool DateTimeValue::equals(const Value& other) const {
    const auto* o = dynamic_cast<const DateTimeValue*>(&other);
    return o && sameClass(other) && *o == *this;
}

void DateTimeValue::assign(const Value& other) {
    const auto* o = dynamic_cast<const DateTimeValue*>(&other);
    if (!o || !sameClass(other)) failAssign(other);
    // Field by field: the reading mode is this value's own, not the other's.
    set(o->year_, o->month_, o->day_, o->hour_, o->minute_, o->second_, o->millisecond_);
    timeZone_ = o->timeZone_;
}

void DateTimeValue::serialize(iByteOutputStream& out) const {
    uint8_t fields[9] = {0, 0, uint8_t(month_), uint8_t(day_), uint8_t(hour_), uint8_t(minute_), uint8_t(second_)};
    storeLE(fields, uint16_t(year_));
    storeLE(fields + 7, uint16_t(millisecond_));
    out.write(fields, sizeof fields);
    writeValueText(out, timeZone_);
}

void DateTimeValue::deserialize(iByteInputStream& in) {
    uint8_t f[9];
    in.readExactly(f, sizeof f, kClass);
    int year = int16_t(loadLE<uint16_t>(f)), millisecond = int16_t(loadLE<uint16_t>(f + 7));
    WString zone = readValueText(in, kClass);
    std::string reason = checkFields(year, f[2], f[3], f[4], f[5], f[6], millisecond);
    if (!reason.empty())
        throw Exception(kClass, "deserialize", u"Invalid date-time in stream: %hs", reason);
    if (zone.isNull()) {
        if (isStrictReading())
            throw Exception(kClass, "deserialize", u"Invalid date-time in stream: %hs", "null time zone label");
        zone = WString::empty();
    }
    set(year, f[2], f[3], f[4], f[5], f[6], millisecond);
    timeZone_ = std::move(zone);
}

}  // namespace tovan

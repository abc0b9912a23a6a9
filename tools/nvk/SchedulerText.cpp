#include "tools/nvk/SchedulerText.h"

#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/Exception.h"

namespace nvk {

bool parseAtOption(const std::string& text, tovan::DateTimeValue& at) {
    // Exactly the date and the time of day, so that no zone or fraction slips in.
    if (text.size() != 19 || (text[10] != ' ' && text[10] != 'T')) return false;
    try {
        at = tovan::DateTimeValue::fromIso8601(tovan::toWide(text));
    } catch (const tovan::BadParameterException&) {
        return false;
    }
    return true;
}

std::string nextRunText(const SchedulerTask& task, const tovan::DateTimeValue* now, int offset, bool json) {
    static const char* const kFrequencies[] = {"none", "once", "daily", "weekly", "monthly"};
    tovan::DateTimeValue next;
    SchedulerTask::TaskFrequency frequency;
    bool found = now ? task.getNextRunTimeFrom(*now, next, frequency, offset) : task.getNextRunTime(next, frequency, offset);
    std::string when = found ? tovan::toNarrow(next.toIso8601()).substr(0, 19) : "";
    if (json) {
        JsonStringSink sink;
        CJsonWriter w(&sink);
        w.object().key("frequency").value(kFrequencies[frequency]).key("next");
        if (found) w.value(when.c_str());
        else w.value("null", false);
        w.endObject();
        return tovan::toNarrow(tovan::WString(sink.text())) + "\n";
    }
    return std::string("frequency: ") + kFrequencies[frequency] + "\nnext: " + (found ? when : "none") + "\n";
}

}  // namespace nvk

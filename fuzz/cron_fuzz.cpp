// Untrusted cron trigger specs and cron field texts. No spec may hang or crash
// the next-run calculation; whatever it finds lies no earlier than now unless
// the calculation reports nothing; a field's flags written as text read back
// to the same flags.
#include <cstddef>
#include <cstdint>
#include <string>

#include "nvk/platform/DateTimeValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/services/SchedulerTask.h"

using namespace tovan;
using nvk::SchedulerTask;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 4) return 0;
    // The first bytes choose the time and the offset; the rest is the trigger text.
    DateTimeValue now(1990 + data[0] % 80, 1 + data[1] % 12, 1 + data[2] % 28, data[3] % 24, data[0] % 60, data[1] % 60);
    int offset = int(int8_t(data[2])) * 11;  // within a day either way
    std::string spec(reinterpret_cast<const char*>(data + 4), size - 4);

    static const bool utc = [] { return setenv("TZ", "UTC0", 1) == 0; }();
    (void)utc;
    SchedulerTask task;
    task.setTriggerSpec(toWide(spec));
    DateTimeValue next;
    SchedulerTask::TaskFrequency frequency = SchedulerTask::FrequencyMonthly;
    try {
        bool found = task.getNextRunTimeFrom(now, next, frequency, offset);
        if (found != (frequency != SchedulerTask::FrequencyNone)) __builtin_trap();
        // Daily and monthly runs are never in the past; weekly ones may be a
        // day early only when the offset moves them back past now.
        if (found && frequency != SchedulerTask::FrequencyWeekly && next.isBefore(now)) __builtin_trap();
    } catch (const BadParameterException&) {
        // A once date or an offset that leaves the years 1 to 9999.
    }

    for (int count : {7, 12, 31}) {
        bool flags[31], back[31];
        SchedulerTask::ExtractCronField(toWide(spec), flags, count);
        WString text;
        SchedulerTask::GetCronField(flags, count, text);
        bool any = false;
        for (int i = 0; i < count; ++i) any |= flags[i];
        if (!any) continue;
        SchedulerTask::ExtractCronField(text, back, count);
        for (int i = 0; i < count; ++i)
            if (back[i] != flags[i]) __builtin_trap();
    }
    return 0;
}

#pragma once
// What `nvk cron` and `nvk task` share: reading --at and --offset, and the
// frequency and next run of a task as text.
#include <string>

#include "nvk/platform/DateTimeValue.h"
#include "nvk/services/SchedulerTask.h"

namespace nvk {

/// "YYYY-MM-DD HH:MM:SS" (or with "T") as a time; false for other text.
bool parseAtOption(const std::string& text, tovan::DateTimeValue& at);

/// The next run of `task` from `now` (the clock when null): "frequency: F"
/// and "next: YYYY-MM-DDTHH:MM:SS" (or "next: none") on two lines, or with
/// `json` one object {"frequency": F, "next": TEXT or null}.
std::string nextRunText(const SchedulerTask& task, const tovan::DateTimeValue* now, int offset, bool json);

}  // namespace nvk

#pragma once
// URL text (numbers as text are in NumberText.h).
#include <cstddef>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan::util {

/// Percent-encodes text for one component of a URL query (a name or a value):
/// the text's UTF-8 bytes, with A-Z a-z 0-9 "-" "_" "." "~" kept and every
/// other byte as "%" and two upper-case hexadecimal digits. A space becomes
/// "%20" (never "+", which some servers would keep as a plus sign). A lone
/// surrogate is encoded as U+FFFD ("%EF%BF%BD"). A null text gives a null text.
NVK_EXPORT WString urlEncodeComponent(const WString& text);
/// The same encoding appended to `out`, for builders of whole URLs (no text per component).
NVK_EXPORT void urlEncodeComponent(std::u16string_view text, std::u16string& out);

}  // namespace tovan::util

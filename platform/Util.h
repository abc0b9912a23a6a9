#pragma once
// Number and URL text helpers.
#include <cstddef>

#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace tovan::util {

/// The shortest text that reads back (by strtod or from_chars) to exactly
/// `value`: digits as C's shortest round-trip form, in plain notation or with
/// an exponent ("e", a sign and at least two digits) whichever is shorter,
/// plain on a tie. Examples: 0.1 -> "0.1", 100 -> "100", 1e21 -> "1e+21",
/// 1e-7 -> "1e-07", 5e-324 -> "5e-324", -0.0 -> "-0".
///
/// `option` 1 asks for a text that reads back as a floating-point number in
/// any language: the mantissa always has a decimal point, so "1" becomes
/// "1.0", "-0" becomes "-0.0" and "1e+21" becomes "1.0e+21" ("0.1" and
/// "1.5e+300" stay as they are). Writers that add ".0" to a text without a
/// point therefore never touch an option-1 text of a finite number.
///
/// With either option, infinities are "Infinity" and "-Infinity" and every NaN
/// is "NaN" (the JSON reader accepts the first two). Any other option raises
/// BadParameterException "Unknown doubleToString option %d".
NVK_EXPORT WString doubleToString(double value, int option = 0);

/// The same text written into `buffer` with a terminating zero; returns its
/// length. A buffer that cannot hold it raises BadParameterException
/// "Buffer of %d characters is too small for %hs" and is left as it was.
/// 32 characters are always enough.
NVK_EXPORT size_t doubleToString(double value, wchar* buffer, size_t capacity, int option = 0);
/// The same in bytes (the text is ASCII), for writers of UTF-8 or of
/// their own buffers.
NVK_EXPORT size_t doubleToString(double value, char* buffer, size_t capacity, int option = 0);

/// Percent-encodes text for one component of a URL query (a name or a value):
/// the text's UTF-8 bytes, with A-Z a-z 0-9 "-" "_" "." "~" kept and every
/// other byte as "%" and two upper-case hexadecimal digits. A space becomes
/// "%20" (never "+", which some servers would keep as a plus sign). A lone
/// surrogate is encoded as U+FFFD ("%EF%BF%BD"). A null text gives a null text.
NVK_EXPORT WString urlEncodeComponent(const WString& text);
/// The same encoding appended to `out`, for builders of whole URLs (no text per component).
NVK_EXPORT void urlEncodeComponent(std::u16string_view text, std::u16string& out);

}  // namespace tovan::util

#pragma once
// Texts shared by the task files, the scheduler service and its client.
#include <string>

#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/String.h"

namespace nvk::scheduler {

/// `text` as XML character data or attribute text (UTF-8, markup escaped;
/// control characters XML cannot carry become U+FFFD).
void appendXmlText(std::string& out, const tovan::WString& text);

/// Runtime properties as one text, the form they travel in between client
/// and service: "name=value" pairs joined by "&", both percent-encoded as
/// UTF-8. Values go as their text.
tovan::WString encodeProperties(const CPropertyCollection* properties);
/// The collection of such a text (null for an empty one); a pair without "="
/// is a name with an empty value, "%" not followed by two hex digits stays.
tovan::Ptr<CPropertyCollection> decodeProperties(const tovan::WString& text);

}  // namespace nvk::scheduler

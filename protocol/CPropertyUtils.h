#pragma once
// Promotion stacks and series parameter names.
//
// When a parameter is promoted into an enclosing group, the group's new parameter remembers
// the name it was promoted from; promoting again stacks the next name on top. The stack is
// kept in the metadata of the property (or parameter) under NVK_PromotedFromNew as a string
// array whose last element is the top; an older single text under that key counts as a
// one-element stack and becomes an array at the next push.
//
// Series parameters are named prefix, space, decimal index and optionally space and suffix
// ("Item 7", "Item 7 extra"). Parsing scans from the end: the last decimal number that
// directly follows whitespace (tab, line feed, carriage return, space or no-break space) is
// the index, the text before that whitespace the prefix, and the text after the number, with
// whitespace trimmed from both ends, the suffix ("Step 12 of 3": "Step 12 of", 3, "";
// "Step 3b": "Step", 3, "b"). A name that begins with its number, with whitespace after the
// number and no number after that whitespace, takes the text before that whitespace (the
// number itself) as prefix: "7 x" gives "7", 7, "x". Choices the rule leaves open: only the
// ASCII digits count, and a number too large for a 32-bit int does not parse.
//
// All operations are static and take the caller's objects; none keeps state.
#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iParameter.h"
#include "nvk/platform/iPropertyCollection.h"

namespace nvk {

class NVK_EXPORT CPropertyUtils {
public:
    /// Puts `name` on top of the stack (starting one when there is none).
    static void pushPromotedFrom(tovan::iProperty& property, const tovan::WString& name);
    static void pushPromotedFrom(tovan::iParameter& parameter, const tovan::WString& name);
    /// Removes the top; the last name removes the entry. False when there was no entry.
    static bool popPromotedFrom(tovan::iProperty& property);
    static bool popPromotedFrom(tovan::iParameter& parameter);
    /// Whether the entry exists (even an empty array).
    static bool hasPromotedFrom(const tovan::iProperty& property);
    static bool hasPromotedFrom(const tovan::iParameter& parameter);
    /// The top name; `name` is set empty first. False without an entry or with an empty array.
    static bool topPromotedFrom(const tovan::iProperty& property, tovan::WString& name);
    static bool topPromotedFrom(const tovan::iParameter& parameter, tovan::WString& name);
    /// When the top parses as a series name with index `oldIndex`, replaces it by the same
    /// prefix and suffix with `newIndex` and returns true; otherwise changes nothing.
    static bool updatePromotionFromMetadata(tovan::iProperty& property, int oldIndex, int newIndex);
    static bool updatePromotionFromMetadata(tovan::iParameter& parameter, int oldIndex, int newIndex);

    /// "prefix index" when the suffix is null or empty, else "prefix index suffix".
    static void createSeriesParameterName(const tovan::WString& prefix, int index, const tovan::WString& suffix,
                                          tovan::WString& out);
    static tovan::WString createSeriesParameterName(const tovan::WString& prefix, int index,
                                                    const tovan::WString& suffix = tovan::WString());
    /// See the header's notes. A null or empty name returns false and leaves the outputs
    /// alone; any other name first sets prefix and suffix empty and the index to -1.
    static bool parseSeriesParameterName(const tovan::WString& name, tovan::WString& prefix, int& index,
                                         tovan::WString& suffix);
    /// The parsed index, or -1.
    static int getSeriesParameterIndex(const tovan::WString& name);
};

}  // namespace nvk

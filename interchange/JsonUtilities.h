#pragma once
// Writing data nodes and element trees as JSON, and writers over files.
#include "nvk/interchange/CJsonWriter.h"
#include "nvk/interchange/JsonElements.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/Value.h"
#include "nvk/platform/iNode.h"

namespace tovan {

/// A data record: a tree of nodes under one root, or no tree yet.
class NVK_EXPORT iDataRecord {
public:
    virtual ~iDataRecord();
    /// The root node, or null.
    virtual iNode* getRootNode() const = 0;
};

}  // namespace tovan

namespace nvk::JsonUtilities {

/// Records one at a time: the writer keeps nothing of what it has written,
/// so records can be read, appended and released one after the other, and
/// the text goes to the file as it comes (a file interface buffers 64 KiB):
///
///   vcFileInterface file(u"out.json", FileMode::Write);   // or openStream(stdout, ...)
///   CJsonWriter* w = JsonUtilities::CreateJsonWriter(&file);
///   w->array();
///   while (...) JsonUtilities::AppendElementToArray(*w, record, true, true, false);
///   w->endArray();
///   JsonUtilities::DestroyJsonWriter(w);
///   file.close();
///
/// Writes `node` as one JSON object (the next value of the writer):
/// its properties in order as members, then, when `withChildren`, its
/// children: with `childrenAsList` as one member "children" holding the
/// children's objects, otherwise one member per distinct child name (in the
/// order of first appearance) holding the objects of the children of that
/// name. With `newLineAfter` a line feed follows the object.
///
/// Values by class: booleans, numbers and null as JSON literals; strings,
/// date-times and every other scalar class by their string form, quoted;
/// one-dimensional arrays (typed, byte, null and value arrays) as JSON
/// arrays of their elements by the same rules; n-dimensional arrays as
/// nested arrays, outermost dimension first; hash tables as null.
/// An empty property name raises "Empty JSON key string".
NVK_EXPORT void AppendElementToArray(CJsonWriter& writer, const tovan::iNode* node, bool newLineAfter,
                                     bool withChildren, bool childrenAsList);
/// AppendElementToArray on the record's root; a record without one writes nothing.
NVK_EXPORT void AppendRecordToArray(CJsonWriter& writer, const tovan::iDataRecord& record, bool newLineAfter,
                                    bool withChildren, bool childrenAsList);
/// Writes one property value as the next value of the writer (rules above).
NVK_EXPORT void WriteValue(CJsonWriter& writer, const tovan::Value& value);

/// A writer over `file` (not owned; null raises "Invalid null output
/// stream"), with its own sink; release both with DestroyJsonWriter.
NVK_EXPORT CJsonWriter* CreateJsonWriter(tovan::vcFileInterface* file, const tovan::wchar* variableName = nullptr);
/// Destroys a writer made by CreateJsonWriter and its sink, and sets the
/// pointer to null; a null pointer is ignored.
NVK_EXPORT void DestroyJsonWriter(CJsonWriter*& writer);

/// Writes an element tree as the next value: objects with their members in
/// order, arrays, numbers through value(double), strings, booleans, null.
NVK_EXPORT void WriteElement(CJsonWriter& writer, const cajun::json::Element& element);
NVK_EXPORT void WriteElement(CJsonWriter& writer, const cajun::json::Object& object);

}  // namespace nvk::JsonUtilities

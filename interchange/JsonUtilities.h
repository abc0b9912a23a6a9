#pragma once
// Writing data nodes and element trees as JSON, and writers over files.
#include "interchange/CJsonWriter.h"
#include "interchange/JsonElements.h"
#include "platform/Export.h"
#include "platform/FileInterface.h"

namespace nvk::JsonUtilities {

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

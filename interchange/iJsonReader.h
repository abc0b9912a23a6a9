#pragma once
// The framework's interface of readers that turn JSON text into data nodes.
#include "nvk/platform/Array.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/iNode.h"

namespace tovan {

/// Reads JSON records, one top-level object at a time, as data nodes.
class NVK_EXPORT iJsonReader : public virtual CountedObject {
public:
    ~iJsonReader() override;

    /// Moves to the next "{"; false when the source ends first.
    virtual bool FindNextObject() = 0;
    /// Reads the next object and appends the nodes built from it; false
    /// (and `nodes` untouched) when there is none.
    virtual bool ReadNextObject(Array<Ptr<iNode>>& nodes) = 0;
    /// Prepares a new pass over the source.
    virtual void ResetStream() = 0;
    /// Replaces the source (not owned).
    virtual void setFileInterface(iFileInterface* file) = 0;
};

}  // namespace tovan

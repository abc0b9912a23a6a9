#pragma once
// Metadata carried by nodes and properties: a flags word and an optional
// collection of further named values (units, display hints).
#include "nvk/platform/Export.h"
#include "nvk/platform/MetaDataFlags.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/iPropertyCollection.h"

namespace tovan {

/// A node's metadata: the flags word and a property collection made on
/// demand (`getProperties()` creates it, the const form returns null when
/// there is none).
class NVK_EXPORT iMetaData : public CountedObject, public iHaveProperties {
public:
    ~iMetaData() override;

    virtual MetaDataFlags getFlags() const = 0;
    virtual void setFlags(MetaDataFlags flags) = 0;

    /// Drops the flags (to 0) and every property.
    virtual void clear() = 0;
    /// Replaces flags and properties by copies of `source`'s.
    virtual void assignFrom(const iMetaData& source) = 0;
};

}  // namespace tovan

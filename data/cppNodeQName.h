#pragma once
// A node's qualified name ("prefix:local" or "local") with its two parts
// split off lazily.
#include <memory>

#include "nvk/data/SharedName.h"
#include "nvk/data/StreamPrimitives.h"
#include "nvk/platform/ByteStream.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/String.h"

namespace nvk {

/// The name as set (`qname`) plus its local part and prefix (`uriName`).
/// The name is a shared name block: the nodes of a tree mostly repeat a few
/// names, and each then costs 8 bytes instead of a string of its own.
///
/// The parts are split off on first demand: `getLocalName`, `getUriName`
/// (and the node's `getNamePrefix`) split `qname` when the local part is
/// empty and `qname` is set. `setName` forgets the old parts, so they always
/// belong to the current name; `setLocalName`/`setUriName` set a part and
/// forget `qname`, which `getQName` then rebuilds from the parts.
class NVK_EXPORT cppNodeQName {
public:
    cppNodeQName() = default;
    explicit cppNodeQName(const tovan::WString& qname) : qname_(SharedName::cached(qname)) {}
    cppNodeQName(const cppNodeQName& other);
    cppNodeQName& operator=(const cppNodeQName& other);

    /// The qualified name; rebuilt as "prefix:local" (or "local") when only
    /// the parts are set. Null when nothing is set.
    const tovan::WString& getQName() const;
    /// Takes the block from the calling thread's table of recent names.
    void setName(const tovan::WString& qname);
    /// For readers that keep their own dictionary of names.
    void setName(SharedName qname);
    /// As setName(other.getQName()), sharing other's block instead of looking
    /// the text up again (a copied tree repeats every name it copies).
    void shareName(const cppNodeQName& other);

    /// The text after the first ":", or the whole name when it has none.
    const tovan::WString& getLocalName() const;
    /// The text before the first ":"; null when there is no ":" or it comes first.
    const tovan::WString& getUriName() const;
    void setLocalName(const tovan::WString& localName);
    void setUriName(const tovan::WString& uriName);

    /// The name block's folded hash as set (0 when only the parts are set or nothing is).
    uint32_t hash() const { return qname_.hash(); }

    /// Forgets the name and both parts.
    void clear();
    /// The same, the name's drop counted by `names` (a tree's end).
    void clear(SharedName::Gather& names) {
        names.drop(qname_);
        parts_.reset();
    }

    /// The name block: qname, local name, prefix as wide strings, each as
    /// stored (a part not split off yet travels as null).
    void serialize(tovan::iByteOutputStream& out) const;
    void deserialize(tovan::iByteInputStream& in);
    /// As deserialize, the name taken from `recent` when its bytes are those read there last.
    void deserialize(tovan::iByteInputStream& in, RecentName& recent);
    /// The same, the stream's version (`streamVersion`) asked by the caller.
    void deserialize(tovan::iByteInputStream& in, RecentName& recent, int streamVersion);

private:
    // Most names are never split, so the parts live in a block of their own
    // made on first demand: a bare node then pays for one string only.
    struct Parts {
        tovan::WString localName;
        tovan::WString uriName;
    };
    void splitIfNeeded() const;
    Parts& parts() const;

    mutable SharedName qname_;
    mutable std::unique_ptr<Parts> parts_;  // null: both parts null
};

}  // namespace nvk

#pragma once
// Named, typed properties and the ordered collections that hold them.
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/MetaDataFlags.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"

namespace tovan {

class Value;
class iPropertyCollection;

/// Flag of `iPropertyCollection::define`: a name starting with "/" addresses a
/// property of another node of the owner's tree (path, last "/", leaf); the
/// low 8 bits of the flags become the new property's flags word.
inline constexpr uint32_t DefineHierarchical = 0x10000;

/// Anything that owns a property collection made on demand: nodes and node
/// metadata.
class NVK_EXPORT iHaveProperties {
public:
    virtual ~iHaveProperties();

    /// The collection, created on first use.
    virtual iPropertyCollection& getProperties() = 0;
    /// The collection, or null when none was made yet.
    virtual const iPropertyCollection* getProperties() const = 0;
    /// True when the collection exists and holds at least one property.
    virtual bool hasProperties() const = 0;
};

/// One named, typed value with its own metadata (a flags word and an
/// optional collection of metadata values). Names compare folding only A-Z.
class NVK_EXPORT iProperty : public CountedObject {
public:
    ~iProperty() override;

    virtual const WString& getName() const = 0;
    /// Renames the property. Raises Exception when another property of the
    /// owning collection already has the name (a change of case alone is
    /// allowed).
    virtual void SetName(const WString& name) = 0;

    /// The value; the framework's null value when none was set.
    virtual const Value& getValue() const = 0;
    /// The value for changing in place; a property without a value gets a
    /// null value first. Raises PropertyAccessException on a read-only
    /// property (flag MetaDataReadOnly).
    virtual Value& getEditableValue() = 0;
    /// Stores a copy of `value` (read-only or not: the flag guards in-place
    /// edits, not replacement).
    virtual void setValue(const Value& value) = 0;

    virtual MetaDataFlags getFlags() const = 0;
    virtual void setFlags(MetaDataFlags flags) = 0;
    /// The property's metadata values, created on first use.
    virtual iPropertyCollection& getMetaData() = 0;
    /// The metadata values, or null when there are none.
    virtual iPropertyCollection* findMetaData() const = 0;

    /// The collection holding this property (not owned), or null.
    virtual iPropertyCollection* findCollection() const = 0;
};

/// An ordered list of properties with unique names (compared folding A-Z).
///
/// Positions ("public index") count the live properties from 0. Names that
/// start with "/" are hierarchical: "/path/leaf" is the property `leaf` of the
/// first node that the path expression selects from the collection's owner.
/// Every failing call leaves the collection as it was.
class NVK_EXPORT iPropertyCollection : public CountedObject {
public:
    ~iPropertyCollection() override;

    /// The property; raises Exception "Property '%ls' not found".
    virtual iProperty& get(const WString& name) const = 0;
    /// The property at a position; raises InvalidIndexException.
    virtual iProperty& get(int index) const = 0;
    /// The property or null. Hierarchical names are resolved when the
    /// collection has an owner node.
    virtual iProperty* find(const WString& name) const = 0;

    /// Creates a property without value (`define(name, flags)`), with a copy of
    /// `value`, with a string value or with a floating-point value. Raises
    /// Exception "Property %ls already exists\n" when the name is taken.
    /// The number form takes its flags explicitly: with a default, a call
    /// `define(name, 2)` could not tell a flags word from a number.
    virtual iProperty& define(const WString& name, uint32_t flags = 0) = 0;
    virtual iProperty& define(const WString& name, const Value& value, uint32_t flags = 0) = 0;
    virtual iProperty& define(const WString& name, const WString& text, uint32_t flags = 0) = 0;
    virtual iProperty& define(const WString& name, double number, uint32_t flags) = 0;

    virtual bool isDefined(const WString& name) const = 0;
    /// Position of the property, or -1.
    virtual int findIndex(const WString& name) const = 0;
    /// Position of the property; raises Exception "Property %ls not found".
    virtual int getIndex(const WString& name) const = 0;
    /// Number of properties.
    virtual int getSize() const = 0;

    /// False when there is no such property.
    virtual bool remove(const WString& name) = 0;
    virtual void remove(int index) = 0;
    virtual void removeAll() = 0;

    virtual void rename(const WString& oldName, const WString& newName) = 0;
    /// Moves the named properties, in the given order, to the front;
    /// `createMissing` defines absent ones with a null value.
    virtual void reorder(const std::vector<WString>& names, bool createMissing) = 0;
    /// As reorder, then removes every property not named.
    virtual void keep(const std::vector<WString>& names, bool createMissing) = 0;
    /// Moves the property at `from` to position `to`.
    virtual void reorderProperty(int from, int to) = 0;

    /// Replaces the content by `source`'s properties in order; raises
    /// Exception "Source collection is NULL" for a null source.
    virtual void assignFrom(const iPropertyCollection* source, bool copyValues) = 0;
    /// Replaces the content by `source`'s properties; see the implementation
    /// for what is shared and what copied.
    virtual void attachFrom(const iPropertyCollection* source, bool copyValues) = 0;
    /// Adds `source`'s properties after the own ones.
    virtual void appendFrom(const iPropertyCollection* source) = 0;

    /// The object that owns the collection (not owned back), normally a node;
    /// hierarchical names are resolved from it.
    virtual void _setOwner(Object* owner) = 0;
    virtual Object* findOwner() const = 0;
};

}  // namespace tovan

#include "nvk/data/CPropertyCollection.h"

#include <algorithm>

#include "nvk/platform/ReferenceSet.h"
#include "nvk/platform/iNode.h"

namespace nvk {

using tovan::Exception;
using tovan::iProperty;
using tovan::iPropertyCollection;
using tovan::Ptr;
using tovan::Value;
using tovan::WString;

const tovan::ClassTag CPropertyCollection::Tag("Norvatek.data.PropertyCollection");

namespace {

const tovan::ClassRegistration s_registration(CPropertyCollection::Tag.name(),
                                              []() -> tovan::Object* { return CPropertyCollection::newInstance(); });

constexpr const char* kClass = "CPropertyCollection";

bool isTrimmedSpace(tovan::wchar c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F ||
           c == 0x3000 || c == 0xFEFF;
}

WString trimmed(const WString& s) {
    if (s.isNull()) return s;
    size_t b = 0, e = s.length();
    while (b < e && isTrimmedSpace(s[b])) ++b;
    while (e > b && isTrimmedSpace(s[e - 1])) --e;
    return s.substr(b, e - b);
}

}  // namespace

tovan::ObjectPool<CPropertyCollection>& CPropertyCollection::pool() {
    static tovan::ObjectPool<CPropertyCollection> p("CPropertyCollection");
    return p;
}

CPropertyCollection* CPropertyCollection::newInstance() { return pool().newInstance(); }
CPropertyCollection* CPropertyCollection::allocate() { return pool().allocate(); }
void CPropertyCollection::deallocate(CPropertyCollection* c) { tovan::ObjectPool<CPropertyCollection>::deallocate(c); }

void CPropertyCollection::deleteInstance() { pool().deleteInstance(this); }

// Emptied on its way to the free list (onDeactivate): handed out as it is.
void CPropertyCollection::onActivate() {}

void CPropertyCollection::onDeactivate() {
    resetStorage();
    owner_ = nullptr;
}

static_assert(sizeof(CPropertyCollection) <= 88, "one block holds the collection and its first slots: keep it small");

tovan::Object* CPropertyCollection::clone() const { return CPropertyCollectionData::clone(); }

tovan::CriticalSection& CPropertyCollection::lock() const {
    // Blocks come 16-aligned from the allocator: the low bits say nothing.
    static tovan::CriticalSection locks[64];
    return locks[(reinterpret_cast<uintptr_t>(this) >> 4) % 64];
}

bool CPropertyCollection::IsHierarchicalProperty(const WString& name) { return !name.isEmpty() && name[0] == u'/'; }

// ---- lookup -------------------------------------------------------------------

iProperty* CPropertyCollection::findFlat(const WString& name) const {
    return GetProperty(name);
}

bool CPropertyCollection::resolve(const WString& name, bool create, iPropertyCollection*& target, WString& path,
                                  WString& leaf) const {
    target = nullptr;
    size_t slash = name.rfind(u'/');
    path = name.substr(0, slash);
    leaf = name.substr(slash + 1);
    tovan::iNode* owner = owner_ ? owner_->findAs<tovan::iNode>() : nullptr;
    if (!owner) return false;
    Ptr<tovan::iNode> node;
    if (path.isEmpty()) {
        node.reset(owner->getRoot());
    } else {
        // "//x" names the property x of the first node anywhere. A path that is not a valid
        // expression finds no node, like one that matches nothing: find gives null, and the
        // operations that need the node say they did not find the location.
        WString expr = path == u"/" ? WString(u"//*") : path;
        tovan::NodeReferenceSet found;
        owner->query(expr, tovan::QueryFirstOnly | tovan::QueryNoThrow, found);
        node.reset(found.first());
    }
    if (!node) return false;
    if (create)
        target = &node->getProperties();
    else
        target = const_cast<iPropertyCollection*>(static_cast<const tovan::iNode&>(*node).getProperties());
    return true;
}

iProperty* CPropertyCollection::find(const WString& name) const {
    if (iProperty* p = findFlat(name)) return p;
    if (!IsHierarchicalProperty(name) || !owner_) return nullptr;
    tovan::AutoCriticalSection guard(lock());
    iPropertyCollection* target;
    WString path, leaf;
    if (!resolve(name, false, target, path, leaf) || !target) return nullptr;
    return target == this ? findFlat(leaf) : target->find(leaf);
}

iProperty& CPropertyCollection::get(const WString& name) const {
    if (iProperty* p = find(name)) return *p;
    throw Exception(kClass, "get(string)", u"Property '%ls' not found", name);
}

iProperty& CPropertyCollection::get(int index) const {
    if (!findData()) throw tovan::InvalidIndexException(kClass, "get(int)", index, -1);
    return *GetProperty(index);
}

bool CPropertyCollection::isDefined(const WString& name) const { return findIndex(name) != -1; }

int CPropertyCollection::findIndex(const WString& name) const { return findData() ? GetIndex(name) : -1; }

int CPropertyCollection::getIndex(const WString& name) const {
    int i = findIndex(name);
    if (i < 0) throw Exception(kClass, "getIndex", u"Property %ls not found", name);
    return i;
}

int CPropertyCollection::getSize() const { return GetNumProperties(); }

// ---- define -------------------------------------------------------------------

iProperty& CPropertyCollection::defineValue(const WString& name, const Value* value, uint32_t flags,
                                            const char* operation) {
    const uint32_t low = flags & 0xFF;
    if ((flags & tovan::DefineHierarchical) && IsHierarchicalProperty(name)) {
        tovan::AutoCriticalSection guard(lock());
        iPropertyCollection* target;
        WString path, leaf;
        if (!resolve(name, true, target, path, leaf))
            throw Exception(kClass, operation, u"Failed to find hierarchical location \"%ls\"\n", path);
        if (target != this) return value ? target->define(leaf, *value, low) : target->define(leaf, low);
        return defineValue(leaf, value, low, operation);
    }
    CPropertyCollectionData& d = data();
    if (d.GetInternalIndex(name) >= 0) throw Exception(kClass, operation, u"Property %ls already exists\n", name);
    Ptr<CProperty> p = d.MakeNewPropertyWithCopiedValue(name, value);
    if (low) p->setFlags(low);
    return *d.AdoptProperty(std::move(p));
}

iProperty& CPropertyCollection::define(const WString& name, uint32_t flags) {
    return defineValue(name, nullptr, flags, "define(string)");
}

iProperty& CPropertyCollection::define(const WString& name, const Value& value, uint32_t flags) {
    return defineValue(name, &value, flags, "define(string, Value)");
}

iProperty& CPropertyCollection::define(const WString& name, const WString& text, uint32_t flags) {
    tovan::StringValue v(text);
    return defineValue(name, &v, flags, "define(string, string)");
}

iProperty& CPropertyCollection::define(const WString& name, double number, uint32_t flags) {
    tovan::DoubleValue v(number);
    return defineValue(name, &v, flags, "define(string, double)");
}

// ---- remove -------------------------------------------------------------------

bool CPropertyCollection::remove(const WString& name) { return RemoveProperty(name); }

void CPropertyCollection::remove(int index) {
    if (!findData()) throw tovan::InvalidIndexException(kClass, "remove(int)", index, -1);
    GetProperty(index);  // squeezes holes out and checks the index
    RemovePropertyUsingInternalIndex(index);
}

void CPropertyCollection::removeAll() {
    Clear();
}

// ---- rename, reorder, keep ----------------------------------------------------------

void CPropertyCollection::rename(const WString& oldName, const WString& newName) {
    if (oldName.isNull() || oldName == newName) return;
    tovan::AutoCriticalSection guard(lock());
    const WString name = trimmed(newName);

    iProperty* source = findFlat(oldName);
    iPropertyCollection* sourceList = this;
    if (!source && IsHierarchicalProperty(oldName)) {
        WString path, leaf;
        if (resolve(oldName, false, sourceList, path, leaf) && sourceList) source = sourceList->find(leaf);
    }
    if (!source) throw Exception(kClass, "rename", u"Source property %ls not found to rename", oldName);

    iPropertyCollection* targetList = this;
    WString leaf = name;
    if (IsHierarchicalProperty(name)) {
        WString path;
        if (!resolve(name, true, targetList, path, leaf))
            throw Exception(kClass, "rename", u"Failed to find hierarchical location \"%ls\"\n", path);
    }
    iProperty* clash = targetList == this ? findFlat(leaf) : targetList->find(leaf);
    if (clash && clash != source)
        throw Exception(kClass, "rename", u"Destination property %ls already exists, cannot rename source property %ls",
                        name, oldName);
    if (leaf.isEmpty())
        throw Exception(kClass, "rename", u"Source property %ls cannot be renamed to empty text", oldName);

    if (targetList == sourceList) {
        source->SetName(leaf);
        return;
    }
    Ptr<iProperty> keepAlive(source);
    targetList->define(leaf, source->getValue());
    sourceList->remove(sourceList->getIndex(source->getName()));
}

void CPropertyCollection::reorder(const std::vector<WString>& names, bool createMissing) {
    reorderOrKeep(names, createMissing, false);
}

void CPropertyCollection::keep(const std::vector<WString>& names, bool createMissing) {
    reorderOrKeep(names, createMissing, true);
}

void CPropertyCollection::reorderOrKeep(const std::vector<WString>& names, bool createMissing, bool removeRest) {
    if (names.empty()) return;
    iPropertyCollection* common = nullptr;
    std::vector<WString> leaves;
    leaves.reserve(names.size());
    {
    tovan::AutoCriticalSection guard(lock());
    for (const WString& name : names) {
        iPropertyCollection* target = this;
        WString leaf = name;
        if (IsHierarchicalProperty(name)) {
            WString path;
            if (!resolve(name, true, target, path, leaf))
                throw Exception(kClass, removeRest ? "keep" : "reorder", u"Cannot find hierarchical location \"%ls\"",
                                path);
        }
        if (common && common != target)
            throw Exception(kClass, removeRest ? "keep" : "reorder",
                            removeRest ? u"All properties for keep must be on the same property list"
                                       : u"All properties for reorder must be on the same property list");
        common = target;
        leaves.push_back(std::move(leaf));
    }
    if (common == this) {
        ReorderProperties(leaves, createMissing, removeRest);
        return;
    }
    }
    // Leaves hold no "/", so the other collection does the work flat, under
    // its own lock: this one is let go first, as the locks are shared.
    {
        if (removeRest)
            common->keep(leaves, createMissing);
        else
            common->reorder(leaves, createMissing);
    }
}

void CPropertyCollection::reorderProperty(int from, int to) {
    if (!findData()) throw tovan::InvalidIndexException(kClass, "reorderProperty", from, -1);
    ReorderProperty(from, to);
}

// ---- copying between collections ------------------------------------------------------

Ptr<CProperty> CPropertyCollection::copyOf(const iProperty& source, bool copyValue) const {
    // Named below, from the source's block or through SetName: naming it here
    // as well would look the empty name up once per property copied.
    Ptr<CProperty> p = GetPropertyClass() ? MakeNewPropertyWithCopiedValue(WString(), nullptr)
                                          : Ptr<CProperty>(CProperty::newInstance());
    copyInto(*p, source, copyValue);
    return p;
}

void CPropertyCollection::copyInto(CProperty& p, const iProperty& source, bool copyValue) {
    if (auto* cp = dynamic_cast<const CProperty*>(&source)) {
        p.assignFrom(*cp, copyValue);
        return;
    }
    p.SetName(source.getName());
    p.setFlags(source.getFlags());
    const Value& v = source.getValue();
    if (copyValue)
        p.setValue(v);
    else
        p.shareValue(const_cast<Value*>(&v));
    if (iPropertyCollection* meta = source.findMetaData(); meta && meta->getSize() > 0)
        p.getMetaData().assignFrom(meta, true);
}

void CPropertyCollection::copyInto(CProperty& p, const CProperty& source, bool copyValue) {
    p.assignFrom(source, copyValue);
}

template <class At>
void CPropertyCollection::assignEach(int n, At at, bool copyValues) {
    if (GetSlotCount() == 0) {
        // Nothing to lose when a copy fails (a clone's new collection): fill in place.
        Reserve(size_t(n));
        try {
            if (GetPropertyClass()) {
                for (int i = 0; i < n; ++i) {
                    Ptr<CProperty> p = MakeNewPropertyWithCopiedValue(WString(), nullptr);
                    copyInto(*p, at(i), copyValues);
                    AddProperty(p.get());
                }
            } else {
                // The properties come from the pool a batch at a time; the
                // collection's reference is the only one taken (the room is
                // reserved, so adding cannot fail), and a failing copy sends
                // the batch's unused rest back.
                constexpr int kBatch = 16;
                for (int i = 0; i < n; i += kBatch) {
                    const int k = std::min(kBatch, n - i);
                    CProperty* made[kBatch];
                    CProperty::newInstances(made, size_t(k));
                    int j = 0;
                    try {
                        for (; j < k; ++j) {
                            copyInto(*made[j], at(i + j), copyValues);
                            AddProperty(made[j]);
                        }
                    } catch (...) {
                        for (; j < k; ++j) Ptr<CProperty> back(made[j]);
                        throw;
                    }
                }
            }
        } catch (...) {
            Clear();
            throw;
        }
        return;
    }
    Ptr<CPropertyCollection> fresh(newInstance());
    fresh->SetPropertyClass(GetPropertyClass());
    fresh->Reserve(size_t(n));
    for (int i = 0; i < n; ++i) {
        Ptr<CProperty> p = GetPropertyClass() ? MakeNewPropertyWithCopiedValue(WString(), nullptr)
                                              : Ptr<CProperty>(CProperty::newInstance());
        copyInto(*p, at(i), copyValues);
        fresh->AddProperty(p.get());
    }
    TakeProperties(*fresh);
}

void CPropertyCollection::assignFrom(const iPropertyCollection* source, bool copyValues) {
    if (!source) throw Exception(kClass, "assignFrom", u"Source collection is NULL");
    if (source == this) return;
    if (auto* own = dynamic_cast<const CPropertyCollection*>(source)) {
        assignFrom(*own, copyValues);
        return;
    }
    assignEach(source->getSize(), [source](int i) -> const iProperty& { return source->get(i); }, copyValues);
}

void CPropertyCollection::assignFrom(const CPropertyCollection& source, bool copyValues) {
    if (&source == this) return;
    source.CompactPropertiesArray();
    CProperty* const* slots = source.GetSlots().data();
    assignEach(source.GetNumProperties(), [slots](int i) -> const CProperty& { return *slots[i]; }, copyValues);
}

void CPropertyCollection::attachFrom(const iPropertyCollection* source, bool copyValues) {
    if (!source) throw Exception(kClass, "attachFrom", u"Source collection is NULL");
    if (source == this) return;
    // Make every copy first so that a failing one leaves the collection as it was.
    std::vector<Ptr<CProperty>> incoming;
    const int n = source->getSize();
    incoming.reserve(size_t(n));
    for (int i = 0; i < n; ++i) incoming.push_back(copyOf(source->get(i), copyValues));
    CPropertyCollectionData& d = data();
    for (Ptr<CProperty>& p : incoming) {
        if (CProperty* own = d.GetProperty(p->getName())) {
            own->shareValue(p->findValue());
            own->setFlags(p->getFlags());
        } else {
            d.AddProperty(p.get());
        }
    }
}

void CPropertyCollection::appendFrom(const iPropertyCollection* source) {
    if (!source) throw Exception(kClass, "appendFrom", u"Source collection is NULL");
    const int n = source->getSize();
    for (int i = 0; i < n; ++i) {
        const WString& name = source->get(i).getName();
        if (findFlat(name)) throw Exception(kClass, "appendFrom", u"Property %ls already exists\n", name);
    }
    std::vector<Ptr<CProperty>> incoming;
    incoming.reserve(size_t(n));
    for (int i = 0; i < n; ++i) incoming.push_back(copyOf(source->get(i), true));
    CPropertyCollectionData& d = data();
    for (Ptr<CProperty>& p : incoming) d.AddProperty(p.get());
}

}  // namespace nvk

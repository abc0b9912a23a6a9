#include "nvk/protocol/CProtocolInfo.h"

#include "nvk/data/CPropertyCollection.h"
#include "nvk/platform/Exception.h"

using namespace tovan;

namespace nvk {

bool CAttributeMap::has(const wchar* key) const { return values_.count(key) != 0; }

bool CAttributeMap::remove(const wchar* key) { return values_.erase(key) != 0; }

std::vector<WString> CAttributeMap::keys() const {
    std::vector<WString> out;
    for (const auto& [k, v] : values_) out.emplace_back(k);
    return out;
}

// ---- CComponentInfo ------------------------------------------------------------------------

const ClassTag CComponentInfo::Tag("Norvatek.protocol.ComponentInfo");

CComponentInfo::CComponentInfo(CProtocolInfo* owner) : owner_(owner) {}

CComponentInfo::~CComponentInfo() {
    if (auto* sub = dynamic_cast<CProtocolInfo*>(subprotocol_.get())) sub->parent_ = nullptr;
}

void CComponentInfo::setIntAttribute(const wchar* key, int32_t value) {
    attributes_.set(key, value);
    if (owner_ && std::u16string_view(key) == NVK_ComponentLocalID) owner_->indexValid_ = false;
}

bool CComponentInfo::removeAttribute(const wchar* key) {
    if (!attributes_.remove(key)) return false;
    if (owner_ && std::u16string_view(key) == NVK_ComponentLocalID) owner_->indexValid_ = false;
    return true;
}

iProtocolInfo* CComponentInfo::getProtocol() const { return owner_; }

std::vector<WString> CComponentInfo::getParameterNames() const {
    std::vector<WString> out;
    for (const auto& p : parameters_) out.push_back(p->name_);
    return out;
}

iParameter* CComponentInfo::findParameter(const WString& name) const {
    for (const auto& p : parameters_)
        if (namesEqual(p->name_, name)) return p.get();
    return nullptr;
}

iParameter& CComponentInfo::setParameter(const WString& name, const ParameterValue& value) {
    if (name.isEmpty())
        throw BadParameterException("CComponentInfo", "setParameter", u"A parameter needs a name");
    for (auto& p : parameters_)
        if (namesEqual(p->name_, name)) {
            p->value_ = value;
            return *p;
        }
    parameters_.emplace_back(new CParameter(name, value));
    return *parameters_.back();
}

bool CComponentInfo::removeParameter(const WString& name) {
    for (auto it = parameters_.begin(); it != parameters_.end(); ++it)
        if (namesEqual((*it)->name_, name)) {
            parameters_.erase(it);
            return true;
        }
    return false;
}

void CComponentInfo::renameParameter(const WString& oldName, const WString& newName) {
    if (newName.isEmpty())
        throw BadParameterException("CComponentInfo", "renameParameter", u"A parameter needs a name");
    CParameter* found = nullptr;
    for (auto& p : parameters_) {
        if (namesEqual(p->name_, oldName))
            found = p.get();
        else if (namesEqual(p->name_, newName))
            throw Exception("CComponentInfo", "renameParameter", u"Parameter '%ls' already exists", newName);
    }
    if (!found) throw Exception("CComponentInfo", "renameParameter", u"Parameter '%ls' not found", oldName);
    found->name_ = newName;
}

// ---- CParameter ----------------------------------------------------------------------------

const ClassTag CParameter::Tag("Norvatek.protocol.Parameter");

CParameter::CParameter(const WString& name, const ParameterValue& value)
    : name_(name), value_(value), type_(NVK_StringType) {}

CParameter::~CParameter() = default;

void CParameter::setTypeText(const WString& type) { type_ = type.isNull() ? WString(NVK_StringType) : type; }

iPropertyCollection& CParameter::getMetaData() {
    if (!metaData_) metaData_ = Ptr<iPropertyCollection>(CPropertyCollection::newInstance());
    return *metaData_;
}

void CComponentInfo::setSubprotocol(iProtocolInfo* sub) {
    // A protocol that already contains this component cannot become its child: the
    // parent links would loop and the subprotocol would own its own ancestor.
    for (iProtocolInfo* p = owner_; p && sub; p = p->getParentComponent() ? p->getParentComponent()->getProtocol() : nullptr)
        if (p == sub)
            throw BadParameterException("CComponentInfo", "setSubprotocol",
                                        u"A protocol cannot be a subprotocol of one of its own components");
    if (auto* old = dynamic_cast<CProtocolInfo*>(subprotocol_.get())) old->parent_ = nullptr;
    subprotocol_.reset(sub);
    if (auto* now = dynamic_cast<CProtocolInfo*>(sub)) now->parent_ = this;
}

// ---- CProtocolInfo -------------------------------------------------------------------------

const ClassTag CProtocolInfo::Tag("Norvatek.protocol.ProtocolInfo");

CProtocolInfo::CProtocolInfo(const WString& name) : name_(name.isNull() ? WString::empty() : name) {}

CProtocolInfo::~CProtocolInfo() {
    for (auto& c : components_) c->owner_ = nullptr;
}

iComponentInfo* CProtocolInfo::getComponent(int index) const {
    if (index < 0 || index >= int(components_.size()))
        throw InvalidIndexException("CProtocolInfo", "getComponent", index, static_cast<long long>(components_.size()) - 1);
    return components_[size_t(index)].get();
}

int CProtocolInfo::findComponentIndex(int32_t localID) const {
    if (!indexValid_) {
        index_.clear();
        for (size_t i = 0; i < components_.size(); ++i) {
            int32_t id = 0;
            if (components_[i]->getIntAttribute(NVK_ComponentLocalID, id)) index_.emplace(id, int(i));
        }
        indexValid_ = true;
    }
    auto it = index_.find(localID);
    return it == index_.end() ? -1 : it->second;
}

iComponentInfo* CProtocolInfo::addComponent(int32_t localID, const WString& displayName) {
    if (findComponentIndex(localID) >= 0)
        throw BadParameterException("CProtocolInfo", "addComponent", u"Local ID %d is already used in protocol %ls",
                                    localID, name_);
    Ptr<CComponentInfo> c(new CComponentInfo(this));
    c->attributes_.set(NVK_ComponentLocalID, localID);
    c->attributes_.set(NVK_ComponentDisplayName, displayName.isNull() ? WString::empty() : displayName);
    components_.push_back(c);
    index_.emplace(localID, int(components_.size()) - 1);
    return c.get();
}

void CProtocolInfo::removeComponent(int index) {
    if (index < 0 || index >= int(components_.size()))
        throw InvalidIndexException("CProtocolInfo", "removeComponent", index, static_cast<long long>(components_.size()) - 1);
    int32_t id = 0;
    bool hasID = components_[size_t(index)]->getIntAttribute(NVK_ComponentLocalID, id);
    if (hasID)
        std::erase_if(connections_, [id](const ConnectionInfo& c) { return c.fromLocalID == id || c.toLocalID == id; });
    components_[size_t(index)]->owner_ = nullptr;
    components_.erase(components_.begin() + index);
    indexValid_ = false;
}

ConnectionInfo CProtocolInfo::getConnection(int index) const {
    if (index < 0 || index >= int(connections_.size()))
        throw InvalidIndexException("CProtocolInfo", "getConnection", index, static_cast<long long>(connections_.size()) - 1);
    return connections_[size_t(index)];
}

void CProtocolInfo::addConnection(const ConnectionInfo& connection) {
    if (connection.port != PortPass && connection.port != PortFail)
        throw BadParameterException("CProtocolInfo", "addConnection",
                                    u"A connection leaves from a pass or a fail port, not port %u",
                                    unsigned(connection.port));
    if (findComponentIndex(connection.fromLocalID) < 0)
        throw BadParameterException("CProtocolInfo", "addConnection", u"No component with local ID %d in protocol %ls",
                                    connection.fromLocalID, name_);
    if (findComponentIndex(connection.toLocalID) < 0)
        throw BadParameterException("CProtocolInfo", "addConnection", u"No component with local ID %d in protocol %ls",
                                    connection.toLocalID, name_);
    connections_.push_back(connection);
}

void CProtocolInfo::removeConnection(int index) {
    if (index < 0 || index >= int(connections_.size()))
        throw InvalidIndexException("CProtocolInfo", "removeConnection", index, static_cast<long long>(connections_.size()) - 1);
    connections_.erase(connections_.begin() + index);
}

}  // namespace nvk

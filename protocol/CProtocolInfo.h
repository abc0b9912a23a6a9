#pragma once
// The library's in-memory protocol: what protocol files load into and what the tools and
// tests hand to CProtocolUtils and CProtocolLayoutUtils.
#include <map>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/iProtocolInfo.h"

namespace nvk {

/// Attributes kept in a map by key; shared by CProtocolInfo and CComponentInfo.
class NVK_EXPORT CAttributeMap {
public:
    using Value = std::variant<int32_t, bool, tovan::WString, tovan::AttributePoint, std::vector<tovan::WString>>;

    bool has(const tovan::wchar* key) const;
    bool remove(const tovan::wchar* key);
    std::vector<tovan::WString> keys() const;
    template <class T>
    bool get(const tovan::wchar* key, T& out) const {
        auto it = values_.find(key);
        if (it == values_.end()) return false;
        const T* v = std::get_if<T>(&it->second);
        if (!v) return false;
        out = *v;
        return true;
    }
    void set(const tovan::wchar* key, Value value) { values_[key] = std::move(value); }

private:
    std::map<std::u16string, Value> values_;
};

/// The attribute half of `Interface` (a protocol or a component) over one CAttributeMap.
template <class Interface>
class NVK_EXPORT AttributesIn : public Interface {
public:
    bool hasAttribute(const tovan::wchar* key) const override { return attributes_.has(key); }
    bool removeAttribute(const tovan::wchar* key) override { return attributes_.remove(key); }
    std::vector<tovan::WString> getAttributeKeys() const override { return attributes_.keys(); }
    bool getIntAttribute(const tovan::wchar* key, int32_t& out) const override { return attributes_.get(key, out); }
    void setIntAttribute(const tovan::wchar* key, int32_t value) override { attributes_.set(key, value); }
    bool getBoolAttribute(const tovan::wchar* key, bool& out) const override { return attributes_.get(key, out); }
    void setBoolAttribute(const tovan::wchar* key, bool value) override { attributes_.set(key, value); }
    bool getTextAttribute(const tovan::wchar* key, tovan::WString& out) const override {
        return attributes_.get(key, out);
    }
    void setTextAttribute(const tovan::wchar* key, const tovan::WString& value) override {
        attributes_.set(key, value);
    }
    bool getPointAttribute(const tovan::wchar* key, tovan::AttributePoint& out) const override {
        return attributes_.get(key, out);
    }
    void setPointAttribute(const tovan::wchar* key, tovan::AttributePoint value) override {
        attributes_.set(key, value);
    }
    bool getTextArrayAttribute(const tovan::wchar* key, std::vector<tovan::WString>& out) const override {
        return attributes_.get(key, out);
    }
    void setTextArrayAttribute(const tovan::wchar* key, const std::vector<tovan::WString>& value) override {
        attributes_.set(key, value);
    }

protected:
    CAttributeMap attributes_;
};

class CProtocolInfo;

/// A component parameter held in memory; its metadata is a CPropertyCollection made on demand.
class NVK_EXPORT CParameter : public tovan::iParameter {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.protocol.Parameter"
    const tovan::ClassTag& getClass() const override { return Tag; }

    CParameter(const tovan::WString& name, const tovan::ParameterValue& value);
    ~CParameter() override;

    const tovan::WString& getName() const override { return name_; }
    const tovan::ParameterValue& getValue() const override { return value_; }
    void setValue(const tovan::ParameterValue& value) override { value_ = value; }
    const tovan::WString& getTypeText() const override { return type_; }
    void setTypeText(const tovan::WString& type) override;
    tovan::iPropertyCollection& getMetaData() override;
    tovan::iPropertyCollection* findMetaData() const override { return metaData_.get(); }

private:
    friend class CComponentInfo;
    tovan::WString name_;
    tovan::ParameterValue value_;
    tovan::WString type_;
    tovan::Ptr<tovan::iPropertyCollection> metaData_;
};

/// A component: attributes, parameters and an optional subprotocol.
class NVK_EXPORT CComponentInfo : public AttributesIn<tovan::iComponentInfo> {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.protocol.ComponentInfo"
    const tovan::ClassTag& getClass() const override { return Tag; }

    explicit CComponentInfo(CProtocolInfo* owner);
    ~CComponentInfo() override;

    /// Setting or removing the local ID also tells the protocol to look its index up again.
    bool removeAttribute(const tovan::wchar* key) override;
    void setIntAttribute(const tovan::wchar* key, int32_t value) override;

    tovan::iProtocolInfo* getProtocol() const override;
    std::vector<tovan::WString> getParameterNames() const override;
    tovan::iParameter* findParameter(const tovan::WString& name) const override;
    tovan::iParameter& setParameter(const tovan::WString& name, const tovan::ParameterValue& value) override;
    bool removeParameter(const tovan::WString& name) override;
    void renameParameter(const tovan::WString& oldName, const tovan::WString& newName) override;
    tovan::iProtocolInfo* getSubprotocol() const override { return subprotocol_.get(); }
    void setSubprotocol(tovan::iProtocolInfo* sub) override;

private:
    friend class CProtocolInfo;
    CProtocolInfo* owner_;  // weak: the protocol holds the reference on us
    std::vector<tovan::Ptr<CParameter>> parameters_;
    tovan::Ptr<tovan::iProtocolInfo> subprotocol_;
};

/// A protocol held in memory. Components keep the order in which they were added; that
/// order gives the component indexes the protocol tools use.
class NVK_EXPORT CProtocolInfo : public AttributesIn<tovan::iProtocolInfo> {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.protocol.ProtocolInfo"
    const tovan::ClassTag& getClass() const override { return Tag; }

    explicit CProtocolInfo(const tovan::WString& name = tovan::WString::empty());
    ~CProtocolInfo() override;


    tovan::WString getName() const override { return name_; }
    void setName(const tovan::WString& name) override { name_ = name; }
    int getNumComponents() const override { return int(components_.size()); }
    tovan::iComponentInfo* getComponent(int index) const override;
    /// Also sets NVK_ComponentLocalID and NVK_ComponentDisplayName on the new component.
    tovan::iComponentInfo* addComponent(int32_t localID, const tovan::WString& displayName) override;
    void removeComponent(int index) override;
    int getNumConnections() const override { return int(connections_.size()); }
    tovan::ConnectionInfo getConnection(int index) const override;
    void addConnection(const tovan::ConnectionInfo& connection) override;
    void removeConnection(int index) override;
    void clearConnections() override { connections_.clear(); }
    tovan::iComponentInfo* getParentComponent() const override { return parent_; }

    /// The index of the component with this local ID, or -1.
    int findComponentIndex(int32_t localID) const;

private:
    friend class CComponentInfo;
    tovan::WString name_;
    std::vector<tovan::Ptr<CComponentInfo>> components_;
    std::vector<tovan::ConnectionInfo> connections_;
    tovan::iComponentInfo* parent_ = nullptr;  // weak: the parent holds the reference on us
    // Local ID to index, rebuilt lazily after removals or a change of a local-ID attribute.
    mutable std::unordered_map<int32_t, int> index_;
    mutable bool indexValid_ = true;
};

}  // namespace nvk

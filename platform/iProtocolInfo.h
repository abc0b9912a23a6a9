#pragma once
// The framework's access to protocols: a protocol (`iProtocolInfo`) is an ordered list of
// components (`iComponentInfo`) and an ordered list of connections between their local IDs.
// Both carry attributes keyed by the NVK_Component* / NVK_Protocol* constants below; the
// protocol tools read and write layout facts (points, offsets, drag marks, sticky notes)
// through them and never touch anything else of a component.
#include <cstdint>
#include <vector>

#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iParameter.h"

namespace tovan {

/// Port flags of a component, combined with OR. A connection leaves from a pass or a fail
/// port and always enters the input port of its target.
enum Port : unsigned { PortNone = 0, PortInput = 1, PortPass = 2, PortFail = 4 };

// ---- attribute keys ---------------------------------------------------------------------
// The stored texts are this framework's own; they are what a host sees when it lists a
// component's attributes, so they never change once released.

/// int: the component's local ID, unique within its protocol.
inline constexpr wchar NVK_ComponentLocalID[] = u"Component.LocalID";
/// text: the name shown under the component.
inline constexpr wchar NVK_ComponentDisplayName[] = u"Component.DisplayName";
/// point: where the component is drawn (with its offset included).
inline constexpr wchar NVK_ComponentPoint[] = u"Component.Point";
/// point: a user's displacement kept apart from the laid-out place.
inline constexpr wchar NVK_ComponentOffset[] = u"Component.Offset";
/// point: where a drag started; consumed by the next layout.
inline constexpr wchar NVK_ComponentMovedFrom[] = u"Component.MovedFrom";
/// point: where a drag ended, recorded by layout before it moves anything.
inline constexpr wchar NVK_ComponentMovedTo[] = u"NVK_ComponentMovedTo";
/// bool: the component has an input port.
inline constexpr wchar NVK_ComponentTakesInput[] = u"Component.TakesInput";
/// bool: the component has a pass port.
inline constexpr wchar NVK_ComponentReturnsPass[] = u"Component.ReturnsPass";
/// bool: the component has a fail port.
inline constexpr wchar NVK_ComponentReturnsFail[] = u"Component.ReturnsFail";
/// text array: the component's sticky notes, "%VERSION 3%" followed by triples.
inline constexpr wchar NVK_ComponentStickyNotes[] = u"Component.StickyNotes";
/// bool: the component is a group (it has a subprotocol) shown opened in the editor.
inline constexpr wchar NVK_ComponentGroupOpen[] = u"Component.GroupOpen";
/// text: why the group was last opened by the library (shown by the editor as a hint).
inline constexpr wchar NVK_ComponentGroupOpenReason[] = u"Component.GroupOpenReason";
/// bool: a validator found a parameter of this component invalid.
inline constexpr wchar NVK_ComponentInvalidParameters[] = u"Component.InvalidParameters";
/// text array: the protocol's own sticky notes, stored like a component's.
inline constexpr wchar NVK_ProtocolStickyNotes[] = u"Protocol.StickyNotes";
/// bool: the protocol is laid out automatically after every edit.
inline constexpr wchar NVK_ProtocolAutoLayout[] = u"Protocol.AutoLayout";

/// A point-valued attribute.
struct AttributePoint {
    int32_t x = 0;
    int32_t y = 0;
    bool operator==(const AttributePoint&) const = default;
};

/// Typed attributes shared by protocols and components. A getter returns false (and leaves
/// its output alone) when the key is absent or holds another type.
class NVK_EXPORT iAttributeHolder : public CountedObject {
public:
    virtual bool hasAttribute(const wchar* key) const = 0;
    /// True when the key was present.
    virtual bool removeAttribute(const wchar* key) = 0;
    virtual std::vector<WString> getAttributeKeys() const = 0;

    virtual bool getIntAttribute(const wchar* key, int32_t& out) const = 0;
    virtual void setIntAttribute(const wchar* key, int32_t value) = 0;
    virtual bool getBoolAttribute(const wchar* key, bool& out) const = 0;
    virtual void setBoolAttribute(const wchar* key, bool value) = 0;
    virtual bool getTextAttribute(const wchar* key, WString& out) const = 0;
    virtual void setTextAttribute(const wchar* key, const WString& value) = 0;
    virtual bool getPointAttribute(const wchar* key, AttributePoint& out) const = 0;
    virtual void setPointAttribute(const wchar* key, AttributePoint value) = 0;
    virtual bool getTextArrayAttribute(const wchar* key, std::vector<WString>& out) const = 0;
    virtual void setTextArrayAttribute(const wchar* key, const std::vector<WString>& value) = 0;
};

class iProtocolInfo;

/// One component of a protocol.
class NVK_EXPORT iComponentInfo : public iAttributeHolder {
public:
    /// The protocol that holds the component (a weak link; null once removed from it).
    virtual iProtocolInfo* getProtocol() const = 0;

    // The component's parameters, in the order they were created; names fold A-Z.
    virtual std::vector<WString> getParameterNames() const = 0;
    /// The parameter or null.
    virtual iParameter* findParameter(const WString& name) const = 0;
    /// Gives the named parameter the value, creating it (type NVK_StringType, no metadata) when
    /// missing; returns it. An empty name raises BadParameterException "A parameter needs a name".
    virtual iParameter& setParameter(const WString& name, const ParameterValue& value) = 0;
    virtual bool removeParameter(const WString& name) = 0;
    /// Renames a parameter and keeps its place, value, type and metadata. Raises Exception
    /// "Parameter '%ls' not found" or "Parameter '%ls' already exists" (a change of case alone
    /// is allowed), and BadParameterException for an empty new name.
    virtual void renameParameter(const WString& oldName, const WString& newName) = 0;

    /// The nested protocol of a group component, or null.
    virtual iProtocolInfo* getSubprotocol() const = 0;
    /// Takes a reference on `sub` (null removes the subprotocol) and makes this component its parent.
    virtual void setSubprotocol(iProtocolInfo* sub) = 0;
};

/// A connection as the protocol stores it: local IDs of both ends and the output port.
struct ConnectionInfo {
    int32_t fromLocalID = 0;
    int32_t toLocalID = 0;
    Port port = PortPass;
    bool operator==(const ConnectionInfo&) const = default;
};

/// A protocol: its components and connections, each in protocol order.
class NVK_EXPORT iProtocolInfo : public iAttributeHolder {
public:
    virtual WString getName() const = 0;
    virtual void setName(const WString& name) = 0;

    virtual int getNumComponents() const = 0;
    /// InvalidIndexException for an index outside 0 .. count - 1.
    virtual iComponentInfo* getComponent(int index) const = 0;
    /// Appends a component and returns it (the protocol holds the reference). The local ID
    /// must be new in this protocol (BadParameterException otherwise).
    virtual iComponentInfo* addComponent(int32_t localID, const WString& displayName) = 0;
    /// Removes the component at `index`, and every connection that touches it.
    virtual void removeComponent(int index) = 0;

    virtual int getNumConnections() const = 0;
    virtual ConnectionInfo getConnection(int index) const = 0;
    /// Appends a connection. Both local IDs must name components of this protocol and the
    /// port must be PortPass or PortFail (BadParameterException otherwise).
    virtual void addConnection(const ConnectionInfo& connection) = 0;
    virtual void removeConnection(int index) = 0;
    virtual void clearConnections() = 0;

    /// The group component this protocol belongs to (a weak link), or null at the top.
    virtual iComponentInfo* getParentComponent() const = 0;
};

}  // namespace tovan

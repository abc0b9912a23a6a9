#pragma once
// Collapsing a selection of components into one subprotocol component, and uncollapsing a
// subprotocol component back into its parent protocol.
//
// Before either edit the object decides whether the edit is legal; a check returns true for
// "allowed" or false with one fixed sentence for the user, and never throws for an illegal
// selection (a protocol that cannot be loaded at all still throws, as a load does). The graph
// facts come from a CProtocolLayoutUtils the object owns and loads per check, with the graph
// only (LoadProtocolGraph): a check then costs a pass over the protocol and its rules one walk,
// whatever loops the protocol has.
//
// Collapse, in this order, after the checks (nothing is changed when they refuse: the edit
// raises Exception with the refusal sentence):
// - A new protocol takes copies of the selected components, in protocol order, with their
//   local IDs, display names, every attribute, their parameters (value, type text, metadata)
//   and their own subprotocols (moved, not copied), and the connections among them. Inside,
//   the components keep their layout but are shifted so that the selection's top-left point
//   lands at (90, 95), where layout starts a protocol (left unshifted when the shift would
//   leave 32 bits); drag marks shift with them.
// - One component takes their place in the parent: local ID GetLargestLocalId + 1, display
//   name `name` ("Subprotocol" when empty), drawn where the selected component that runs
//   first was drawn (the smallest location metric of the stored points, ties to the lower
//   index), so it runs where the selection began. Its ports: input when the selection has an
//   input node, pass (fail) when some member's pass (fail) port is open or leads only out of
//   the selection.
// - Every connection from outside into the selection now enters the new component from the
//   same component and port; every component a member's pass (fail) port fed outside the
//   selection is fed from the new component's pass (fail) port, once, or as often as one
//   member fed it (a connection given twice stays twice). The rules guarantee
//   that this loses nothing: one input node takes all input, and all members that leave
//   through a port leave to the same components.
// - Promotion: a member's parameter that links to its parent (a parent or single-parent link
//   whose value names the parent's parameter N) now looks up to the new component, so the
//   new component gets a parameter N that links on to N of the old parent (a parent link
//   with value N), once per name, with the member parameter's name on its promotion stack.
// - The final flag of CollapseToSubprotocol is "run to completion": when true, the new
//   component's NVK_RunToCompletion parameter is set true (and it cannot be uncollapsed).
// - The selected components are deleted from the parent. The parent is not laid out again.
// - An empty selection breaks no rule: it gives an empty subprotocol component without ports
//   at (90, 95), which uncollapses to nothing.
//
// Uncollapse reverses it. It refuses (Exception, nothing changed) when the component is not
// in the parent, with the two sentences of its own about input components, and with every
// sentence CanUncollapseSubprotocol gives. Then the inner components are copied into the
// parent in their protocol order, numbered GetLargestLocalId + 1, + 2, ...; placed so that the
// inner component that runs first sits at the subprotocol component's point and the others
// keep their place relative to it (clamped to 32 bits); the inner connections follow; the
// subprotocol component's incoming connections go to the inner component with an open input
// port, its outgoing pass (fail) connections leave from every inner component whose pass
// (fail) port is open; each inner parameter that links to one of the subprotocol component's
// parameters takes that parameter's definition (ReplaceParamDefinition); the subprotocol
// component and its connections go. Outgoing connections that no open inner port can take
// are dropped with a warning. An uncollapsed collapse gives back the same components, points,
// parameters and connections, with new local IDs.
//
// Parameters of the subprotocol component when it is uncollapsed:
// - One that an inner parent link names is replaced into those links.
// - Any other "would have to disappear": the uncollapse is refused when such a parameter is
//   visible (IsVisible), is not a link and holds a value (non-empty text or array, or any
//   number or boolean); hidden ones and unreferenced links are dropped.
// - NVK_RunToCompletion (folding A-Z) is the run-to-completion setting: true as a boolean or
//   the text "true" (folding A-Z) refuses the uncollapse; otherwise it is dropped unseen.
// - A definition cannot be replaced when the parameter is an alias link (it names a parameter
//   of the subprotocol component, which goes away) or a parent link whose value is not text.
#include <cstdint>
#include <vector>

#include "nvk/platform/BitsetValue.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/String.h"
#include "nvk/platform/iParameter.h"
#include "nvk/platform/iProtocolInfo.h"
#include "nvk/protocol/CProtocolLayoutUtils.h"

namespace nvk {

/// Parameter of a subprotocol component: boolean (or the text "true"/"false", folding A-Z),
/// the subprotocol runs to completion as one unit and is never uncollapsed.
inline constexpr tovan::wchar NVK_RunToCompletion[] = u"RunToCompletion";

class NVK_EXPORT CProtocolCollapseUtils {
public:
    CProtocolCollapseUtils();
    ~CProtocolCollapseUtils();
    CProtocolCollapseUtils(const CProtocolCollapseUtils&) = delete;
    CProtocolCollapseUtils& operator=(const CProtocolCollapseUtils&) = delete;

    /// The framework context of the host (kept, passed to the layout object).
    void SetContext(tovan::Object* context);

    // ---- collapse ---------------------------------------------------------------------------
    /// Whether the components with these local-ID texts may become one subprotocol.
    bool CanCollapseToSubprotocol(tovan::iProtocolInfo* protocol, const std::vector<tovan::WString>& localIDs,
                                  tovan::WString& message);
    /// Collapses them (see the header's notes) and returns the new subprotocol, which the new
    /// component holds (its getParentComponent()). `serverConfig` is kept for hosts that pass
    /// one; the in-memory protocol needs nothing from a server. Raises Exception with the
    /// refusal sentence, or with "Did not find:" and the ID, before changing anything.
    tovan::iProtocolInfo* CollapseToSubprotocol(tovan::Object* serverConfig, tovan::iProtocolInfo* protocol,
                                                const std::vector<tovan::WString>& localIDs,
                                                const tovan::WString& name, bool runToCompletion);

    // ---- uncollapse -------------------------------------------------------------------------
    bool CanUncollapseSubprotocol(tovan::iComponentInfo* component, tovan::WString& message);
    /// Moves the subprotocol's components into `parent` in place of `component`; `newLocalIDs`
    /// receives their local IDs in the subprotocol's component order.
    void UncollapseSubprotocol(tovan::iComponentInfo* component, tovan::iProtocolInfo* parent,
                               std::vector<int32_t>& newLocalIDs);

    /// The largest local ID among the protocol's components; 0 without components.
    static int32_t GetLargestLocalId(const tovan::iProtocolInfo* protocol);

    // ---- parameters -------------------------------------------------------------------------
    /// False when the parameter's metadata marks it NVK_NeverShow (true, or the text "true").
    static bool IsVisible(const tovan::iParameter& parameter);
    /// Whether the component's parameter `name` can be written into the inner parameters that
    /// link to it; false when the component has no such parameter.
    static bool CanParamDefinitionBeReplaced(const tovan::iComponentInfo* component, const tovan::WString& name);
    /// Writes `definition` (a parameter of `component`) into every parameter of the components
    /// of its subprotocol that links to it by a parent or single-parent link: a parent link
    /// definition gives its value (and keeps a single-parent link single), any other gives its
    /// type text and value. Metadata stays. The number of parameters rewritten.
    static int ReplaceParamDefinition(tovan::iComponentInfo* component, const tovan::iParameter& definition);

    // ---- the collapse rules, in the order IsOKToCollapse runs them ---------------------------
    static bool HasAtMostOneInputNode(const CProtocolUtils& utils, const tovan::BitsetValue& set,
                                      tovan::WString& message);
    /// Deliberately strict: a member whose outputs go both into the set and out of it fails,
    /// because its inside successors are themselves reachable downstream.
    static bool WontFormALoop(const CProtocolUtils& utils, const tovan::BitsetValue& set, tovan::WString& message);
    /// `kind` is CProtocolUtils::AdjInput, AdjPass or AdjFail; any other kind throws
    /// "Unrecognized adjacent flag".
    static bool CheckAllConnectionsToPortAreTheSame(const CProtocolUtils& utils, const tovan::BitsetValue& set,
                                                    int kind, tovan::WString& message);

protected:
    bool IsOKToCollapse(tovan::iProtocolInfo* protocol, const std::vector<tovan::WString>& localIDs,
                        tovan::WString& message);
    tovan::iProtocolInfo* Collapse(tovan::iProtocolInfo* protocol, const std::vector<tovan::WString>& localIDs,
                                   const tovan::WString& name, bool runToCompletion);
    bool IsOKToUnCollapse(tovan::iComponentInfo* component, tovan::WString& message);
    void UnCollapse(tovan::iComponentInfo* component, tovan::iProtocolInfo* parent, std::vector<int32_t>& newLocalIDs);

private:
    CProtocolLayoutUtils layout_;
    tovan::BitsetValue selected_;
    tovan::Object* serverConfig_ = nullptr;
};

}  // namespace nvk

#include "nvk/services/WsdlReport.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "nvk/platform/Exception.h"

namespace nvk {

using tovan::WString;
using W = CWsdlParser;

namespace {

class Walker {
public:
    Walker(W& wsdl, WsdlReport& report) : wsdl_(wsdl), r_(report) {}

    void part(const W::CPart& part) {
        const WString& ref = part.type.isEmpty() ? part.element : part.type;
        if (ref.isEmpty()) return;
        std::u16string key = (part.type.isEmpty() ? u"element " : u"type ") + ref.str();
        if (seen_.count(key)) return;
        // A part's element is looked up once, for both questions.
        tovan::iNode* element = nullptr;
        try {
            if (!part.type.isEmpty()) {
                if (wsdl_.IsOfAtomicType(part)) return;
            } else {
                element = wsdl_.GetMatchingSchemaElementDoc(part);
                if (wsdl_.IsOfAtomicType(*element, W::DOC)) return;
            }
        } catch (const tovan::Exception& e) {
            seen_.insert(key);
            r_.types.push_back({tovan::toNarrow(ref), {}, e.what()});
            return;
        }
        type(ref, key, [&](W::CCustomType& out) {
            return element ? wsdl_.GetElementsCustomType(*element, out) : wsdl_.GetCustomTypeInfoRPC(part, out);
        });
    }

private:
    using Read = std::function<bool(W::CCustomType&)>;
    struct Pending {
        WString shownName;
        std::u16string key;
        Read read;
    };

    // Depth first, each type before its members' types, from a stack of its
    // own: a chain of types as long as the document allows must not run out
    // of the call stack.
    void type(const WString& shownName, const std::u16string& key, const Read& read) {
        std::vector<Pending> pending{{shownName, key, read}};
        while (!pending.empty()) {
            Pending next = std::move(pending.back());
            pending.pop_back();
            visit(next, pending);
        }
    }

    void visit(const Pending& p, std::vector<Pending>& pending) {
        if (!seen_.insert(p.key).second) return;
        WsdlReport::Type t;
        try {
            if (!p.read(t.type)) return;  // atomic after all
        } catch (const tovan::Exception& e) {
            t.unsupported = e.what();
        }
        t.name = tovan::toNarrow(p.shownName);
        // One name written with one prefix may mean types of two namespaces.
        if (!names_.insert(t.name).second) t.name += " {" + tovan::toNarrow(t.type.ns) + "}";
        r_.types.push_back(std::move(t));
        // The report is not added to while the members are listed.
        const std::vector<W::CElement>& members = r_.types.back().type.elements;
        const size_t first = pending.size();
        for (const W::CElement& e : members) {
            if (e.atomic || e.name.view() == u"*") continue;
            if (!e.type.isEmpty()) {
                WString local(e.type.view().substr(e.type.view().find(u':') + 1));
                WString ns = e.ns;
                pending.push_back({e.type, u"{" + e.ns.str() + u"}" + local.str(), [this, ns, local](W::CCustomType& out) {
                                       wsdl_.GetCustomType(ns, local, out);
                                       return true;
                                   }});
            } else if (e.node) {
                // Anonymous types are told apart by their element's node.
                std::u16string anon = u"anonymous@" + tovan::toWide(std::to_string(reinterpret_cast<uintptr_t>(e.node.get()))).str();
                tovan::Ptr<tovan::iNode> node = e.node;
                pending.push_back({WString(e.name.str() + u" (anonymous)"), anon,
                                   [this, node](W::CCustomType& out) { return wsdl_.GetElementsCustomType(*node, out); }});
            }
        }
        // The first member's type is taken next, as a recursive walk would.
        std::reverse(pending.begin() + std::ptrdiff_t(first), pending.end());
    }

    W& wsdl_;
    WsdlReport& r_;
    std::unordered_set<std::u16string> seen_;
    std::unordered_set<std::string> names_;
};

}  // namespace

WsdlReport WsdlReport::Build(W& wsdl) {
    WsdlReport r;
    Walker walker(wsdl, r);
    wsdl.GetDefinitionsInfo(r.targetNamespace);
    WString service;
    std::vector<W::CPort> ports;
    wsdl.GetServiceInfo(service, ports);
    std::unordered_map<std::u16string, W::CMsg> messages;
    auto message = [&](const WString& name, Message& out) {
        if (name.isEmpty()) return;
        auto it = messages.find(name.str());
        if (it == messages.end()) {
            W::CMsg m;
            wsdl.GetMessageInfo(name, m);
            it = messages.emplace(name.str(), std::move(m)).first;
            for (const W::CPart& part : it->second.parts) walker.part(part);
        }
        out.msg = it->second;
        out.msg.name = name;
        out.present = true;
    };
    for (const W::CPort& p : ports) {
        Port port;
        port.port = p;
        wsdl.GetBindingInfo(p.binding, port.binding);
        std::vector<W::COperation> ops;
        wsdl.GetOperationInfoFromPortType(port.binding.type, ops);
        W::MergeBindingDetails(port.binding, ops);
        for (W::COperation& op : ops) {
            Operation o;
            o.op = std::move(op);
            message(o.op.input, o.input);
            message(o.op.output, o.output);
            port.operations.push_back(std::move(o));
        }
        r.ports.push_back(std::move(port));
    }
    return r;
}

}  // namespace nvk

#include "nvk/protocol/CProtocolFile.h"

#include <cmath>

#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/CJsonWriter.h"
#include "nvk/platform/ArrayValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/Value.h"

using namespace tovan;
namespace json = cajun::json;

namespace nvk {
namespace {

const char* const kClass = "CProtocolFile";

/// Where in the document a check failed, as "components[2].point".
class FieldPath {
public:
    explicit FieldPath(std::u16string text = {}) : text_(std::move(text)) {}
    FieldPath member(std::u16string_view name) const {
        return FieldPath(text_.empty() ? std::u16string(name) : text_ + u"." + std::u16string(name));
    }
    FieldPath item(size_t i) const { return FieldPath(text_ + u"[" + format(u"%d", int(i)).str() + u"]"); }
    /// The path as it follows the file's name in a message: ": components[2].point",
    /// or nothing at the top of the document.
    std::u16string where() const { return text_.empty() ? std::u16string() : u": " + text_; }

private:
    std::u16string text_;
};

class Loader {
public:
    explicit Loader(WString file) : file_(std::move(file)) {}

    const json::Element* find(const json::Object& o, std::u16string_view name) const {
        auto it = o.Find(name);
        return it == o.End() ? nullptr : &it->element;
    }
    const json::Element& require(const json::Object& o, std::u16string_view name, const FieldPath& at) const {
        const json::Element* e = find(o, name);
        if (!e) throw Exception(kClass, "Read", u"%ls%ls: missing required field", file_, at.member(name).where());
        return *e;
    }
    const json::Object& object(const json::Element& e, const FieldPath& at) const {
        if (!e.Is<json::Object>()) throw Exception(kClass, "Read", u"%ls%ls: expected an object", file_, at.where());
        return e.As<json::Object>();
    }
    const json::Array& array(const json::Element& e, const FieldPath& at) const {
        if (!e.Is<json::Array>()) throw Exception(kClass, "Read", u"%ls%ls: expected an array", file_, at.where());
        return e.As<json::Array>();
    }
    WString text(const json::Element& e, const FieldPath& at) const {
        if (!e.Is<json::String>()) throw Exception(kClass, "Read", u"%ls%ls: expected a text", file_, at.where());
        return WString(e.As<json::String>().Value());
    }
    bool boolean(const json::Element& e, const FieldPath& at) const {
        if (!e.Is<json::Boolean>())
            throw Exception(kClass, "Read", u"%ls%ls: expected true or false", file_, at.where());
        return e.As<json::Boolean>().Value();
    }
    static bool isInt32(const json::Element& e) {
        if (!e.Is<json::Number>()) return false;
        double d = e.As<json::Number>().Value();
        return std::isfinite(d) && d == std::floor(d) && d >= -2147483648.0 && d <= 2147483647.0;
    }
    int32_t int32(const json::Element& e, const FieldPath& at) const {
        if (!isInt32(e)) throw Exception(kClass, "Read", u"%ls%ls: expected a 32-bit integer", file_, at.where());
        return int32_t(e.As<json::Number>().Value());
    }
    AttributePoint point(const json::Element& e, const FieldPath& at) const {
        if (!e.Is<json::Array>() || e.As<json::Array>().Size() != 2 || !isInt32(e.As<json::Array>()[0]) ||
            !isInt32(e.As<json::Array>()[1]))
            throw Exception(kClass, "Read", u"%ls%ls: expected [x, y] with two 32-bit integers", file_, at.where());
        const json::Array& a = e.As<json::Array>();
        return {int32_t(a[0].As<json::Number>().Value()), int32_t(a[1].As<json::Number>().Value())};
    }
    std::vector<WString> texts(const json::Element& e, const FieldPath& at) const {
        std::vector<WString> out;
        const json::Array& a = array(e, at);
        for (size_t i = 0; i < a.Size(); ++i) out.push_back(text(a[i], at.item(i)));
        return out;
    }
    ParameterValue parameter(const json::Element& e, const FieldPath& at, bool inArray) const {
        if (e.Is<json::String>()) return ParameterValue::ofText(WString(e.As<json::String>().Value()));
        if (e.Is<json::Boolean>()) return ParameterValue::ofBoolean(e.As<json::Boolean>().Value());
        if (e.Is<json::Number>()) {
            double d = e.As<json::Number>().Value();
            if (std::isfinite(d) && d == std::floor(d) && std::fabs(d) < 9007199254740992.0)
                return ParameterValue::ofInteger(int64_t(d));
            return ParameterValue::ofReal(d);
        }
        if (e.Is<json::Array>() && !inArray) {
            std::vector<ParameterValue> items;
            const json::Array& a = e.As<json::Array>();
            for (size_t i = 0; i < a.Size(); ++i) items.push_back(parameter(a[i], at.item(i), true));
            return ParameterValue::ofArray(std::move(items));
        }
        throw Exception(
            kClass, "Read", u"%ls%ls: %ls", file_, at.where(),
            inArray ? u"expected a text, number or boolean"
                    : u"expected a text, number, boolean, array of them or an object with a value");
    }

    // Metadata entries keep texts, booleans, numbers (an integral one in the 32-bit range is
    // an integer) and arrays of texts.
    Ptr<Value> metaValue(const json::Element& e, const FieldPath& at) const {
        if (e.Is<json::String>()) return Ptr<Value>(new StringValue(WString(e.As<json::String>().Value())));
        if (e.Is<json::Boolean>()) return Ptr<Value>(new BooleanValue(e.As<json::Boolean>().Value()));
        if (isInt32(e)) return Ptr<Value>(new IntegerValue(int32_t(e.As<json::Number>().Value())));
        if (e.Is<json::Number>()) return Ptr<Value>(new DoubleValue(e.As<json::Number>().Value()));
        if (!e.Is<json::Array>())
            throw Exception(kClass, "Read", u"%ls%ls: expected a text, number, boolean or array of texts", file_,
                            at.where());
        Ptr<StringArrayValue> items(new StringArrayValue);
        for (const WString& item : texts(e, at)) items->append(item);
        return items;
    }

    // A bare value, or {"value": V, "type": T, "metadata": {...}} for a parameter that has a
    // link type or metadata.
    void parameterInto(iComponentInfo& comp, const WString& name, const json::Element& e, const FieldPath& at) const {
        if (!e.Is<json::Object>()) {
            comp.setParameter(name, parameter(e, at, false));
            return;
        }
        const json::Object& o = e.As<json::Object>();
        ParameterValue value = parameter(require(o, u"value", at), at.member(u"value"), false);
        WString type = NVK_StringType;
        if (const json::Element* t = find(o, u"type")) type = text(*t, at.member(u"type"));
        std::vector<std::pair<WString, Ptr<Value>>> entries;
        if (const json::Element* md = find(o, u"metadata")) {
            FieldPath mdAt = at.member(u"metadata");
            for (const auto& m : object(*md, mdAt)) {
                WString key(m.name);
                for (const auto& [other, unused] : entries)
                    if (namesEqual(other, key))
                        throw Exception(kClass, "Read", u"%ls%ls: the name is given twice", file_,
                                        mdAt.member(m.name).where());
                entries.emplace_back(key, metaValue(m.element, mdAt.member(m.name)));
            }
        }
        iParameter& p = comp.setParameter(name, value);
        p.setTypeText(type);
        // A name given twice (folding A-Z) is one parameter, the later entries winning, as for
        // bare values.
        for (const auto& [key, v] : entries) {
            if (iProperty* old = p.getMetaData().find(key))
                old->setValue(*v);
            else
                p.getMetaData().define(key, *v);
        }
    }

    Ptr<CProtocolInfo> protocol(const json::Object& doc, const FieldPath& at, int depth) const {
        if (depth > CProtocolFile::MaxNesting)
            throw Exception(kClass, "Read", u"%ls%ls: subprotocols nest deeper than %d levels", file_, at.where(),
                            CProtocolFile::MaxNesting);
        WString name = text(require(doc, u"name", at), at.member(u"name"));
        Ptr<CProtocolInfo> p(new CProtocolInfo(name));
        if (const json::Element* e = find(doc, u"autoLayout"))
            p->setBoolAttribute(NVK_ProtocolAutoLayout, boolean(*e, at.member(u"autoLayout")));
        if (const json::Element* e = find(doc, u"stickyNotes"))
            p->setTextArrayAttribute(NVK_ProtocolStickyNotes, texts(*e, at.member(u"stickyNotes")));
        FieldPath compsAt = at.member(u"components");
        const json::Array& comps = array(require(doc, u"components", at), compsAt);
        for (size_t i = 0; i < comps.Size(); ++i) component(*p, object(comps[i], compsAt.item(i)), compsAt.item(i), depth);
        FieldPath connsAt = at.member(u"connections");
        const json::Array& conns = array(require(doc, u"connections", at), connsAt);
        for (size_t k = 0; k < conns.Size(); ++k) connection(*p, object(conns[k], connsAt.item(k)), connsAt.item(k));
        return p;
    }

    void component(CProtocolInfo& p, const json::Object& c, const FieldPath& at, int depth) const {
        int32_t id = int32(require(c, u"id", at), at.member(u"id"));
        WString name = text(require(c, u"name", at), at.member(u"name"));
        unsigned ports = 0;
        FieldPath portsAt = at.member(u"ports");
        const json::Array& portList = array(require(c, u"ports", at), portsAt);
        for (size_t i = 0; i < portList.Size(); ++i) {
            WString port = text(portList[i], portsAt.item(i));
            if (port == u"input") ports |= PortInput;
            else if (port == u"pass") ports |= PortPass;
            else if (port == u"fail") ports |= PortFail;
            else
                throw Exception(kClass, "Read",
                                u"%ls%ls: unknown port \"%ls\" (expected \"input\", \"pass\" or \"fail\")", file_,
                                portsAt.item(i).where(), port);
        }
        AttributePoint pt = point(require(c, u"point", at), at.member(u"point"));
        int existing = p.findComponentIndex(id);
        if (existing >= 0)
            throw Exception(kClass, "Read", u"%ls%ls: duplicate local ID %d (also components[%d])", file_,
                            at.member(u"id").where(), id, existing);
        iComponentInfo* comp = p.addComponent(id, name);
        comp->setBoolAttribute(NVK_ComponentTakesInput, (ports & PortInput) != 0);
        comp->setBoolAttribute(NVK_ComponentReturnsPass, (ports & PortPass) != 0);
        comp->setBoolAttribute(NVK_ComponentReturnsFail, (ports & PortFail) != 0);
        comp->setPointAttribute(NVK_ComponentPoint, pt);
        if (const json::Element* e = find(c, u"offset"))
            comp->setPointAttribute(NVK_ComponentOffset, point(*e, at.member(u"offset")));
        if (const json::Element* e = find(c, u"movedFrom"))
            comp->setPointAttribute(NVK_ComponentMovedFrom, point(*e, at.member(u"movedFrom")));
        if (const json::Element* e = find(c, u"stickyNotes"))
            comp->setTextArrayAttribute(NVK_ComponentStickyNotes, texts(*e, at.member(u"stickyNotes")));
        if (const json::Element* e = find(c, u"parameters")) {
            FieldPath paramsAt = at.member(u"parameters");
            for (const auto& m : object(*e, paramsAt)) {
                if (m.name.empty())
                    throw Exception(kClass, "Read", u"%ls%ls: a parameter needs a name", file_, paramsAt.where());
                parameterInto(*comp, WString(m.name), m.element, paramsAt.member(m.name));
            }
        }
        if (const json::Element* e = find(c, u"subprotocol")) {
            FieldPath subAt = at.member(u"subprotocol");
            Ptr<CProtocolInfo> sub = protocol(object(*e, subAt), subAt, depth + 1);
            comp->setSubprotocol(sub.get());
        }
    }

    void connection(CProtocolInfo& p, const json::Object& c, const FieldPath& at) const {
        int32_t from = int32(require(c, u"from", at), at.member(u"from"));
        int32_t to = int32(require(c, u"to", at), at.member(u"to"));
        WString port = text(require(c, u"port", at), at.member(u"port"));
        Port kind = PortPass;
        if (port == u"fail") kind = PortFail;
        else if (!(port == u"pass"))
            throw Exception(kClass, "Read", u"%ls%ls: unknown port \"%ls\" (expected \"pass\" or \"fail\")", file_,
                            at.member(u"port").where(), port);
        int fromIndex = p.findComponentIndex(from), toIndex = p.findComponentIndex(to);
        if (fromIndex < 0)
            throw Exception(kClass, "Read", u"%ls%ls: unknown local ID %d", file_, at.member(u"from").where(), from);
        if (toIndex < 0)
            throw Exception(kClass, "Read", u"%ls%ls: unknown local ID %d", file_, at.member(u"to").where(), to);
        bool has = false;
        p.getComponent(fromIndex)->getBoolAttribute(kind == PortFail ? NVK_ComponentReturnsFail : NVK_ComponentReturnsPass, has);
        if (!has)
            throw Exception(kClass, "Read", u"%ls%ls: component %d (components[%d]) has no %ls port", file_,
                            at.member(u"port").where(), from, fromIndex, port);
        p.getComponent(toIndex)->getBoolAttribute(NVK_ComponentTakesInput, has);
        if (!has)
            throw Exception(kClass, "Read", u"%ls%ls: component %d (components[%d]) has no input port", file_,
                            at.member(u"to").where(), to, toIndex);
        p.addConnection({from, to, kind});
    }

private:
    WString file_;
};

Ptr<CProtocolInfo> readFrom(iFileInterface& file, const WString& name) {
    Loader loader(name);
    json::Object doc;
    bool found = false;
    CJsonReader reader(dynamic_cast<vcFileInterface*>(&file));
    try {
        found = reader.ReadNextObject(doc);
    } catch (const Exception& e) {
        // Where the text went wrong, counted from 1 as editors count, as `nvk json` reports it.
        const json::Location at = reader.GetErrorLocation();
        throw Exception(kClass, "Read", u"%ls:%d:%d: %ls", name, json::countFromOne(at.line),
                        json::countFromOne(at.column), e.getMessage());
    }
    if (!found) throw Exception(kClass, "Read", u"%ls: no JSON object found", name);
    return loader.protocol(doc, FieldPath(), 0);
}

// ---- writing --------------------------------------------------------------------------------

class StreamSink : public CJsonWriter::Writer {
public:
    explicit StreamSink(std::u16string& out) : out_(out) {}
    void write(wchar c) override { out_ += c; }
    void write(const wchar* text) override { out_ += text; }
    void write(std::u16string_view text) override { out_.append(text); }

private:
    std::u16string& out_;
};

void writePoint(CJsonWriter& w, AttributePoint p) { w.array().value(long(p.x)).value(long(p.y)).endArray(); }

void writeTexts(CJsonWriter& w, const std::vector<WString>& items) {
    w.array();
    for (const WString& s : items) w.value(s.view());
    w.endArray();
}

void writeParameterValue(CJsonWriter& w, const ParameterValue& v) {
    switch (v.kind) {
        case ParameterValue::Text: w.value(v.text.view()); break;
        case ParameterValue::Integer: w.value(format(u"%lld", (long long)v.integer).c_str(), false); break;
        case ParameterValue::Real: w.value(v.real); break;
        case ParameterValue::Boolean: w.value(v.boolean); break;
        case ParameterValue::Array:
            w.array();
            for (const ParameterValue& item : v.items) writeParameterValue(w, item);
            w.endArray();
            break;
    }
}

void writeMetaValue(CJsonWriter& w, const iParameter& p, const iProperty& entry) {
    const Value& v = entry.getValue();
    if (auto* text = dynamic_cast<const StringValue*>(&v)) {
        w.value(text->get().view());
    } else if (auto* flag = dynamic_cast<const BooleanValue*>(&v)) {
        w.value(flag->get());
    } else if (auto* integer = dynamic_cast<const IntegerValue*>(&v)) {
        w.value(long(integer->get()));
    } else if (auto* real = dynamic_cast<const DoubleValue*>(&v)) {
        w.value(real->get());
    } else if (auto* items = dynamic_cast<const StringArrayValue*>(&v)) {
        w.array();
        for (size_t i = 0; i < items->size(); ++i) w.value(items->get(i).view());
        w.endArray();
    } else {
        // Not refused: the rest of the protocol still gets written, and the caller is told.
        Exception::warn(u"Metadata '%ls' of parameter '%ls' is written as its text", entry.getName(), p.getName());
        w.value(v.toString().view());
    }
}

// Parameters with a type of their own or metadata become objects; plain ones stay bare
// values, as every file had them before parameters could carry either.
void writeParameter(CJsonWriter& w, const iParameter& p) {
    const iPropertyCollection* md = p.findMetaData();
    const bool typed = p.getTypeText() != WString(NVK_StringType);
    if (!typed && (!md || md->getSize() == 0)) {
        writeParameterValue(w, p.getValue());
        return;
    }
    w.object().key(u"value");
    writeParameterValue(w, p.getValue());
    if (typed) w.key(u"type").value(p.getTypeText().view());
    if (md && md->getSize() > 0) {
        w.key(u"metadata").object();
        for (int i = 0; i < md->getSize(); ++i) {
            if (md->get(i).getName().isEmpty()) {
                // JSON keys are never empty here; the rest of the protocol is still written.
                Exception::warn(u"Metadata without a name of parameter '%ls' is left out", p.getName());
                continue;
            }
            w.key(md->get(i).getName().view());
            writeMetaValue(w, p, md->get(i));
        }
        w.endObject();
    }
    w.endObject();
}

void writeProtocol(CJsonWriter& w, const iProtocolInfo& p) {
    w.object().key(u"name").value(p.getName().view());
    bool flag = false;
    if (p.getBoolAttribute(NVK_ProtocolAutoLayout, flag)) w.key(u"autoLayout").value(flag);
    std::vector<WString> notes;
    if (p.getTextArrayAttribute(NVK_ProtocolStickyNotes, notes)) {
        w.key(u"stickyNotes");
        writeTexts(w, notes);
    }
    w.key(u"components").array();
    for (int i = 0; i < p.getNumComponents(); ++i) {
        const iComponentInfo* c = p.getComponent(i);
        int32_t id = 0;
        c->getIntAttribute(NVK_ComponentLocalID, id);
        WString name = WString::empty();
        c->getTextAttribute(NVK_ComponentDisplayName, name);
        w.writeNewLine().object().key(u"id").value(long(id)).key(u"name").value(name.view());
        w.key(u"ports").array();
        bool has = false;
        if (c->getBoolAttribute(NVK_ComponentTakesInput, has) && has) w.value(u"input");
        if (c->getBoolAttribute(NVK_ComponentReturnsPass, has) && has) w.value(u"pass");
        if (c->getBoolAttribute(NVK_ComponentReturnsFail, has) && has) w.value(u"fail");
        w.endArray();
        AttributePoint pt;
        c->getPointAttribute(NVK_ComponentPoint, pt);
        w.key(u"point");
        writePoint(w, pt);
        if (c->getPointAttribute(NVK_ComponentOffset, pt)) {
            w.key(u"offset");
            writePoint(w, pt);
        }
        if (c->getPointAttribute(NVK_ComponentMovedFrom, pt)) {
            w.key(u"movedFrom");
            writePoint(w, pt);
        }
        if (c->getTextArrayAttribute(NVK_ComponentStickyNotes, notes)) {
            w.key(u"stickyNotes");
            writeTexts(w, notes);
        }
        std::vector<WString> params = c->getParameterNames();
        if (!params.empty()) {
            w.key(u"parameters").object();
            for (const WString& name2 : params) {
                w.key(name2.view());
                writeParameter(w, *c->findParameter(name2));
            }
            w.endObject();
        }
        if (const iProtocolInfo* sub = c->getSubprotocol()) {
            w.key(u"subprotocol");
            writeProtocol(w, *sub);
        }
        w.endObject();
    }
    w.endArray().key(u"connections").array();
    for (int k = 0; k < p.getNumConnections(); ++k) {
        ConnectionInfo info = p.getConnection(k);
        w.writeNewLine().object().key(u"from").value(long(info.fromLocalID)).key(u"to").value(long(info.toLocalID));
        w.key(u"port").value(info.port == PortFail ? u"fail" : u"pass").endObject();
    }
    w.endArray().endObject();
}

}  // namespace

Ptr<CProtocolInfo> CProtocolFile::Read(const WString& path) {
    vcFileInterface file(path, FileMode::Read);
    return readFrom(file, path);
}

Ptr<CProtocolInfo> CProtocolFile::Read(vcFileInterface& file) { return readFrom(file, file.getName()); }

Ptr<CProtocolInfo> CProtocolFile::ReadText(const WString& text, const WString& name) {
    vcFileInterface file;
    file.openText(text, name);
    return readFrom(file, name);
}

WString CProtocolFile::WriteText(const iProtocolInfo* protocol) {
    if (!protocol) throw Exception(kClass, "Write", u"Cannot dereference a NULL pointer");
    std::u16string out;
    StreamSink sink(out);
    CJsonWriter w(&sink, nullptr);
    writeProtocol(w, *protocol);
    out += u'\n';
    return WString(std::move(out));
}

void CProtocolFile::Write(const iProtocolInfo* protocol, const WString& path) {
    WString text = WriteText(protocol);
    vcFileInterface file(path, FileMode::Write);
    file.writeText(text.view());
    file.close();
}

}  // namespace nvk

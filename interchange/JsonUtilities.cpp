#include "interchange/JsonUtilities.h"

#include <map>
#include <vector>

#include "platform/ArrayValue.h"
#include "platform/Exception.h"
#include "platform/NDimArrayValue.h"

namespace nvk::JsonUtilities {

using namespace cajun::json;

namespace {

class FileSink : public CJsonWriter::Writer {
public:
    explicit FileSink(tovan::iFileInterface* file) : file_(file) {}
    void write(tovan::wchar c) override { file_->writeChar(c); }
    void write(const tovan::wchar* text) override { file_->writeText(text); }

private:
    tovan::iFileInterface* file_;
};

// The sink is a base so that it is built before the writer that uses it.
struct SinkHolder {
    explicit SinkHolder(tovan::iFileInterface* file) : sink(file) {}
    FileSink sink;
};

class FileWriter : private SinkHolder, public CJsonWriter {
public:
    FileWriter(tovan::iFileInterface* file, const tovan::wchar* variableName)
        : SinkHolder(file), CJsonWriter(&sink, variableName) {}
};

class ElementWriter : public ConstVisitor {
public:
    explicit ElementWriter(CJsonWriter& writer) : w_(writer) {}
    void Visit(const Array& a) override {
        w_.array();
        for (const Element& e : a) e.Accept(*this);
        w_.endArray();
    }
    void Visit(const Object& o) override {
        w_.object();
        for (const auto& m : o) {
            w_.key(std::u16string_view(m.name));
            m.element.Accept(*this);
        }
        w_.endObject();
    }
    void Visit(const Number& n) override { w_.value(n.Value()); }
    void Visit(const String& s) override { w_.value(std::u16string_view(s.Value()), true); }
    void Visit(const Boolean& b) override { w_.value(b.Value()); }
    void Visit(const Null&) override { w_.value(u"null", false); }

private:
    CJsonWriter& w_;
};

}  // namespace

CJsonWriter* CreateJsonWriter(tovan::vcFileInterface* file, const tovan::wchar* variableName) {
    if (!file) throw tovan::Exception("JsonUtilities", "CreateJsonWriter", u"%ls", u"Invalid null output stream");
    return new FileWriter(file, variableName);
}

void DestroyJsonWriter(CJsonWriter*& writer) {
    delete writer;
    writer = nullptr;
}

void WriteElement(CJsonWriter& writer, const Element& element) {
    ElementWriter visitor(writer);
    element.Accept(visitor);
}

void WriteElement(CJsonWriter& writer, const Object& object) {
    ElementWriter visitor(writer);
    visitor.Visit(object);
}

namespace {

// One element of an array value, typed access first so that large arrays do
// not make a value object per element.
void writeArrayElement(CJsonWriter& w, const tovan::ArrayValue& array, size_t i) {
    switch (array.getTypeCode()) {
    case tovan::VT_DoubleArray: w.value(static_cast<const tovan::DoubleArrayValue&>(array).get(i)); return;
    case tovan::VT_IntegerArray: w.value(long(static_cast<const tovan::IntegerArrayValue&>(array).get(i))); return;
    case tovan::VT_BooleanArray: w.value(bool(static_cast<const tovan::BooleanArrayValue&>(array).get(i))); return;
    case tovan::VT_ByteArray: w.value(long(static_cast<const tovan::ByteArrayValue&>(array).get(i))); return;
    case tovan::VT_StringArray:
        w.value(std::u16string_view(static_cast<const tovan::StringArrayValue&>(array).get(i).view()), true);
        return;
    case tovan::VT_NullArray: w.value(u"null", false); return;
    case tovan::VT_ValueArray: WriteValue(w, static_cast<const tovan::ValueArrayValue&>(array).get(i)); return;
    default: WriteValue(w, *array.getElement(i));
    }
}

void writeDimension(CJsonWriter& w, const tovan::NDimArrayValue& nd, size_t dim, size_t& flat) {
    w.array();
    unsigned n = nd.getDimensions()[dim];
    for (unsigned k = 0; k < n; ++k) {
        if (dim + 1 == nd.getDimensionCount())
            writeArrayElement(w, nd.flat(), flat++);
        else
            writeDimension(w, nd, dim + 1, flat);
    }
    w.endArray();
}

}  // namespace

void WriteValue(CJsonWriter& w, const tovan::Value& value) {
    switch (value.getTypeCode()) {
    case tovan::VT_Boolean: w.value(static_cast<const tovan::BooleanValue&>(value).get()); return;
    case tovan::VT_Double: w.value(static_cast<const tovan::DoubleValue&>(value).get()); return;
    case tovan::VT_Integer: w.value(long(static_cast<const tovan::IntegerValue&>(value).get())); return;
    case tovan::VT_Null: w.value(u"null", false); return;
    // No JSON array form for a table of named values: written as null.
    case tovan::VT_HashTable: w.value(u"null", false); return;
    case tovan::VT_NDimArray: {
        const auto& nd = static_cast<const tovan::NDimArrayValue&>(value);
        size_t flat = 0;
        writeDimension(w, nd, 0, flat);
        return;
    }
    default: break;
    }
    if (const auto* array = value.findAs<tovan::ArrayValue>()) {
        w.array();
        for (size_t i = 0; i < array->size(); ++i) writeArrayElement(w, *array, i);
        w.endArray();
        return;
    }
    tovan::WString text = value.toString();
    w.value(std::u16string_view(text.view()), true);
}

void AppendElementToArray(CJsonWriter& w, const tovan::iNode* node, bool newLineAfter, bool withChildren,
                          bool childrenAsList) {
    w.object();
    if (const tovan::iPropertyCollection* properties = node->getProperties()) {
        for (int i = 0; i < properties->getSize(); ++i) {
            const tovan::iProperty& p = properties->get(i);
            w.key(std::u16string_view(p.getName().view()));
            WriteValue(w, p.getValue());
        }
    }
    int count = node->getNumberOfChildren();
    if (withChildren && count > 0) {
        if (childrenAsList) {
            w.key(u"children").array();
            for (int i = 0; i < count; ++i) AppendElementToArray(w, node->getChildAt(i), newLineAfter, true, true);
            w.endArray();
        } else {
            // One member per distinct name, in the order the names first appear.
            std::vector<std::pair<tovan::WString, std::vector<int>>> groups;
            for (int i = 0; i < count; ++i) {
                const tovan::WString& name = node->getChildAt(i)->getName();
                auto it = groups.begin();
                while (it != groups.end() && !(it->first == name)) ++it;
                if (it == groups.end()) {
                    groups.push_back({name, {}});
                    it = std::prev(groups.end());
                }
                it->second.push_back(i);
            }
            for (const auto& [name, members] : groups) {
                w.key(std::u16string_view(name.view())).array();
                for (int i : members) AppendElementToArray(w, node->getChildAt(i), false, true, false);
                w.endArray();
            }
        }
    }
    w.endObject();
    if (newLineAfter) w.writeNewLine();
}

void AppendRecordToArray(CJsonWriter& w, const tovan::iDataRecord& record, bool newLineAfter, bool withChildren,
                         bool childrenAsList) {
    if (const tovan::iNode* root = record.getRootNode())
        AppendElementToArray(w, root, newLineAfter, withChildren, childrenAsList);
}

}  // namespace nvk::JsonUtilities

tovan::iDataRecord::~iDataRecord() = default;

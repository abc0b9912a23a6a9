// Writers over files, and element trees written through a writer.
#include "nvk/interchange/JsonUtilities.h"

#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"

namespace nvk::JsonUtilities {

using namespace cajun::json;

namespace {

class FileSink : public CJsonWriter::Writer {
public:
    explicit FileSink(tovan::iFileInterface* file) : file_(file) {}
    void write(tovan::wchar c) override { file_->writeChar(c); }
    void write(const tovan::wchar* text) override { file_->writeText(text); }
    void write(std::u16string_view text) override { file_->writeText(text); }
    bool takesUtf8() const override { return true; }
    void writeUtf8(std::string_view text) override { file_->writeUtf8(text); }

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
    // Refused here, with the writer's own message: a sink over no file would be a sink
    // all the same, and the first write through it (at once, with a variable name) would crash.
    if (!file) throw tovan::Exception("JsonUtilities", "CreateJsonWriter", u"Invalid null output stream");
    return new FileWriter(file, variableName);
}

void DestroyJsonWriter(CJsonWriter*& writer) {
    delete writer;
    writer = nullptr;
}

void WriteElement(CJsonWriter& writer, const Element& element) {
    CJsonWriter::Batch batch(writer);
    ElementWriter visitor(writer);
    element.Accept(visitor);
    batch.finish();
}

void WriteElement(CJsonWriter& writer, const Object& object) {
    CJsonWriter::Batch batch(writer);
    ElementWriter visitor(writer);
    visitor.Visit(object);
    batch.finish();
}

}  // namespace nvk::JsonUtilities

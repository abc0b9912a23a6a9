#include "nvk/interchange/CJsonReader.h"

#include "nvk/interchange/CJsonConverter.h"
#include "nvk/interchange/JsonNodeBuilder.h"
#include "nvk/interchange/JsonParser.h"
#include "nvk/interchange/JsonScanner.h"

namespace nvk {

using namespace tovan;

using cajun::json::JsonException;
using cajun::json::JsonInputStream;
using cajun::json::Location;
using cajun::json::ParseException;
using cajun::json::Parser;
using cajun::json::ScanException;
using cajun::json::Scanner;
using cajun::json::Tokens;

const ClassTag CJsonReader::Tag("Norvatek.class.JsonReader");

namespace {

ObjectPool<CJsonReader>& pool() {
    static ObjectPool<CJsonReader> p("CJsonReader");
    return p;
}

// Readers made directly (not through the pool) are counted here, so a leaked
// reader shows up in the same detector either way.
LeakDetector& directDetector() { return pool().leakDetector(); }

const ClassRegistration registration(CJsonReader::Tag.name(), []() -> tovan::Object* { return CJsonReader::newInstance(); });

// Skipping more characters than this between two objects means the source
// holds no records.
constexpr int kMaxSkippedCharacters = 1024;

}  // namespace

CJsonReader::CJsonReader() = default;

CJsonReader::CJsonReader(vcFileInterface* file) {
    setFileInterface(file);
    directDetector().AddToLeakDetector();
    counted_ = true;
}

CJsonReader::CJsonReader(const CJsonReader&) : CountedObject(), PooledObject() {
    throw Exception("CJsonReader", "CJsonReader(const CJsonReader&)", u"Unable to clone CJsonReader");
}

CJsonReader& CJsonReader::operator=(const CJsonReader&) {
    throw Exception("CJsonReader", "operator=", u"Unable to assign CJsonReader");
}

CJsonReader::~CJsonReader() {
    if (counted_) directDetector().RemoveFromLeakDetector();
}

CJsonReader* CJsonReader::newInstance() {
    CJsonReader* r = pool().newInstance();
    r->pooled_ = true;
    return r;
}

void CJsonReader::deleteInstance() {
    if (pooled_)
        pool().deleteInstance(this);
    else
        delete this;
}

tovan::Object* CJsonReader::clone() const { throw Exception("CJsonReader", "clone", u"Unable to clone CJsonReader"); }

void CJsonReader::onDeactivate() {
    stream_.reset();
    names_.reset();  // the pool keeps no name blocks alive
}

void CJsonReader::setFileInterface(iFileInterface* file) {
    if (!file) throw Exception("CJsonReader", "setFileInterface", u"Cannot read JSON data using a null input file");
    stream_ = std::make_unique<JsonInputStream>(file);
}

Location CJsonReader::GetLocation() const { return stream_ ? stream_->GetLocation() : Location(); }

void CJsonReader::ResetStream() {
    if (!stream_) return;
    JsonInputStream& in = *stream_;
    in.ClearInjected();
    // Not counted: the location of the first token is where the text
    // begins, as if the white space were not there.
    while (!in.EOS() && cajun::json::isJsonSpace(in.Peek())) in.Get();
    wchar next = in.EOS() ? wchar(0) : in.Peek();
    if (next != u'[' && next != u'{') {
        if (!in.HasFirstInjected())
            in.SetFirstInjected(u'{');
        else
            in.SetSecondInjected(u'{');
        in.SetTrailingInjected(u'}');
    }
}

bool CJsonReader::FindNextObject() {
    // A reader made without a source (newInstance, before setFileInterface) has
    // nothing to read, rather than reading through a stream that is not there.
    if (!stream_) return false;
    JsonInputStream& in = *stream_;
    if (in.EOS()) return false;
    int skipped = 0;
    while (in.Peek() != u'{') {
        in.Consume();
        if (in.EOS()) return false;
        if (++skipped > kMaxSkippedCharacters) {
            errorLocation_ = in.GetLocation();
            throw Exception("CJsonReader", "FindNextObject", u"Cannot find JSON object in source");
        }
    }
    return true;
}

namespace {

// Runs a read, turning the reader's layers' failures into the framework
// exception with their category prefix, and noting where reading stopped.
template <class Read>
void reporting(Read read, JsonInputStream& in, Location& errorLocation) {
    try {
        read();
    } catch (const ScanException& e) {
        errorLocation = e.location();
        throw Exception("CJsonReader", "ReadNextObject", u"JSON scan error: %ls", e.getMessage());
    } catch (const ParseException& e) {
        // A token list that ran out has no token to point at: the stream's end is the place.
        errorLocation = e.begin() == Location() && e.end() == Location() ? in.GetLocation() : e.begin();
        throw Exception("CJsonReader", "ReadNextObject", u"JSON parse error: %ls", e.getMessage());
    } catch (const JsonException& e) {
        errorLocation = in.GetLocation();
        throw Exception("CJsonReader", "ReadNextObject", u"JSON read error: %ls", e.getMessage());
    }
}

}  // namespace

bool CJsonReader::ReadNextObject(cajun::json::Object& object) {
    if (!FindNextObject()) return false;
    reporting(
        [&] {
            Tokens tokens;
            Scanner().Scan(*stream_, tokens);
            cajun::json::Object result;
            Parser(tokens).ParseObject(result);
            object = std::move(result);
        },
        *stream_, errorLocation_);
    return true;
}

bool CJsonReader::ReadNextObject(tovan::Array<tovan::Ptr<tovan::iNode>>& nodes) {
    if (!FindNextObject()) return false;
    CJsonConverter converter;
    // Straight to nodes: the same outcome as reading the element tree above
    // and converting it, without building the token list and the tree.
    if (!names_) names_ = std::make_unique<MemberNames>();
    JsonNodeBuilder builder(*stream_, converter, *names_);
    reporting([&] { builder.ReadObject(); }, *stream_, errorLocation_);
    // The converter's own failures pass as they are, as they do after the tree.
    builder.RaiseConversionFailure();
    converter.GetNodeList(nodes, true);
    return true;
}

}  // namespace nvk

tovan::iJsonReader::~iJsonReader() = default;

#pragma once
// Reads a stream of JSON text, one top-level object at a time.
#include <memory>

#include "nvk/interchange/JsonElements.h"
#include "nvk/interchange/JsonInputStream.h"
#include "nvk/interchange/iJsonReader.h"
#include "nvk/platform/Export.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/Pool.h"

namespace nvk {

class MemberNames;

/// A tolerant reader of JSON records:
///  - up to 1024 characters of anything (text, commas, brackets) before each
///    object are skipped, so a top-level array of objects yields its objects
///    one by one, and so does a log with text between records;
///  - "Infinity" and "Inf", with an optional sign, are numbers;
///  - after ResetStream, a source whose first significant character is
///    neither "{" nor "[" is read as if wrapped in braces (a bare member list).
///
///   vcFileInterface file(u"records.json", FileMode::Read);
///   CJsonReader reader(&file);
///   reader.ResetStream();
///   tovan::Array<tovan::Ptr<tovan::iNode>> nodes;
///   while (reader.ReadNextObject(nodes)) ...   // or into a cajun::json::Object
///
/// Record at a time: the reader holds only the object it is reading and a
/// block of text, so a caller that releases each record's nodes before the
/// next call (`nodes = {}`) reads a source of any size in the memory of its
/// largest record. Nothing seeks: a file interface over standard input or a
/// pipe (vcFileInterface::openStream) reads the same.
///
/// Failures raise Exception (class "CJsonReader") with the texts
/// "JSON scan error: ", "JSON parse error: " or "JSON read error: " followed by
/// the inner message; GetLocation() then tells where scanning stopped. A
/// thrown error leaves the stream where scanning stopped; no state is rolled
/// back. One thread at a time. Not copyable: copying and assigning raise
/// "Unable to clone CJsonReader" / "Unable to assign CJsonReader".
class NVK_EXPORT CJsonReader : public tovan::iJsonReader, public tovan::PooledObject {
public:
    static const tovan::ClassTag Tag;  // "Norvatek.class.JsonReader"

    CJsonReader();
    /// Calls setFileInterface, so a null file fails at once.
    explicit CJsonReader(tovan::vcFileInterface* file);
    CJsonReader(const CJsonReader&);
    CJsonReader& operator=(const CJsonReader&);
    ~CJsonReader() override;

    /// A pooled instance with no reference taken yet.
    static CJsonReader* newInstance();
    void deleteInstance() override;
    const tovan::ClassTag& getClass() const override { return Tag; }
    tovan::Object* clone() const override;
    void onDeactivate() override;

    /// Moves to the next "{" (not consumed). False when the stream ends first,
    /// or when the reader has no source yet; raises "Cannot find JSON object in
    /// source" after skipping more than 1024 characters.
    bool FindNextObject() override;
    /// Reads the next top-level object and appends the nodes CJsonConverter
    /// builds from it (one per object). False, with `nodes` untouched, when
    /// there is none.
    bool ReadNextObject(tovan::Array<tovan::Ptr<tovan::iNode>>& nodes) override;
    /// The same, up to the element tree: `object` is replaced by the object read.
    virtual bool ReadNextObject(cajun::json::Object& object);
    /// Prepares a new pass: drops injected characters, skips white space
    /// (without counting it) and, unless the next character is "{" or "[",
    /// injects a "{" before and a "}" after the rest of the source.
    void ResetStream() override;
    /// Starts over on another source (not owned). Null raises "Cannot read
    /// JSON data using a null input file".
    void setFileInterface(tovan::iFileInterface* file) override;

    /// Where the stream is now (line and column from 0); zeros without a source.
    cajun::json::Location GetLocation() const;
    /// Where the last failed read stopped: for a scan error the stream's
    /// location, for a parse error the start of the offending token (the
    /// stream is then already past the object's end).
    cajun::json::Location GetErrorLocation() const { return errorLocation_; }

private:
    std::unique_ptr<cajun::json::JsonInputStream> stream_;
    std::unique_ptr<MemberNames> names_;  // made on the first read of records as nodes
    cajun::json::Location errorLocation_;
    bool pooled_ = false;   // made by newInstance: goes back to the pool
    bool counted_ = false;  // made directly over a file: counted by hand
};

}  // namespace nvk

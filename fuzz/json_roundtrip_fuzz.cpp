// What the reader accepts, the writer writes, and the reader reads back to an
// equal element tree (numbers compare as doubles, strings unit by unit). The
// same input read into nodes is written by the tree writer twice, as UTF-16
// into a string and as UTF-8 straight into a file: the file's bytes are those
// of the string's text.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/JsonUtilities.h"
#include "nvk/platform/Array.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"

namespace {

std::vector<cajun::json::Object> readAll(tovan::vcFileInterface& file, bool& ok) {
    nvk::CJsonReader reader(&file);
    std::vector<cajun::json::Object> records;
    cajun::json::Object o;
    ok = true;
    try {
        while (reader.ReadNextObject(o)) records.push_back(o);
    } catch (const tovan::Exception&) {
        ok = false;
    }
    return records;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    tovan::vcFileInterface in;
    in.openBytes(std::string(reinterpret_cast<const char*>(data), size));
    bool ok;
    std::vector<cajun::json::Object> records = readAll(in, ok);
    if (!ok || records.empty()) return 0;

    nvk::JsonStringSink sink;
    try {
        nvk::CJsonWriter writer(&sink);
        writer.array();
        for (const auto& r : records) nvk::JsonUtilities::WriteElement(writer, r);
        writer.endArray();
    } catch (const tovan::Exception&) {
        // The writer refuses some trees the tolerant reader accepts (an empty
        // member name, for one); refusing with an exception is its contract.
        return 0;
    }

    tovan::vcFileInterface back;
    back.openText(tovan::WString(sink.text()));
    std::vector<cajun::json::Object> again = readAll(back, ok);
    if (!ok || again != records) std::abort();

    tovan::Array<tovan::Ptr<tovan::iNode>> nodes;
    try {
        tovan::vcFileInterface source;
        source.openBytes(std::string(reinterpret_cast<const char*>(data), size));
        nvk::CJsonReader reader(&source);
        while (reader.ReadNextObject(nodes)) {
        }
    } catch (const tovan::Exception&) {
        return 0;  // the typed conversion refuses more than the element reader
    }
    nvk::JsonStringSink text;
    tovan::vcFileInterface file, expected;
    file.openOutput();
    bool wroteText = true, wroteFile = true;
    try {
        nvk::CJsonWriter writer(&text);
        writer.array();
        for (const auto& n : nodes) nvk::JsonUtilities::AppendElementToArray(writer, n.get(), true, true, false);
        writer.endArray();
    } catch (const tovan::Exception&) {
        wroteText = false;
    }
    try {
        nvk::CJsonWriter* writer = nvk::JsonUtilities::CreateJsonWriter(&file);
        try {
            writer->array();
            for (const auto& n : nodes) nvk::JsonUtilities::AppendElementToArray(*writer, n.get(), true, true, false);
            writer->endArray();
        } catch (...) {
            nvk::JsonUtilities::DestroyJsonWriter(writer);
            throw;
        }
        nvk::JsonUtilities::DestroyJsonWriter(writer);
    } catch (const tovan::Exception&) {
        wroteFile = false;
    }
    if (wroteText != wroteFile) std::abort();
    if (!wroteText) return 0;
    expected.openOutput();
    expected.writeText(text.text());
    if (file.getOutputBytes() != expected.getOutputBytes()) std::abort();
    return 0;
}

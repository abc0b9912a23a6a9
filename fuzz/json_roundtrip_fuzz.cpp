// What the reader accepts, the writer writes, and the reader reads back to an
// equal element tree (numbers compare as doubles, strings unit by unit).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "interchange/CJsonReader.h"
#include "interchange/JsonUtilities.h"
#include "platform/Exception.h"
#include "platform/FileInterface.h"

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
    return 0;
}

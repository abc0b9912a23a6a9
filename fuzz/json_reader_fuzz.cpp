// Untrusted JSON text: reading must end in records or a framework exception,
// never a crash or a hang, with or without ResetStream (the first byte picks),
// and every record read must turn into nodes that the writer can write.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "interchange/CJsonReader.h"
#include "interchange/JsonUtilities.h"
#include "platform/Exception.h"
#include "platform/FileInterface.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    bool reset = data[0] & 1;
    tovan::vcFileInterface file;
    file.openBytes(std::string(reinterpret_cast<const char*>(data + 1), size - 1));
    nvk::CJsonReader reader(&file);
    tovan::Array<tovan::Ptr<tovan::iNode>> nodes;
    try {
        if (reset) reader.ResetStream();
        while (reader.ReadNextObject(nodes)) {
        }
    } catch (const tovan::Exception&) {
        // Refused input is fine; what was read before stays usable.
    }
    nvk::JsonStringSink sink;
    nvk::CJsonWriter writer(&sink);
    writer.array();
    for (const auto& n : nodes) {
        try {
            nvk::JsonUtilities::AppendElementToArray(writer, n.get(), false, true, false);
        } catch (const tovan::Exception&) {
            return 0;  // an empty member name cannot be a key: the writer says so
        }
    }
    writer.endArray();
    return 0;
}

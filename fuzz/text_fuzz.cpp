// Untrusted text: file bytes of any encoding, and date-time texts. Decoding
// must agree with utf8ToUtf16 however the text is taken out; a date-time text
// that parses must print to a text that parses to the same value.
#include <cstddef>
#include <cstdint>
#include <string>

#include "nvk/platform/DateTimeValue.h"
#include "nvk/platform/Exception.h"
#include "nvk/platform/FileInterface.h"

using namespace tovan;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data), size);

    vcFileInterface whole, pieces;
    whole.openBytes(bytes);
    pieces.openBytes(bytes);
    std::u16string all = whole.readAll().str(), chunked;
    wchar buffer[7];
    for (size_t n; (n = pieces.readText(buffer, 1 + size % 7)) > 0;) chunked.append(buffer, n);
    if (chunked != all) __builtin_trap();
    if (whole.getEncoding() == TextEncoding::Utf8 && all != utf8ToUtf16(bytes)) __builtin_trap();

    try {
        DateTimeValue v = DateTimeValue::fromIso8601(toWide(bytes));
        if (!(DateTimeValue::fromIso8601(v.toString()) == v)) __builtin_trap();
    } catch (const BadParameterException&) {
    }
    return 0;
}

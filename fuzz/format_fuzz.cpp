// Run-time formats come from tables and hosts: whatever the text, formatting
// must not read past its arguments or crash.
#include <cstddef>
#include <cstdint>
#include <string>

#include "nvk/platform/Format.h"
#include "nvk/platform/String.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string bytes(reinterpret_cast<const char*>(data), size);
    std::u16string text = tovan::utf8ToUtf16(bytes);
    (void)tovan::utf16ToUtf8(text);
    std::u16string out;
    const tovan::FormatArg args[] = {tovan::FormatArg::of(42), tovan::FormatArg::of(std::u16string_view(u"w")),
                                     tovan::FormatArg::of("n"), tovan::FormatArg::of(1.5)};
    tovan::formatInto(out, text, args, 4);
    return 0;
}

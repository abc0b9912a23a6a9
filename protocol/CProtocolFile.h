#pragma once
// Protocol files: the JSON form of a protocol (name, auto-layout flag, sticky notes,
// components with their ports, points, offsets, drag marks, parameters and subprotocols,
// and connections), read with the library's JSON reader and written with its writer.
//
// A parameter is its bare value ("Limit": 100). One whose type text is not NVK_StringType, or
// that has metadata, is written as an object so that neither is lost:
//   "Leaf": {"value": "Mid", "type": "LinkSingleParentParameter",
//            "metadata": {"PromotedFromNew": ["Item 2", "Item 3"], "InitializeUsing": true}}
// ("type" and "metadata" are each left out when there is nothing to keep). Metadata values are
// texts, booleans, numbers and arrays of texts; a number reads back as an integer when it is
// integral and fits 32 bits, else as a real. Any other metadata value is written as its text,
// and an entry without a name (JSON keys here are never empty) is left out, each with a
// warning through Exception::warn; the rest of the protocol is written all the same.
//
// Reading checks everything before it builds anything: a failure raises Exception (class
// "CProtocolFile") whose text names the file, the field and the component or connection
// index, e.g. "flow.json: components[2].point: expected [x, y] with two 32-bit integers",
// and no protocol is returned. Text that is not JSON is reported where it goes wrong, line and
// column counted from 1: "flow.json:2:28: JSON parse error: Unexpected token: ]".
#include "nvk/platform/Export.h"
#include "nvk/platform/FileInterface.h"
#include "nvk/platform/Object.h"
#include "nvk/platform/iProtocolInfo.h"
#include "nvk/protocol/CProtocolInfo.h"

namespace nvk {

class NVK_EXPORT CProtocolFile {
public:
    /// Subprotocols nest at most this deep; deeper files are refused.
    static constexpr int MaxNesting = 32;

    static tovan::Ptr<CProtocolInfo> Read(const tovan::WString& path);
    /// Reads from a file interface open for reading (standard input, say); its getName()
    /// stands for the file in messages.
    static tovan::Ptr<CProtocolInfo> Read(tovan::vcFileInterface& file);
    /// Reads from text; `name` stands for the file in messages.
    static tovan::Ptr<CProtocolInfo> ReadText(const tovan::WString& text, const tovan::WString& name);
    static void Write(const tovan::iProtocolInfo* protocol, const tovan::WString& path);
    static tovan::WString WriteText(const tovan::iProtocolInfo* protocol);
};

}  // namespace nvk

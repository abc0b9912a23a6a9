#pragma once
// A picture of a protocol as SVG: components as labelled boxes with their ports,
// connections as arrows (pass solid green, fail dashed red, loop connections fainter, and
// one that runs backwards bent around below), sticky notes as notes with their text. A
// component with a subprotocol is a violet stack of two boxes that names its size.
#include <string>

#include "nvk/platform/Export.h"
#include "nvk/platform/iProtocolInfo.h"

namespace nvk {

class NVK_EXPORT CProtocolPicture {
public:
    struct Options {
        int boxWidth = 180;
        int boxHeight = 84;
        int linesOfLabel = 3;
        bool showLocalIDs = true;
    };
    /// The SVG document (UTF-8). Points are read as stored (offsets included).
    static std::string RenderSvg(tovan::iProtocolInfo* protocol, const Options& options);
    static std::string RenderSvg(tovan::iProtocolInfo* protocol) { return RenderSvg(protocol, Options()); }
};

}  // namespace nvk

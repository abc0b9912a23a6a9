#include "nvk/protocol/CProtocolPicture.h"

#include <algorithm>
#include <climits>
#include <sstream>

#include "nvk/protocol/CProtocolUtils.h"

using namespace tovan;

namespace nvk {
namespace {

std::string xmlEscape(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20 && c != '\n' && c != '\t') out += ' ';
                else out += c;
        }
    }
    return out;
}

/// Splits text into at most `maxLines` lines of about `width` characters, breaking at
/// spaces where it can; the last line ends in an ellipsis when text was left over.
std::vector<std::u16string> wrapText(std::u16string_view text, size_t width, size_t maxLines) {
    std::vector<std::u16string> lines;
    std::u16string current;
    size_t pos = 0;
    while (pos < text.size() && lines.size() < maxLines) {
        size_t end = std::min(text.size(), pos + width);
        if (end < text.size()) {
            size_t space = text.rfind(u' ', end);
            if (space != std::u16string_view::npos && space > pos) end = space;
        }
        std::u16string line(text.substr(pos, end - pos));
        pos = end;
        while (pos < text.size() && text[pos] == u' ') ++pos;
        if (lines.size() + 1 == maxLines && pos < text.size()) {
            if (line.size() + 1 > width) line.resize(width > 1 ? width - 1 : 0);
            line += u"\u2026";
        }
        lines.push_back(line);
    }
    return lines;
}

std::string narrow(std::u16string_view s) { return xmlEscape(utf16ToUtf8(s)); }

}  // namespace

namespace {

/// What every layer of the picture draws from: the perceived protocol, where its boxes sit
/// and the stream the layers write to in turn, bottom layer first.
struct Canvas {
    const CProtocolUtils& utils;
    const CProtocolPicture::Options& o;
    std::vector<CProtocolUtils::Point> boxes;
    std::ostringstream svg;
    int passY, failY, inY;  // the ports, down from a box's top
};

struct NoteBox {
    CProtocolUtils::Extent e;
    std::u16string text;
};

/// Sticky notes in protocol coordinates (a component's note follows its component).
std::vector<NoteBox> placedNotes(const CProtocolUtils& utils) {
    std::vector<NoteBox> notes;
    for (const auto& note : utils.GetStickyNotes()) {
        CProtocolUtils::Extent e = note.extent;
        if (!note.isProtocolNote) {
            CProtocolUtils::Point p = utils.GetPoint(note.owner);  // the point the note was read against
            e.left += p.x;
            e.right += p.x;
            e.top += p.y;
            e.bottom += p.y;
        }
        notes.push_back({e, note.text2.str()});
    }
    return notes;
}

/// The document's head, its background, the protocol's name and the pass and fail legend.
void drawFrame(Canvas& c, const WString& name, int originX, int originY, int width, int height, int pad) {
    c.svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
          << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height << "\" viewBox=\""
          << originX << ' ' << originY << ' ' << width << ' ' << height << "\" font-family=\"DejaVu Sans, sans-serif\">\n"
          << "<defs>\n"
          << "<marker id=\"pass\" viewBox=\"0 0 10 10\" refX=\"9\" refY=\"5\" markerWidth=\"7\" markerHeight=\"7\" "
             "orient=\"auto-start-reverse\"><path d=\"M0,0 L10,5 L0,10 z\" fill=\"#2e7d32\"/></marker>\n"
          << "<marker id=\"fail\" viewBox=\"0 0 10 10\" refX=\"9\" refY=\"5\" markerWidth=\"7\" markerHeight=\"7\" "
             "orient=\"auto-start-reverse\"><path d=\"M0,0 L10,5 L0,10 z\" fill=\"#c62828\"/></marker>\n"
          << "</defs>\n"
          << "<rect x=\"" << originX << "\" y=\"" << originY << "\" width=\"" << width << "\" height=\"" << height
          << "\" fill=\"#fafafa\"/>\n";
    c.svg << "<text x=\"" << originX + pad << "\" y=\"" << originY + 30 << "\" font-size=\"20\" font-weight=\"bold\" "
          << "fill=\"#222\">" << narrow(name.view()) << "</text>\n";
    int lx = originX + width - pad - 260, ly = originY + 26;
    c.svg << "<g font-size=\"13\" fill=\"#333\">"
          << "<line x1=\"" << lx << "\" y1=\"" << ly << "\" x2=\"" << lx + 40 << "\" y2=\"" << ly
          << "\" stroke=\"#2e7d32\" stroke-width=\"2.5\" marker-end=\"url(#pass)\"/>"
          << "<text x=\"" << lx + 48 << "\" y=\"" << ly + 4 << "\">pass</text>"
          << "<line x1=\"" << lx + 110 << "\" y1=\"" << ly << "\" x2=\"" << lx + 150 << "\" y2=\"" << ly
          << "\" stroke=\"#c62828\" stroke-width=\"2.5\" stroke-dasharray=\"7 4\" marker-end=\"url(#fail)\"/>"
          << "<text x=\"" << lx + 158 << "\" y=\"" << ly + 4 << "\">fail</text></g>\n";
}

void drawNotes(Canvas& c, const std::vector<NoteBox>& notes) {
    for (const NoteBox& note : notes) {
        const CProtocolUtils::Extent& e = note.e;
        int w = std::max(e.right - e.left, 20), h = std::max(e.bottom - e.top, 20);
        c.svg << "<g><rect x=\"" << e.left << "\" y=\"" << e.top << "\" width=\"" << w << "\" height=\"" << h
              << "\" fill=\"#fff59d\" stroke=\"#c9b22a\" stroke-width=\"1.5\" rx=\"3\"/>";
        size_t perLine = size_t(std::max(4, (w - 12) / 8));
        size_t lines = size_t(std::max(1, (h - 8) / 17));
        int ty = e.top + 18;
        for (const auto& line : wrapText(note.text, perLine, lines)) {
            c.svg << "<text x=\"" << e.left + 6 << "\" y=\"" << ty << "\" font-size=\"13\" fill=\"#4e4410\">"
                  << narrow(line) << "</text>";
            ty += 17;
        }
        c.svg << "</g>\n";
    }
}

/// From the pass port (upper right) or the fail port (lower right) to the input port (left
/// middle). A connection that runs backwards bends around below both boxes.
void drawConnections(Canvas& c) {
    const CProtocolUtils& u = c.utils;
    const BitsetValue& loops = u.GetLoopConnections();
    const int boxWidth = c.o.boxWidth;
    for (int k = 0; k < u.GetNumConnections(); ++k) {
        int f = u.GetConnectionFrom(k), t = u.GetConnectionTo(k);
        bool fail = u.GetConnectionPort(k) == PortFail;
        bool loop = loops.test(size_t(k));
        int x1 = c.boxes[size_t(f)].x + boxWidth, y1 = c.boxes[size_t(f)].y + (fail ? c.failY : c.passY);
        int x2 = c.boxes[size_t(t)].x - 2, y2 = c.boxes[size_t(t)].y + c.inY;
        int reach = std::max(60, std::abs(x2 - x1) / 2);
        std::ostringstream d;
        if (x2 > x1 + 20) {
            d << "M" << x1 << "," << y1 << " C" << x1 + reach << "," << y1 << " " << x2 - reach << "," << y2 << " " << x2
              << "," << y2;
        } else {
            int below = std::max(c.boxes[size_t(f)].y, c.boxes[size_t(t)].y) + c.o.boxHeight + 40;
            d << "M" << x1 << "," << y1 << " C" << x1 + 90 << "," << y1 << " " << x1 + 90 << "," << below << " "
              << (x1 + x2) / 2 << "," << below << " S" << x2 - 90 << "," << y2 << " " << x2 << "," << y2;
        }
        c.svg << "<path d=\"" << d.str() << "\" fill=\"none\" stroke=\"" << (fail ? "#c62828" : "#2e7d32")
              << "\" stroke-width=\"2.2\"" << (fail ? " stroke-dasharray=\"7 4\"" : "")
              << (loop ? " stroke-opacity=\"0.75\"" : "") << " marker-end=\"url(#" << (fail ? "fail" : "pass") << ")\"><title>"
              << narrow(u.GetDisplayName(f).view()) << " \u2192 " << narrow(u.GetDisplayName(t).view())
              << (fail ? " (fail)" : " (pass)") << (loop ? ", closes a loop" : "") << "</title></path>\n";
    }
}

/// Boxes with their ports, wrapped names and local IDs; start nodes are tinted.
void drawComponents(Canvas& c) {
    const CProtocolUtils& u = c.utils;
    const CProtocolPicture::Options& o = c.o;
    for (int k = 0; k < u.GetNumComponents(); ++k) {
        int x = c.boxes[size_t(k)].x, y = c.boxes[size_t(k)].y;
        unsigned ports = u.GetPorts(k);
        const iProtocolInfo* sub = u.GetComponent(k)->getSubprotocol();
        c.svg << "<g>";
        // A subprotocol is drawn as a stack of two boxes in violet, with its size in the corner.
        if (sub)
            c.svg << "<rect x=\"" << x + 6 << "\" y=\"" << y + 6 << "\" width=\"" << o.boxWidth << "\" height=\""
                  << o.boxHeight << "\" rx=\"8\" fill=\"#ede7f6\" stroke=\"#5e35b1\" stroke-width=\"1.6\"/>";
        c.svg << "<rect x=\"" << x << "\" y=\"" << y << "\" width=\"" << o.boxWidth << "\" height=\"" << o.boxHeight
              << "\" rx=\"8\" fill=\"" << (u.IsStartNode(k) ? "#e3f2fd" : "#ffffff") << "\" stroke=\""
              << (sub ? "#5e35b1\" stroke-width=\"2.4\"/>" : "#455a64\" stroke-width=\"1.6\"/>");
        if (sub)
            c.svg << "<text x=\"" << x + o.boxWidth - 6 << "\" y=\"" << y + o.boxHeight - 6
                  << "\" font-size=\"10\" text-anchor=\"end\" fill=\"#5e35b1\">subprotocol \u00b7 "
                  << sub->getNumComponents() << (sub->getNumComponents() == 1 ? " component" : " components")
                  << "</text>";
        if (ports & PortInput) c.svg << "<circle cx=\"" << x << "\" cy=\"" << y + c.inY << "\" r=\"5\" fill=\"#455a64\"/>";
        if (ports & PortPass)
            c.svg << "<circle cx=\"" << x + o.boxWidth << "\" cy=\"" << y + c.passY << "\" r=\"5\" fill=\"#2e7d32\"/>";
        if (ports & PortFail)
            c.svg << "<circle cx=\"" << x + o.boxWidth << "\" cy=\"" << y + c.failY << "\" r=\"5\" fill=\"#c62828\"/>";
        int ty = y + 22;
        for (const auto& line : wrapText(u.GetDisplayName(k).view(), size_t(std::max(6, (o.boxWidth - 16) / 8)),
                                         size_t(std::max(1, o.linesOfLabel)))) {
            c.svg << "<text x=\"" << x + o.boxWidth / 2 << "\" y=\"" << ty
                  << "\" font-size=\"13\" text-anchor=\"middle\" fill=\"#212121\">" << narrow(line) << "</text>";
            ty += 16;
        }
        if (o.showLocalIDs)
            c.svg << "<text x=\"" << x + 6 << "\" y=\"" << y + o.boxHeight - 6 << "\" font-size=\"10\" fill=\"#78909c\">#"
                  << u.GetLocalID(k) << "</text>";
        c.svg << "</g>\n";
    }
}

}  // namespace

std::string CProtocolPicture::RenderSvg(iProtocolInfo* protocol, const Options& o) {
    CProtocolUtils utils;
    utils.LoadProtocolComponents(protocol);
    Canvas c{utils, o, {}, {}, o.boxHeight / 3, (o.boxHeight * 2) / 3, o.boxHeight / 2};

    // The picture spans every box (with a margin for arrows) and every note.
    int minX = INT_MAX, minY = INT_MAX, maxX = INT_MIN, maxY = INT_MIN;
    auto include = [&](int l, int t, int r, int b) {
        minX = std::min(minX, l);
        minY = std::min(minY, t);
        maxX = std::max(maxX, r);
        maxY = std::max(maxY, b);
    };
    for (int k = 0; k < utils.GetNumComponents(); ++k) {
        CProtocolUtils::Point p = utils.GetStoredPoint(k);
        c.boxes.push_back(p);
        include(p.x - 20, p.y - 20, p.x + o.boxWidth + 20, p.y + o.boxHeight + 20);
    }
    const std::vector<NoteBox> notes = placedNotes(utils);
    for (const NoteBox& note : notes) include(note.e.left, note.e.top, note.e.right, note.e.bottom);
    if (minX > maxX) include(0, 0, 400, 200);
    const int pad = 30, header = 56;
    const int originX = minX - pad, originY = minY - pad - header;
    const int width = maxX - minX + 2 * pad, height = maxY - minY + 2 * pad + header;

    drawFrame(c, protocol->getName(), originX, originY, width, height, pad);
    // Notes go underneath, so boxes and arrows stay readable over them.
    drawNotes(c, notes);
    drawConnections(c);
    drawComponents(c);
    c.svg << "</svg>\n";
    return c.svg.str();
}

}  // namespace nvk

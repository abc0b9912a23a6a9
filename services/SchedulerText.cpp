#include "nvk/services/SchedulerText_internal.h"

#include "nvk/platform/NumberText.h"
#include "nvk/platform/Util.h"

namespace nvk::scheduler {

using tovan::WString;

void appendXmlText(std::string& out, const WString& text) {
    for (char c : tovan::toNarrow(text)) {
        switch (c) {
            case '&': out += "&amp;"; break;
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '"': out += "&quot;"; break;
            case '\r': out += "&#13;"; break;
            case '\t': out += "&#9;"; break;
            case '\n': out += "&#10;"; break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) out += "\xEF\xBF\xBD";
                else out += c;
        }
    }
}

WString encodeProperties(const CPropertyCollection* properties) {
    std::u16string out;
    if (properties)
        for (int i = 0; i < properties->getSize(); ++i) {
            const tovan::iProperty& p = properties->get(i);
            if (!out.empty()) out += u'&';
            tovan::util::urlEncodeComponent(p.getName().view(), out);
            out += u'=';
            tovan::util::urlEncodeComponent(p.getValue().toString().view(), out);
        }
    return WString(std::move(out));
}

namespace {

WString percentDecoded(std::u16string_view text) {
    std::string bytes = tovan::toNarrow(WString(text)), out;
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (bytes[i] == '%' && i + 2 < bytes.size() && tovan::hexDigitValue(bytes[i + 1]) >= 0 &&
            tovan::hexDigitValue(bytes[i + 2]) >= 0) {
            out += char(tovan::hexDigitValue(bytes[i + 1]) * 16 + tovan::hexDigitValue(bytes[i + 2]));
            i += 2;
        } else {
            out += bytes[i];
        }
    }
    return tovan::toWide(out);
}

}  // namespace

tovan::Ptr<CPropertyCollection> decodeProperties(const WString& text) {
    if (text.isEmpty()) return nullptr;
    tovan::Ptr<CPropertyCollection> out(CPropertyCollection::newInstance());
    std::u16string_view rest = text.view();
    while (true) {
        size_t amp = rest.find(u'&');
        std::u16string_view pair = rest.substr(0, amp);
        size_t eq = pair.find(u'=');
        WString name = percentDecoded(pair.substr(0, eq));
        WString value = eq == std::u16string_view::npos ? WString::empty() : percentDecoded(pair.substr(eq + 1));
        if (!name.isEmpty()) {
            out->remove(name);
            out->define(name, value);
        }
        if (amp == std::u16string_view::npos) break;
        rest.remove_prefix(amp + 1);
    }
    return out;
}

}  // namespace nvk::scheduler

#include "nvk/platform/Format.h"

#include <cmath>

#include "nvk/platform/NumberText.h"

namespace tovan {
namespace {

void pad(std::u16string& out, size_t n, char16_t c) { out.append(n, c); }

void appendAligned(std::u16string& out, std::u16string_view body, const detail::ConversionSpec& s) {
    size_t width = s.width > 0 ? size_t(s.width) : 0;
    if (body.size() >= width) {
        out.append(body);
    } else if (s.left) {
        out.append(body);
        pad(out, width - body.size(), u' ');
    } else {
        pad(out, width - body.size(), u' ');
        out.append(body);
    }
}

void appendInteger(std::u16string& out, const FormatArg& a, const detail::ConversionSpec& s) {
    bool isSigned = a.kind == ArgKind::Signed && (s.conv == u'd' || s.conv == u'i');
    bool negative = false;
    uint64_t magnitude;
    if (a.kind == ArgKind::Signed) {
        if (isSigned) {
            negative = a.i < 0;
            magnitude = negative ? uint64_t(0) - uint64_t(a.i) : uint64_t(a.i);
        } else {
            // Unsigned views of a signed value are taken at the argument's width.
            magnitude = a.bytes >= 8 ? uint64_t(a.i) : (uint64_t(a.i) & ((uint64_t(1) << (a.bytes * 8)) - 1));
        }
    } else {
        magnitude = a.u;
    }
    const int base = (s.conv == u'x' || s.conv == u'X') ? 16 : s.conv == u'o' ? 8 : 10;
    char digits[kIntegerTextMax];
    int n = int(putInteger(digits, magnitude, base) - digits);
    if (s.conv == u'X')
        for (int k = 0; k < n; ++k) digits[k] = kHexDigitsUpper[hexDigitValue(char32_t(digits[k]))];
    if (s.precision == 0 && magnitude == 0) n = 0;
    std::u16string body;
    if (negative) body.push_back(u'-');
    else if (isSigned && s.plus) body.push_back(u'+');
    else if (isSigned && s.space) body.push_back(u' ');
    if (s.alt && base == 16 && n > 0) body.append(s.conv == u'X' ? u"0X" : u"0x");
    int digitsWanted = s.precision > n ? s.precision : n;
    if (s.zero && !s.left && s.precision < 0 && s.width > 0 && size_t(s.width) > body.size() + size_t(n))
        digitsWanted = int(size_t(s.width) - body.size());
    body.append(size_t(digitsWanted - n), u'0');
    body.append(digits, digits + n);
    appendAligned(out, body, s);
}

void appendReal(std::u16string& out, double v, const detail::ConversionSpec& s) {
    const std::string text = printfDoubleText(v, char(s.conv), s.precision, s.alt);
    const bool negative = text[0] == '-';
    std::u16string body;
    if (negative) body.push_back(u'-');
    else if (s.plus) body.push_back(u'+');
    else if (s.space) body.push_back(u' ');
    const size_t digits = text.size() - (negative ? 1 : 0);
    // Zeros go between the sign and the digits; "inf" and "nan" get spaces.
    if (s.zero && !s.left && std::isfinite(v) && s.width > 0 && size_t(s.width) > body.size() + digits)
        body.append(size_t(s.width) - body.size() - digits, u'0');
    body.append(text.begin() + (negative ? 1 : 0), text.end());
    appendAligned(out, body, s);
}

void appendText(std::u16string& out, const FormatArg& a, const detail::ConversionSpec& s) {
    std::u16string body;
    if (a.isNull) {
        body = u"(null)";
    } else if (a.kind == ArgKind::Wide) {
        body.assign(a.wide);
    } else {
        body = utf8ToUtf16(a.narrow);
    }
    if (s.precision >= 0 && body.size() > size_t(s.precision)) body.resize(size_t(s.precision));
    appendAligned(out, body, s);
}

void appendChar(std::u16string& out, const FormatArg& a, const detail::ConversionSpec& s) {
    char16_t c = char16_t(a.kind == ArgKind::Signed ? uint64_t(a.i) : a.u);
    appendAligned(out, std::u16string_view(&c, 1), s);
}

}  // namespace

void formatInto(std::u16string& out, std::u16string_view f, const FormatArg* args, size_t count) {
    size_t used = 0;
    size_t i = 0;
    while (i < f.size()) {
        size_t pct = f.find(u'%', i);
        if (pct == std::u16string_view::npos) {
            out.append(f.substr(i));
            return;
        }
        out.append(f.substr(i, pct - i));
        if (pct + 1 < f.size() && f[pct + 1] == u'%') {
            out.push_back(u'%');
            i = pct + 2;
            continue;
        }
        detail::ConversionSpec s;
        size_t next = detail::parseConversion(f, pct + 1, s);
        if (next == std::u16string_view::npos) {  // a dangling '%' is kept as text
            out.append(f.substr(pct));
            return;
        }
        i = next;
        if (used >= count || !detail::conversionAccepts(s, args[used].kind)) {
            out.append(u"%!");
            out.push_back(s.conv);
            ++used;
            continue;
        }
        const FormatArg& a = args[used++];
        switch (s.conv) {
            case u's': appendText(out, a, s); break;
            case u'c': appendChar(out, a, s); break;
            case u'f': case u'F': case u'e': case u'E': case u'g': case u'G': appendReal(out, a.d, s); break;
            default: appendInteger(out, a, s); break;
        }
    }
}

}  // namespace tovan

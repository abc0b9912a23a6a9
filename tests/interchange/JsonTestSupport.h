#pragma once
// Reading, scanning, writing and generated documents shared by the JSON tests.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>

#include "nvk/interchange/CJsonReader.h"
#include "nvk/interchange/CJsonWriter.h"
#include "nvk/interchange/JsonParser.h"
#include "nvk/interchange/NodeTreeText.h"
#include "tests/support/TestSupport.h"

namespace jsontest {

using Nodes = tovan::Array<tovan::Ptr<tovan::iNode>>;

/// Every record of `text`, read straight into nodes.
inline Nodes readNodes(const std::u16string& text) {
    tovan::vcFileInterface file;
    file.openText(text);
    nvk::CJsonReader reader(&file);
    Nodes nodes;
    while (reader.ReadNextObject(nodes)) {
    }
    return nodes;
}

/// The trees as text, each followed by `separator`.
inline std::string describe(const Nodes& nodes, const char* separator = "") {
    std::string out;
    for (const auto& n : nodes) out += nvk::DescribeNodeTree(*n) + separator;
    return out;
}

inline cajun::json::Tokens tokensOf(const std::u16string& text) {
    tovan::vcFileInterface file;
    file.openText(text);
    cajun::json::JsonInputStream in(&file);
    cajun::json::Tokens tokens;
    cajun::json::Scanner().Scan(in, tokens);
    return tokens;
}

/// What `write` puts through a fresh writer, as UTF-8.
template <class Write>
std::string written(Write write) {
    nvk::JsonStringSink sink;
    nvk::CJsonWriter writer(&sink);
    write(writer);
    return tovan::toNarrow(tovan::WString(sink.text()));
}

/// Seeded random documents of every shape the converter distinguishes.
/// `writable` ones are what a written tree gives back: member names unique in
/// their object, and arrays of objects only or of no objects (a member whose
/// array mixes both becomes a property and child nodes of the same name, which
/// a JSON object cannot hold twice). The others lean on what reading straight
/// into nodes does differently: names repeated exactly or in another case,
/// objects after scalars, in nested arrays and in rows.
class Generator {
public:
    Generator(uint32_t seed, bool writable) : rng_(seed), writable_(writable) {}

    std::u16string document() {
        std::u16string out;
        object(out, 0);
        return out;
    }

private:
    int pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

    void name(std::u16string& out, int i) {
        static const char16_t* names[] = {u"a", u"A", u"b", u"item", u"Item", u"/p", u"long_member_name", u""};
        out += u'"';
        out += writable_ ? u"m" + tovan::toWide(std::to_string(i)).str() : std::u16string(names[pick(8)]);
        out += u"\":";
    }

    void string(std::u16string& out) {
        static const char16_t* pieces[] = {u"a",       u"Z",     u" ",      u"\\\"",     u"\\\\", u"\\/",
                                           u"\\n",     u"\\t",   u"\\u0000", u"\\u001f",  u"é",   u"\u2028",
                                           u"\\u2029", u"</",    u"😀",     u"\\ud83d\\ude00", u"\u4e2d", u"\\b"};
        out += u'"';
        int n = pick(8);
        for (int i = 0; i < n; ++i) out += pieces[pick(int(std::size(pieces)))];
        out += u'"';
    }

    void number(std::u16string& out) {
        switch (pick(5)) {
        case 0: out += tovan::toWide(std::to_string(int(rng_()))).str(); break;
        case 1: out += tovan::toWide(std::to_string(pick(1000) - 500)).str(); break;
        case 2: out += tovan::toWide(std::to_string((long long)rng_() * 7919LL)).str(); break;
        default: {
            double d;
            uint64_t bits = (uint64_t(rng_()) << 32) | rng_();
            std::memcpy(&d, &bits, sizeof d);
            if (!std::isfinite(d)) d = 0.25;
            char buf[40];
            std::snprintf(buf, sizeof buf, "%.17g", d);
            out += tovan::toWide(buf).str();
        }
        }
    }

    void scalar(std::u16string& out, int kind) {
        switch (kind) {
        case 0: number(out); break;
        case 1: string(out); break;
        case 2: out += pick(2) ? u"true" : u"false"; break;
        case 3: out += u"null"; break;
        default: out += pick(2) ? u"Infinity" : u"-Inf";
        }
    }

    // Writable objects only in a member's own array: objects in a nested array
    // sit beside that array's other elements, which become the property.
    void array(std::u16string& out, int depth, bool objects) {
        out += u'[';
        int n = pick(6);
        int shape = pick(objects ? 5 : 4);
        int kind = pick(5);
        int inner = 1 + pick(3);
        for (int i = 0; i < n; ++i) {
            if (i) out += u',';
            switch (shape) {
            case 0: scalar(out, kind); break;        // one type
            case 1:  // mixed, and unwritable with arrays among the scalars
                if (!writable_ && depth < 4 && pick(4) == 0)
                    array(out, depth + 1, true);
                else
                    scalar(out, pick(5));
                break;
            case 2:                                  // regular rows
                out += u'[';
                for (int j = 0; j < inner; ++j) {
                    if (j) out += u',';
                    if (!writable_ && j + 1 == inner && depth < 4 && pick(5) == 0)
                        object(out, depth + 1);
                    else
                        scalar(out, kind);
                }
                out += u']';
                break;
            case 3:
                if (depth < 4)
                    array(out, depth + 1, !writable_);
                else
                    scalar(out, kind);
                break;
            default:
                if (!writable_) {  // objects after scalars
                    if (i < n / 2 || depth >= 4)
                        scalar(out, pick(5));
                    else
                        object(out, depth + 1);
                } else if (depth < 4)
                    object(out, depth + 1);
                else
                    out += u"{}";
                if (writable_ && i + 1 < n) {  // keep the array objects only
                    for (int k = i + 1; k < n; ++k) {
                        out += u',';
                        object(out, depth + 2);
                    }
                    n = 0;
                }
            }
        }
        out += u']';
    }

    void object(std::u16string& out, int depth) {
        out += u'{';
        int n = pick(depth == 0 ? 8 : 5);
        for (int i = 0; i < n; ++i) {
            if (i) out += u',';
            name(out, i);
            int what = pick(depth < 4 ? 4 : 2);
            if (what <= 1)
                scalar(out, pick(5));
            else if (what == 2)
                array(out, depth + 1, true);
            else
                object(out, depth + 1);
        }
        out += u'}';
    }

    std::mt19937 rng_;
    bool writable_;
};

}  // namespace jsontest

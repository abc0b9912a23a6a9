#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "nvk/platform/FileInterface.h"
#include "tests/support/TestSupport.h"

using namespace tovan;
using nvktest::utf8;

namespace {

void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

WString widePath(const std::filesystem::path& p) { return toWide(p.string()); }

}  // namespace

TEST(FileInterface, DetectsEveryEncodingAndDropsTheMark) {
    struct Case {
        const char* desc;
        std::string bytes;
        TextEncoding encoding;
        std::u16string text;
    };
    const Case cases[] = {
        {"utf-8 without mark", "a\xc3\xa9\xf0\x9f\x98\x80", TextEncoding::Utf8, u"a\u00e9\U0001F600"},
        {"utf-8 with mark", "\xEF\xBB\xBF{\xe2\x82\xac}", TextEncoding::Utf8Bom, u"{\u20ac}"},
        {"utf-16 le", std::string("\xFF\xFE" "a\0\xAC\x20\x3D\xD8\x00\xDE", 10), TextEncoding::Utf16LE,
         u"a\u20ac\U0001F600"},
        {"utf-16 be", std::string("\xFE\xFF\0a\x20\xAC\xD8\x3D", 8), TextEncoding::Utf16BE, u"a\u20ac\xD83D"},
        {"utf-16 odd last byte", std::string("\xFF\xFE" "a\0b", 5), TextEncoding::Utf16LE, u"a\uFFFD"},
        {"mark only", "\xEF\xBB\xBF", TextEncoding::Utf8Bom, u""},
        {"empty", "", TextEncoding::Utf8, u""},
        {"two bytes, no mark", "\xEF\xBB", TextEncoding::Utf8, u"\uFFFD"},
        {"invalid utf-8", "a\xff\xe0\x80z\xed\xa0\x80\xf4\x90", TextEncoding::Utf8,
         u"a\uFFFD\uFFFD\uFFFDz\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD"},
    };
    nvktest::TempDir dir;
    for (const Case& c : cases) {
        auto path = dir / "case.txt";
        writeBytes(path, c.bytes);
        vcFileInterface file(widePath(path), FileMode::Read);
        EXPECT_EQ(file.getEncoding(), c.encoding) << c.desc;
        EXPECT_EQ(file.readAll(), WString(c.text)) << c.desc;
        EXPECT_TRUE(file.readBlock().empty()) << c.desc;

        vcFileInterface memory;
        memory.openBytes(c.bytes);
        EXPECT_EQ(memory.readAll(), WString(c.text)) << c.desc;
    }
}

// Sequences, valid or not, that straddle the 64 KiB blocks must decode as if
// the file were converted in one piece.
TEST(FileInterface, BlocksDecodeLikeOneConversion) {
    const std::string pieces[] = {"x", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xe0\x80", "\xf4\x90",
                                  "\xff", "\xc3", "\xed\xa0\x80", "\xf0\x9f\x98",
                                  "a run of plain ASCII longer than sixteen bytes"};
    std::mt19937 rng(7);
    std::string bytes;
    while (bytes.size() < 300000) bytes += pieces[rng() % std::size(pieces)];
    nvktest::TempDir dir;
    writeBytes(dir / "big.txt", bytes);
    const std::u16string expected = utf8ToUtf16(bytes);

    vcFileInterface blocks(widePath(dir / "big.txt"), FileMode::Read);
    EXPECT_EQ(blocks.readAll().str(), expected);

    vcFileInterface chunks(widePath(dir / "big.txt"), FileMode::Read);
    std::u16string got;
    wchar buffer[997];
    for (size_t n; (n = chunks.readText(buffer, std::size(buffer))) > 0;) got.append(buffer, n);
    EXPECT_EQ(got, expected);

    // Bytes held in memory are decoded a block at a time as well.
    vcFileInterface memory;
    memory.openBytes(bytes);
    EXPECT_EQ(memory.readAll().str(), expected);

    // UTF-16 in both byte orders, its surrogate pairs falling across blocks.
    for (bool bigEndian : {false, true}) {
        std::string utf16 = bigEndian ? "\xfe\xff" : "\xff\xfe";
        for (char16_t unit : expected) {
            char hi = char(unit >> 8), lo = char(unit & 0xff);
            utf16 += bigEndian ? std::string{hi, lo} : std::string{lo, hi};
        }
        vcFileInterface wide;
        wide.openBytes(utf16);
        EXPECT_EQ(wide.readAll().str(), expected) << (bigEndian ? "big-endian" : "little-endian");
    }
}

TEST(FileInterface, FailuresNameTheFile) {
    nvktest::TempDir dir;
    std::string missing = (dir / "missing.json").string();
    vcFileInterface file;
    EXPECT_THROW_MSG(file.open(toWide(missing), FileMode::Read), Exception,
                     "Cannot open file \"" + missing + "\" for reading: No such file or directory");
    EXPECT_FALSE(file.isOpen());
    std::string nested = (dir / "no" / "out.txt").string();
    EXPECT_THROW_MSG(file.open(toWide(nested), FileMode::Write), Exception,
                     "Cannot open file \"" + nested + "\" for writing: No such file or directory");
    EXPECT_THROW_MSG(file.open(widePath(dir.path()), FileMode::Read), Exception,
                     "Error reading file \"" + dir.path().string() + "\": Is a directory");
    EXPECT_FALSE(file.isOpen());

    EXPECT_THROW_MSG(file.readBlock(), Exception, "File \"" + dir.path().string() + "\" is not open");
    file.openText(u"abc", u"in");
    EXPECT_THROW_MSG(file.writeText(u"x"), Exception, "File \"in\" is open for reading, not writing");
    file.openOutput(u"out");
    EXPECT_THROW_MSG(file.readAll(), Exception, "File \"out\" is open for writing, not reading");
    EXPECT_THROW_MSG(file.open(u"x", FileMode::Write, TextEncoding::Utf16LE), BadParameterException,
                     "Cannot write file \"x\": only UTF-8 output is supported");
}

TEST(FileInterface, WritesUtf8AndJoinsSplitSurrogates) {
    vcFileInterface out;
    out.openOutput();
    out.writeText(u"a\u00e9");
    out.writeChar(0xD83D);  // a pair written one unit at a time, as a character sink does
    out.writeChar(0xDE00);
    out.writeText(u"\xDC00 \xD800");  // lone low, then a high that never gets its partner
    out.writeChar(u'z');
    EXPECT_EQ(out.getOutputBytes(), "a\xc3\xa9\xf0\x9f\x98\x80\xef\xbf\xbd \xef\xbf\xbdz");
    out.writeChar(0xD800);
    out.close();
    EXPECT_EQ(out.getOutputText(), WString(u"a\u00e9\U0001F600\uFFFD \uFFFDz\uFFFD"));

    nvktest::TempDir dir;
    WString path = widePath(dir / "out.txt");
    std::u16string big(100000, u'\u20ac');
    {
        vcFileInterface file(path, FileMode::Write, TextEncoding::Utf8Bom);
        file.writeText(big);
    }  // the destructor flushes
    vcFileInterface append(path, FileMode::Append, TextEncoding::Utf8Bom);  // no second mark
    append.writeText(u"!");
    append.close();
    vcFileInterface in(path, FileMode::Read);
    EXPECT_EQ(in.getEncoding(), TextEncoding::Utf8Bom);
    EXPECT_EQ(in.readAll().str(), big + u"!");
}

TEST(FileInterface, TakesUtf8AsItIs) {
    // Between units: a high surrogate left waiting becomes U+FFFD. An
    // in-memory output asked for its bytes midway keeps them and goes on.
    vcFileInterface out;
    out.openOutput(u"(memory)", TextEncoding::Utf8Bom);
    out.writeText(u"a\xD83D");
    out.writeUtf8("\xc3\xa9");
    EXPECT_EQ(out.getOutputBytes(), "\xEF\xBB\xBF" "a\xef\xbf\xbd\xc3\xa9");
    out.writeUtf8("\xf0\x9f\x98\x80");
    out.writeText(u"z");
    EXPECT_EQ(out.getOutputBytes(), "\xEF\xBB\xBF" "a\xef\xbf\xbd\xc3\xa9\xf0\x9f\x98\x80z");

    vcFileInterface in;
    in.openText(u"x");
    EXPECT_THROW_MSG(in.writeUtf8("x"), Exception, "File \"(memory)\" is open for reading, not writing");

    // To a file in blocks, with text before and after.
    nvktest::TempDir dir;
    WString path = widePath(dir / "out.txt");
    std::string big;
    for (int i = 0; i < 50000; ++i) big += i % 3 ? "b" : "\xe2\x82\xac";
    {
        vcFileInterface file(path, FileMode::Write);
        file.writeText(u"<");
        file.writeUtf8(big);
        file.writeText(u">");
    }
    EXPECT_EQ(nvktest::readFile(dir / "out.txt"), "<" + big + ">");
}

TEST(FileInterface, WritingTextInRunsMatchesTheWholeConversion) {
    // Long ASCII runs, two- and three-byte units, pairs and lone surrogates,
    // mixed at every alignment and handed over in pieces that split runs and
    // pairs alike: the bytes are those of one conversion of the whole text.
    std::mt19937 rng(7);
    std::u16string text;
    while (text.size() < 200000) {
        size_t run = rng() % 40;
        switch (rng() % 5) {
        case 0: text.append(run, char16_t(u'a' + rng() % 26)); break;
        case 1: text.append(run % 7, u'\u00e9'); break;
        case 2: text.append(run % 7, u'\u20ac'); break;
        case 3: text += u"\xD83D\xDE00"; break;
        default: text += rng() % 2 ? u'\xDC00' : u'\xD800'; break;
        }
    }
    vcFileInterface out;
    out.openOutput();
    for (size_t at = 0; at < text.size();) {
        size_t n = std::min(text.size() - at, size_t(rng() % 70000));
        out.writeText(std::u16string_view(text).substr(at, n));
        at += n;
    }
    out.close();
    EXPECT_EQ(out.getOutputBytes(), utf16ToUtf8(text));
}

#include <gtest/gtest.h>

#include <random>

#include "nvk/platform/FileStream.h"
#include "tests/support/TestSupport.h"

using namespace tovan;

TEST(FileStream, WritesAndReadsTheSameBytesAsMemory) {
    nvktest::TempDir dir;
    WString path = toWide((dir / "record.bin").string());
    std::mt19937 rng(11);
    std::vector<uint8_t> block(200000);
    for (auto& b : block) b = uint8_t(rng());
    MemoryOutputStream memory(3);
    {
        FileOutputStream file(path, 3);
        for (iByteOutputStream* out : {static_cast<iByteOutputStream*>(&file), static_cast<iByteOutputStream*>(&memory)}) {
            writeInt32LE(*out, -5);
            out->write(block.data(), 70000);  // crosses the buffer and goes out directly
            writeDoubleLE(*out, 0.1);
            for (int i = 0; i < 40000; ++i) writeUInt8(*out, uint8_t(i));  // many small writes
            out->write(block.data() + 70000, block.size() - 70000);
        }
        EXPECT_EQ(file.size(), memory.size());
    }  // closed by the destructor
    EXPECT_EQ(nvktest::readFile(dir / "record.bin"), std::string(memory.bytes().begin(), memory.bytes().end()));

    // Read back in the pieces written: small reads come from the buffer,
    // larger ones straddle a refill or bypass the buffer.
    FileInputStream in(path, 3);
    EXPECT_EQ(readInt32LE(in), -5);
    std::vector<uint8_t> back(block.size());
    in.readExactly(back.data(), 70000);
    EXPECT_EQ(in.position(), 70004u);
    EXPECT_EQ(readDoubleLE(in), 0.1);
    for (int i = 0; i < 40000; ++i) {
        uint8_t b = 0;
        ASSERT_TRUE(in.readByte(b));
        ASSERT_EQ(b, uint8_t(i)) << "byte " << i;
    }
    in.readExactly(back.data() + 70000, back.size() - 70000);
    EXPECT_EQ(back, block);
    EXPECT_EQ(in.position(), memory.size());
    EXPECT_THROW_MSG(readInt32LE(in, "FileInputStream"), Exception, "Unexpected end of stream: needed 4 bytes, got 0");

    FileInputStream again(path, 3);
    uint8_t first[2];
    again.readExactly(first, 2);
    again.close();
    EXPECT_THROW_MSG(again.read(first, 1), Exception, "File \"" + utf16ToUtf8(path.view()) + "\" is not open");
}

TEST(FileStream, FailuresNameTheFile) {
    nvktest::TempDir dir;
    std::string missing = (dir / "none.bin").string();
    EXPECT_THROW_MSG(FileInputStream(toWide(missing)), Exception,
                     "Cannot open file \"" + missing + "\" for reading: No such file or directory");
    std::string nested = (dir / "no" / "x.bin").string();
    EXPECT_THROW_MSG(FileOutputStream(toWide(nested)), Exception,
                     "Cannot open file \"" + nested + "\" for writing: No such file or directory");
    FileInputStream folder(toWide(dir.path().string()));
    uint8_t b;
    EXPECT_THROW_MSG(folder.read(&b, 1), Exception, "Error reading file \"" + dir.path().string() + "\": Is a directory");

    FileOutputStream full(u"/dev/full");
    full.write("abc", 3);
    EXPECT_THROW_MSG(full.close(), Exception, "Error writing file \"/dev/full\": No space left on device");
    EXPECT_FALSE(full.isOpen());
    EXPECT_THROW_MSG(full.write("x", 1), Exception, "File \"/dev/full\" is not open");
}

// The memory stream writes into room past its content: what bytes() and takeBytes() give is
// only the bytes written since the last clearing, however writes, reads of them and clearing
// interleave.
TEST(MemoryStream, RoomIsNeverContent) {
    MemoryOutputStream out(3);
    std::string expected;
    auto put = [&](const std::string& s) {
        out.write(s.data(), s.size());
        expected += s;
    };
    auto bytes = [&] { return std::string(out.bytes().begin(), out.bytes().end()); };
    put("abc");
    EXPECT_EQ(bytes(), "abc");
    put(std::string(5000, 'x'));  // past the first step of room
    put("d");
    EXPECT_EQ(out.size(), expected.size());
    EXPECT_EQ(bytes(), expected);
    out.clear();  // the old bytes become room: none of them may show again
    expected.clear();
    EXPECT_EQ(out.size(), 0u);
    EXPECT_EQ(bytes(), "");
    put("yz");
    EXPECT_EQ(bytes(), "yz");
    std::vector<uint8_t> taken = out.takeBytes();
    EXPECT_EQ(std::string(taken.begin(), taken.end()), "yz");
    EXPECT_EQ(out.size(), 0u);
    expected.clear();
    put("again");
    EXPECT_EQ(bytes(), "again");
}

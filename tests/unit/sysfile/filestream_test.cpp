#include "sysfile/filestream.h"

#include <filesystem>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "port/errors.h"
#include "support/byte_builder.h"
#include "support/case_files.h"
#include "support/temp_dir.h"

namespace murv {
namespace {

std::string Pattern(std::size_t n, unsigned seed = 1) {
    std::string v(n, '\0');
    std::mt19937 gen(seed);
    for (auto& b : v) b = static_cast<char>(gen());
    return v;
}

void WriteRaw(const std::string& path, const std::string& bytes) { testing::ByteBuilder().Text(bytes).Save(path); }

TEST(FileStream, OpenFailures) {
    testing::TempDir dir;
    MURV_FileStream s;
    EXPECT_FALSE(s.Open(dir.File("missing").c_str(), "rb"));
    EXPECT_EQ(s.Read(nullptr, 10), 0u) << "no file open: nothing read";
    EXPECT_EQ(s.Seek(0, 0), -1);
    EXPECT_FALSE(s.Flush());
    EXPECT_FALSE(s.Open(dir.Path().c_str(), "rb")) << "a directory is no file";
    EXPECT_FALSE(s.Open(dir.File("missing").c_str(), "r+b"));
    ASSERT_TRUE(s.Open(dir.File("new").c_str(), "wbx"));
    EXPECT_FALSE(s.Open(dir.File("new").c_str(), "wbx")) << "x: the file must not exist yet";
    try {
        MURV_FileStream t(dir.File("missing").c_str(), "rb");
        FAIL() << "opening a missing file must throw";
    } catch (const ErrorText& e) {
        EXPECT_EQ(e.Number(), kErrStreamOpen);
        EXPECT_EQ(std::string(e.what()).rfind("Datasource error # 1000 involving " + dir.File("missing"), 0), 0u);
    }
    WriteRaw(dir.File("ro"), Pattern(10));
    MURV_FileStream ro(dir.File("ro").c_str(), "rb");
    const auto bytes = Pattern(5000);
    try {
        ro.Write(bytes.data(), 5000);
        FAIL() << "a write to a read-only descriptor must throw";
    } catch (const ErrorText& e) {
        EXPECT_EQ(e.Number(), kErrStreamWrite);
    }
}

TEST(FileStream, ReadsEveryRangeAndTheEndOfAFileExactly) {
    testing::TempDir dir;
    const auto bytes = Pattern(3 * 4096 + 4);
    WriteRaw(dir.File("f"), bytes);
    MURV_FileStream s(dir.File("f").c_str(), "rb");
    // Offsets and sizes around the buffer and alignment boundaries, in both
    // the buffered and the direct paths.
    for (std::int64_t off : {0, 1, 511, 512, 4095, 4096, 4097, 5000, 8191, 12000}) {
        for (unsigned len : {1, 8, 511, 512, 4095, 4096, 4097, 9000}) {
            ASSERT_EQ(s.Seek(off, 0), 0);
            std::string got(len, '\0');
            const unsigned n = s.Read(got.data(), len);
            const std::size_t expect = std::min<std::size_t>(len, bytes.size() - static_cast<std::size_t>(off));
            ASSERT_EQ(n, expect) << off << '+' << len;
            ASSERT_TRUE(std::equal(got.begin(), got.begin() + n, bytes.begin() + off)) << off << '+' << len;
            EXPECT_EQ(s.Tell(), off + static_cast<std::int64_t>(n));
        }
    }
    unsigned char buf[16];
    ASSERT_EQ(s.Seek(13000, 0), 0);
    EXPECT_EQ(s.Read(buf, 10), 0u) << "past the end";
    ASSERT_EQ(s.Seek(-4, 2), 0);
    EXPECT_EQ(s.Tell(), 3 * 4096);
    EXPECT_EQ(s.Read(buf, 16), 4u);
    ASSERT_EQ(s.Seek(-8, 1), 0);
    EXPECT_EQ(s.Tell(), 3 * 4096 - 4);
    ASSERT_EQ(s.Seek(-1, 0), 0);
    EXPECT_THROW(s.Read(buf, 1), ErrorText) << "a position before the start fails at the read";
}

TEST(FileStream, MixedWritesPatchesAndLargeBlocksLandOnDisk) {
    testing::TempDir dir;
    std::string model;
    std::mt19937 gen(7);
    {
        MURV_FileStream s(dir.File("f").c_str(), "wb+");
        std::int64_t pos = 0;
        for (int i = 0; i < 400; ++i) {
            const unsigned len = (i % 13 == 0) ? 4096 + gen() % 9000 : 1 + gen() % 700;
            const auto chunk = Pattern(len, static_cast<unsigned>(i + 1));
            if (i % 7 == 3 && pos > 0) pos = gen() % pos;  // go back and overwrite
            ASSERT_EQ(s.Seek(pos, 0), 0);
            ASSERT_EQ(s.Write(chunk.data(), len), len);
            model.resize(std::max(model.size(), static_cast<std::size_t>(pos) + len));
            model.replace(static_cast<std::size_t>(pos), len, chunk);
            pos += len;
            if (i % 11 == 5) {  // interleave reads through the same stream
                const std::int64_t at = gen() % model.size();
                ASSERT_EQ(s.Seek(at, 0), 0);
                std::string got(200, '\0');
                got.resize(s.Read(got.data(), 200));
                ASSERT_TRUE(got == model.substr(static_cast<std::size_t>(at), 200)) << at;
            }
        }
    }  // destruction flushes
    EXPECT_TRUE(testing::FileBytes(dir.File("f")) == model);
}

TEST(FileStream, CopiedStreamReadsIndependently) {
    testing::TempDir dir;
    const auto bytes = Pattern(10000);
    MURV_FileStream writer(dir.File("f").c_str(), "wb");
    writer.Write(bytes.data(), 1000);
    EXPECT_EQ(std::filesystem::file_size(dir.File("f")), 0u) << "still in the buffer";
    ASSERT_EQ(writer.Seek(0, 2), 0);
    EXPECT_EQ(writer.Tell(), 1000) << "a seek to the end sees the unflushed data";
    MURV_FileStream reader(writer);  // flushes the writer first
    EXPECT_STREQ(reader.Name(), writer.Name());
    EXPECT_EQ(reader.Tell(), 0);
    std::string got(1000, '\0');
    EXPECT_EQ(reader.Read(got.data(), 1000), 1000u);
    EXPECT_TRUE(got == bytes.substr(0, 1000));
    writer.Write(bytes.data() + 1000, 50);
    EXPECT_EQ(writer.Tell(), 1050);
    std::filesystem::remove(dir.File("f"));
    EXPECT_THROW(MURV_FileStream gone(writer), ErrorText) << "a copy of a stream whose file is gone";
}

}  // namespace
}  // namespace murv

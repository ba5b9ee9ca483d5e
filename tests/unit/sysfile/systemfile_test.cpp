// Writer -> reader round trips, the bytes the writer produces, and the
// reader's handling of files the writer never makes.
#include "sysfile/systemfile.h"

#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "model/constants.h"
#include "port/errors.h"
#include "support/byte_builder.h"
#include "support/case_files.h"
#include "support/temp_dir.h"
#include "sysfile/byteorder.h"

namespace murv {
namespace {

using testing::ByteBuilder;

// A case buffer in a dataset's layout.
struct CaseBuffer {
    explicit CaseBuffer(const MURV_DataSource& ds) : ds(ds), bytes(ds.CaseSize() * 8) {
        ds.FillWithMissing(bytes.data(), 0, static_cast<int>(ds.ColumnCount()));
    }
    void Num(int var, double v) { std::memcpy(At(var), &v, 8); }
    void Str(int var, const std::string& s) {
        const int width = ds.GetVariable(var).GetType();
        std::memset(At(var), ' ', static_cast<std::size_t>(width + 7) / 8 * 8);
        std::memcpy(At(var), s.data(), std::min<std::size_t>(s.size(), width));
    }
    char* At(int var) { return bytes.data() + 8 * ds.GetObsLayout().StartCell(var); }
    const MURV_DataSource& ds;
    std::vector<char> bytes;
};

struct SystemFile : ::testing::Test {
    testing::TempDir dir;
    std::string path = dir.File("test.murv");

    // Writes n cases more, adding them to cases.
    static void WriteCases(SystemFileDataSource& ds, int n, std::vector<std::vector<char>>& cases) {
        std::mt19937 gen(5);
        for (int k = 0; k < n; ++k) {
            CaseBuffer c(ds);
            c.Num(0, k % 7 == 0 ? SysmisValue() : static_cast<double>(gen() % 90));
            c.Str(1, "name" + std::to_string(k));
            c.Num(2, (gen() % 1000) / 8.0);
            c.Str(3, k % 2 ? "a" : "b");
            c.Str(4, std::string(static_cast<std::size_t>(k % 255), 'z'));
            ds.WriteCase(c.bytes.data());
            cases.push_back(c.bytes);
        }
    }
};

// The case data and what only the dataset sees of a rich dictionary (one
// label set shared by two variables, the records seen), written, appended to
// through the same class and read back; the interface tests check the rest.
TEST_F(SystemFile, RoundTripAndAppend) {
    for (bool compressed : {false, true}) {
        SCOPED_TRACE(compressed);
        std::vector<std::vector<char>> cases;
        {
            SystemFileDataSource ds(path, SystemFileDataSource::CreateTag{});
            int i = 0;  // v0 and v2 numeric, sharing one label set; v1, v3 and v4 strings
            for (int width : {0, 12, 0, 1, 255}) ds.AddVariable(width).SetName("v" + std::to_string(i++));
            MURV_ValueLabelMap shared;
            shared.SetLabel(NumericKey(1), "one");
            for (int v : {0, 2}) ds.GetVariable(v).SetValueLabels(shared);
            ds.SetExtension(25, 4, 2, "abcdefgh");
            ds.SetCompression(compressed);
            WriteCases(ds, 37, cases);
        }  // destruction finishes the file
        {
            SystemFileDataSource ds(path);
            ASSERT_EQ(ds.NumberOfCases(), 37);
            WriteCases(ds, 21, cases);
            ds.FinishWriting();
            EXPECT_EQ(ds.NumberOfCases(), 58);
            // The same dataset reads back what it appended.
            auto it = ds.NewInputCaseIterator(nullptr);
            ASSERT_TRUE(it->Seek(57));
            ASSERT_TRUE(it->ReadNext());
            EXPECT_EQ(std::memcmp(it->GetValuePtr(0), cases[57].data(), cases[57].size()), 0);
        }
        SystemFileDataSource rd(path);
        EXPECT_EQ(rd.NumberOfCases(), 58);
        EXPECT_EQ(rd.GetVariable(0).GetValueLabels().BodyIdentity(), rd.GetVariable(2).GetValueLabels().BodyIdentity())
            << "one record read back as one shared set";
        EXPECT_EQ(rd.GetExtension(25).UnitSize(), 4);
        for (int subtype : {11, 16}) EXPECT_TRUE(rd.IsSubtypeSeen(subtype)) << subtype;
        auto it = rd.NewInputCaseIterator(nullptr);
        for (std::size_t k = 0; k < cases.size(); ++k) {
            ASSERT_TRUE(it->ReadNext()) << k;
            ASSERT_EQ(std::memcmp(it->GetValuePtr(0), cases[k].data(), cases[k].size()), 0) << k;
        }
        EXPECT_FALSE(it->ReadNext());
    }
}

// The little-endian 32-bit numbers at bytes[at], bytes[at + 4], ...
std::vector<int> I32s(const std::string& bytes, std::size_t at, std::size_t n) {
    std::vector<int> out;
    for (std::size_t i = 0; i < n && at + 4 * i + 4 <= bytes.size(); ++i)
        out.push_back(LoadI32(bytes.data() + at + 4 * i, false));
    return out;
}

// The number of the E that f throws (and its text in what); 0 when it throws none.
template <class E = ErrorText>
long ErrorOf(const std::function<void()>& f, std::string* what = nullptr) {
    try {
        f();
    } catch (const E& e) {
        if (what) *what = e.what();
        return e.Number();
    }
    return 0;
}

long OpenError(const std::string& path) { return ErrorOf([&] { SystemFileDataSource rd(path); }); }

TEST_F(SystemFile, PlainFileBytes) {
    {
        SystemFileDataSource ds(path, SystemFileDataSource::CreateTag{});
        for (const char* n : {"a", "b", "c"}) ds.AddVariable(0).SetName(n);
        ds.CommitDictionary();
        CaseBuffer c(ds);
        for (int k = 0; k < 5; ++k) {
            c.Num(0, k);
            ds.WriteCase(c.bytes.data());
        }
    }  // destruction finishes the file
    const std::string bytes = testing::FileBytes(path);
    EXPECT_EQ(I32s(bytes, 68, 4), (std::vector<int>{3, 0, 0, 5})) << "case size, compression, weight, case count";
    // Header, three variable records, extension records in ascending subtype
    // order up to the termination record, then 5 cases of 24 bytes.
    ASSERT_GE(bytes.size(), 176u + 96 + 8 + 120);
    const std::size_t end = bytes.size() - 120 - 8;
    EXPECT_EQ(I32s(bytes, end, 1), std::vector<int>{999});
    std::vector<int> subtypes;
    std::map<int, std::size_t> payload;
    for (std::size_t p = 176 + 96; p < end;) {
        const auto head = I32s(bytes, p, 4);
        ASSERT_EQ(head[0], 7) << p;
        subtypes.push_back(head[1]);
        payload[head[1]] = p + 16;
        p += 16 + static_cast<std::size_t>(head[2]) * static_cast<std::size_t>(head[3]);
    }
    ASSERT_EQ(subtypes, (std::vector<int>{3, 4, 11, 13, 16}));
    EXPECT_EQ(I32s(bytes, payload[3], 8), (std::vector<int>{15, 0, 0, 720, 1, 1, 2, 2}));
    const std::uint64_t missingHighLow[] = {0xFFEFFFFFFFFFFFFFull, 0x7FEFFFFFFFFFFFFFull, 0xFFEFFFFFFFFFFFFEull};
    for (int i = 0; i < 3; ++i) EXPECT_EQ(LoadU64(bytes.data() + payload[4] + 8 * i), missingHighLow[i]) << i;
    EXPECT_EQ(I32s(bytes, payload[11] - 4, 10), (std::vector<int>{9, 0, 8, 1, 0, 8, 1, 0, 8, 1}));
    EXPECT_EQ(I32s(bytes, payload[16], 4), (std::vector<int>{1, 0, 5, 0})) << "the count set as the file was finished";
}

TEST_F(SystemFile, LabelRecordBytes) {
    {
        SystemFileDataSource ds(path, SystemFileDataSource::CreateTag{});
        for (const char* n : {"a", "b", "c"}) ds.AddVariable(0).SetName(n);
        ds.GetVariable(0).SetLabel("12345", 5);
        ds.GetVariable(1).SetLabel("12345678", 8);
        MURV_ValueLabelMap shared, equal;
        shared.SetLabel(NumericKey(1), "1234567");  // 1 + 7: no padding
        equal.SetLabel(NumericKey(1), "1234567");
        ds.GetVariable(0).SetValueLabels(shared);
        ds.GetVariable(1).SetValueLabels(shared);
        ds.GetVariable(2).SetValueLabels(equal);
        ds.CommitDictionary();
    }
    const std::string bytes = testing::FileBytes(path);
    EXPECT_EQ(bytes[80], 0) << "a file committed without cases has case count 0";
    // Record of a (at 176): 32 bytes with the label flag set, length 5, 5
    // bytes and 3 blanks; b's follows at once, its label of 8 bytes unpadded;
    // then c's.
    for (auto [at, value] : {std::pair{176 + 8, 1}, {176 + 32, 5}, {220, 2}, {220 + 32, 8}, {264, 2}})
        EXPECT_EQ(I32s(bytes, at, 1), std::vector<int>{value}) << at;
    EXPECT_EQ(bytes.substr(176 + 36, 8), "12345   ");
    // The shared set: one label record, its variable record naming both
    // sharing variables; the equal but separate set has a record of its own.
    const std::size_t p = 264 + 32;
    EXPECT_EQ(I32s(bytes, p, 2), (std::vector<int>{3, 1}));
    EXPECT_EQ(bytes[p + 16], 7);
    EXPECT_EQ(I32s(bytes, p + 24, 5), (std::vector<int>{4, 2, 1, 2, 3}));
}

TEST_F(SystemFile, RefusedStatesAndDuplicateNames) {
    {
        SystemFileDataSource ds(path, SystemFileDataSource::CreateTag{});
        ds.AddVariable(0).SetName("x");
        ds.CommitDictionary();
        EXPECT_NE(ErrorOf([&] { ds.CommitDictionary(); }), 0) << "committed twice";
    }
    SystemFileDataSource rd(path);
    auto it = rd.NewInputCaseIterator(nullptr);
    CaseBuffer c(rd);
    EXPECT_EQ(ErrorOf([&] { rd.WriteCase(c.bytes.data()); }), kErrBadState) << "writing while an iterator lives";

    const std::string other = dir.File("b.murv");
    SystemFileDataSource ds(other, SystemFileDataSource::CreateTag{});
    ds.AddVariable(0).SetName("age");
    ds.AddVariable(0).SetName("AGE");
    std::string what;
    EXPECT_EQ(ErrorOf([&] { ds.CommitDictionary(); }, &what), kErrDuplicateName);
    EXPECT_NE(what.find("AGE"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(other)) << "no half-written file is left";
}

// ---- files crafted byte by byte ----

ByteBuilder SmallFile(bool big, std::int32_t caseCount, int casesPresent, bool compressed = false) {
    ByteBuilder b(big);
    b.Header(3, caseCount, compressed, 1).Variable(0, "X").StringVariable(9, "S").NumericLabels({{1.0, "one"}}, {1});
    b.ExtensionI32(3, {15, 0, 0, 720, 1, 1, big ? 1 : 2, 2}).End();
    for (int k = 0; k < casesPresent; ++k) b.Number(k + 0.5).StringCell("abcdefgh").StringCell("i       ");
    return b;
}

TEST_F(SystemFile, ReadsBigEndianFiles) {
    // Each file and its cases of (number, 9-byte string). Compressed: 1.5 is
    // stored raw (reversed in the file), 3 is coded, the strings are stored raw.
    const std::string s = "abcdefghi       ";
    const std::pair<ByteBuilder, std::vector<std::pair<double, std::string>>> files[] = {
        {SmallFile(true, 4, 4), {{0.5, s}, {1.5, s}, {2.5, s}, {3.5, s}}},
        {SmallFile(true, 2, 0, true).Bytes({253, 253, 254, 103, 253, 253, 0, 0}).F64(1.5).Text("abcdefgh")
             .Text("xyzxyzxyq       "),
         {{1.5, "abcdefgh        "}, {3.0, "xyzxyzxyq       "}}},
    };
    for (const auto& [file, cases] : files) {
        file.Save(path);
        SystemFileDataSource rd(path);
        EXPECT_TRUE(rd.IsByteSwapped());
        ASSERT_EQ(rd.ColumnCount(), 2u);
        EXPECT_EQ(rd.GetVariable(1).GetType(), 9);
        EXPECT_NE(rd.GetVariable(0).GetValueLabels().GetLabel(NumericKey(1.0)), nullptr);
        const SystemFileInfo& o = rd.Options();  // the header's numbers and the source parameters
        EXPECT_EQ(std::tuple(o.nominalCaseSize, o.weightIndex, o.bias, o.release[0]), std::tuple(3, 1, 100.0, 15));
        auto it = rd.NewInputCaseIterator(nullptr);
        for (const auto& [number, text] : cases) {
            ASSERT_TRUE(it->ReadNext());
            EXPECT_EQ(LoadF64(it->GetValuePtr(0), false), number);
            EXPECT_EQ(std::string(it->GetValuePtr(1), 16), text) << "strings are never reversed";
        }
        EXPECT_FALSE(it->ReadNext());
    }
}

TEST_F(SystemFile, MalformedFilesAreRefused) {
    EXPECT_EQ(OpenError(dir.File("missing")), kErrFileOpen);
    const auto header = [](int caseSize = 1) { return ByteBuilder().Header(caseSize, 0); };
    const auto x = [&] { return header().Variable(0, "X"); };  // and a numeric variable X
    const struct {
        const char* what;
        long code;
        ByteBuilder file;
    } rows[] = {
        {"empty file", kErrFileEnds, ByteBuilder()},
        {"bad magic", kErrBadContent, ByteBuilder().Text("$FL3").Zeros(200)},
        {"type 4 without type 3", kErrBadContent, x().I32(4).I32(1).I32(1).End()},
        {"missing-value code 5", kErrBadContent, header().Variable(0, "X", 0x050802, 0x050802, nullptr, 5, {})},
        {"a label longer than the file", kErrFileEnds,
         header().I32(2).I32(0).I32(1).I32(0).I32(0).I32(0).Text("X", 8).I32(0x7FFFFFF0)},
        {"labels on a continuation cell", kErrBadContent,
         header(2).StringVariable(9, "S").NumericLabels({{1, "x"}}, {2}).End()},
        {"labels outside the case", kErrBadContent, x().NumericLabels({{1, "x"}}, {9}).End()},
        {"more labels than the file can hold", kErrBadContent, x().I32(3).I32(0x7FFFFFFF)},
        {"unit size 0", kErrBadContent, x().ExtensionHeader(40, 0, 5).End()},
        {"negative subtype", kErrBadContent, x().ExtensionHeader(-3, 1, 1).Byte(0).End()},
        {"a payload size that overflows", kErrBadContent, x().ExtensionHeader(40, 65536, 65536).End()},
        {"a payload past the end", kErrFileEnds, x().ExtensionHeader(40, 4, 1000).End()},
        {"source parameters of 9 units", kErrBadContent, x().ExtensionI32(3, {1, 2, 3, 4, 5, 6, 7, 8, 9}).End()},
        {"floating-point parameters of unit size 4", kErrBadContent, x().ExtensionI32(4, {1, 2, 3}).End()},
        {"display parameters for 2 variables of 1", kErrBadContent, x().ExtensionI32(11, {0, 8, 1, 0, 8, 1}).End()},
        {"case size disagrees with the dictionary", kErrBadContent, header(2).Variable(0, "X").End()},
        {"unknown record type", kErrBadContent, x().I32(55)},
        {"no termination record", kErrFileEnds, x()},
        {"a long name without =", kErrBadContent, x().ExtensionText(13, "X").End()},
        {"a long name with two =", kErrBadContent, x().ExtensionText(13, "X=b=c").End()},
    };
    for (const auto& row : rows) {
        row.file.Save(path);
        EXPECT_EQ(OpenError(path), row.code) << row.what;
    }
    const auto whole = SmallFile(false, 1, 0).Bytes();
    for (std::size_t cut = 1; cut < whole.size(); cut += 3) {
        ByteBuilder().Raw(whole.data(), cut).Save(path);
        EXPECT_NE(OpenError(path), 0) << "cut at " << cut;
    }
}

TEST_F(SystemFile, CaseCountsAndShortData) {
    // The count each file states, the cases read from it and the error that
    // ended them. The 64-bit count record wins when it is not smaller.
    const auto counted = [](std::int32_t header, std::int64_t record, bool big) {
        return ByteBuilder(big).Header(1, header).Variable(0, "X").ExtensionHeader(16, 8, 2).I64(1).I64(record).End();
    };
    const struct {
        ByteBuilder file;
        std::int64_t stated;
        int cases;
        long error;
    } rows[] = {
        {SmallFile(false, 10, 7), 10, 7, kErrFileEnds},  // the header promised 10 cases
        {SmallFile(false, -1, 6), -1, 6, 0},
        {SmallFile(false, -1, 2).Zeros(5), -1, 2, kErrFileEnds},  // a trailing partial case
        {counted(-1, 1000, false), 1000, 0, kErrFileEnds},
        {counted(500, 200, true), 500, 0, kErrFileEnds},
    };
    for (const auto& row : rows) {
        row.file.Save(path);
        SystemFileDataSource rd(path);
        EXPECT_EQ(rd.NumberOfCases(), row.stated);
        auto it = rd.NewInputCaseIterator(nullptr);
        int n = 0;
        EXPECT_EQ(ErrorOf<SystemFileException>([&] { while (it->ReadNext()) ++n; }), row.error) << row.stated;
        EXPECT_EQ(n, row.cases) << row.stated;
        EXPECT_TRUE(row.error != 0 || rd.NumberOfCases() == n) << "known once read to the end";
    }
}

TEST_F(SystemFile, MalformedLongStringRecordsAreIgnored) {
    // Two segments (255 + 48) of a 300-byte string, listed under a short
    // name the long-name record does not know: the segments stay apart.
    auto make = [&](const std::string& names, const std::string& strings) {
        ByteBuilder().Header(38, 0).StringVariable(255, "LONGVARI").StringVariable(48, "LONGV001")
            .ExtensionText(13, names).ExtensionText(14, strings).End().Save(path);
        return SystemFileDataSource(path).ColumnCount();
    };
    const std::string nul("\0\t", 2);
    EXPECT_EQ(make("LONGVARI=LongVariable\tLONGV001=LONGV001", "LONGVARI=300" + nul), 1u);
    EXPECT_EQ(make("LONGVARI=LongVariable", "OTHER=300" + nul), 2u) << "unknown short name";
    EXPECT_EQ(make("LONGVARI=LongVariable", "LONGVARI=300000" + nul), 2u) << "six digits";
    EXPECT_EQ(make("LONGVARI=LongVariable", "LONGVARI=3x0" + nul), 2u) << "not a number";
    EXPECT_EQ(make("LONGVARI=LongVariable", "LONGVARI=600" + nul), 2u) << "segments do not match";
    EXPECT_EQ(make("LONGVARI=LongVariable", "LONGVARI=300"), 2u) << "a last entry without its terminator";
    // Long names go to the variables whose upper-cased names are the entries'
    // short names, the first entry of a short name winning; names that then
    // repeat are repaired.
    const struct {
        std::vector<const char*> shortNames;
        const char* record;
        std::vector<const char*> names;
    } rows[] = {
        {{"A", "B", "C"}, "A=alpha\tB=beta\t", {"alpha", "beta", "C"}},  // C: no entry, the name stays
        {{"A", "B"}, "B=beta\tA=alpha", {"alpha", "beta"}},               // entries out of order
        {{"A", "a"}, "A=alpha\ta=beta", {"alpha", "V1"}},                 // one short name twice
        {{"B", "A", "b"}, "B=beta\tA=alpha\tb=gamma", {"beta", "alpha", "V1"}},
        {{"A", "B", "C"}, "A=alpha\tC=gamma\tB=beta", {"alpha", "beta", "gamma"}},
        {{"T\xE9X", "A", "a"}, "T\xE9X=eta\tA=alpha\ta=beta", {"eta", "alpha", "V1"}},  // not ASCII
        {{"A", "B"}, "A=same\tB=SAME", {"same", "V1"}},                     // long names that repeat
        {{"A", "B", "C"}, "A=_bad\tB=ok\tC=V1", {"V2", "ok", "V1"}},        // or break the rules
    };
    for (const auto& row : rows) {
        ByteBuilder b;
        b.Header(static_cast<int>(row.shortNames.size()), 0);
        for (const char* name : row.shortNames) b.Variable(0, name);
        b.ExtensionText(13, row.record).End().Save(path);
        SystemFileDataSource rd(path);
        ASSERT_EQ(rd.ColumnCount(), row.names.size()) << row.record;
        for (std::size_t i = 0; i < row.names.size(); ++i)
            EXPECT_EQ(rd.GetVariable(static_cast<int>(i)).GetName(), row.names[i]) << row.record;
    }
}

TEST_F(SystemFile, NameRepairAndOpaqueRecords) {
    ByteBuilder().Header(4, 0).Variable(0, "age").Variable(0, "AGE").Variable(0, "_x").Variable(0, "V1")
        .ExtensionText(9, "first").ExtensionText(9, "second").ExtensionText(120, "far").End().Save(path);
    SystemFileDataSource rd(path);
    // AGE repeats age and _x is no name: both are renamed (V1 is taken), and
    // with no long-name record every name is then lower-cased, the new ones too.
    int i = 0;
    for (const char* name : {"age", "v2", "v3", "v1"}) EXPECT_EQ(rd.GetVariable(i++).GetName(), name);
    EXPECT_EQ(rd.GetExtension(9).Contents(), "second");
    EXPECT_EQ(rd.GetExtension(120).Contents(), "far");
    EXPECT_TRUE(rd.IsSubtypeSeen(9));
    EXPECT_FALSE(rd.IsSubtypeSeen(120));
}

}  // namespace
}  // namespace murv

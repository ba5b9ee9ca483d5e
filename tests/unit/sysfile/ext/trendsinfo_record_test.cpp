// The date-variables record (subtype 6): the units written for a
// declaration, reading them back in either byte order, and the payloads that
// are refused as malformed.
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "meta/trendsinfo.h"
#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"
#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using test::MemoryDataSource;

constexpr int kSubtype = 6;

std::vector<std::int32_t> Units(const SystemFileExtensionRecord& rec) {
    std::vector<std::int32_t> units;
    for (std::int32_t i = 0; i < rec.NUnits(); ++i) units.push_back(LoadI32(rec.Contents() + 4 * i, false));
    return units;
}

SystemFileExtensionRecord Record(const std::vector<std::int32_t>& units, bool swapped = false, int unitSize = 4) {
    std::vector<unsigned char> bytes(units.size() * 4);
    for (std::size_t i = 0; i < units.size(); ++i) {
        const auto v = static_cast<std::uint32_t>(units[i]);
        StoreU32(bytes.data() + 4 * i, swapped ? Swap32(v) : v);
    }
    SystemFileExtensionRecord rec;
    rec.SetUnitSize(unitSize);
    rec.SetNUnits(static_cast<std::int32_t>(bytes.size() / static_cast<std::size_t>(unitSize)));
    if (!bytes.empty()) rec.SetContents(bytes.data());
    return rec;
}

struct TrendsRecord : ::testing::Test {
    MemoryDataSource ds;
    SystemFileInfo info;
    const SystemFileExtensionHandler* handler = ExtensionHandler(kSubtype);

    // A 20-byte string (3 cells) first, so that positions are not indexes.
    void SetUp() override {
        ASSERT_NE(handler, nullptr);
        ds.Add(20, "label");
        ds.Add(0, "YEAR_");
        ds.Add(0, "MONTH_");
        ds.Add(10, "DATE_");
    }

    std::vector<std::int32_t> Written() {
        SystemFileExtensionRecord rec;
        handler->Write(ds, info, rec);
        return rec.Empty() ? std::vector<std::int32_t>{} : Units(rec);
    }

    // The condition of the SystemFileException thrown by reading units.
    std::string Refusal(const SystemFileExtensionRecord& rec) {
        try {
            handler->Read(ds, info, rec);
        } catch (const SystemFileException& e) {
            EXPECT_EQ(e.Number(), kErrBadContent);
            return e.Condition();
        }
        return "accepted";
    }
};

TEST_F(TrendsRecord, WritesOneTriplePerEntryAndAStandInForAMissingDateKey) {
    MURV_TrendsInfo& t = ds.GetTrendsInfo();
    ASSERT_TRUE(t.SetNDateVars(2));
    ASSERT_TRUE(t.SetDateVar(0, 1, MURV_TrendsInfo::e_YEAR, 7));
    ASSERT_TRUE(t.SetDateVar(1, 2, MURV_TrendsInfo::e_MONTH, 12));
    t.SetSeriesFlag(false, 1);
    t.SetSeriesIntegers(1, 1);
    EXPECT_EQ(Written(), (std::vector<std::int32_t>{0, 1, 2, 1, 1, 1, 4, 2, 7, 5, 4, 12, 0, 0, 0}));

    ASSERT_TRUE(t.SetDateVar(2, 3, MURV_TrendsInfo::e_DATKEY, 3));
    t.SetSeriesFlag(true, 9);
    t.SetSeriesIntegers(4, 5);
    EXPECT_EQ(Written(), (std::vector<std::int32_t>{1, 9, 2, 5, 4, 1, 4, 2, 7, 5, 4, 12, 6, 11, 3}));
}

TEST_F(TrendsRecord, WritesNothingWithoutDeclarationOrFlagAndOnlyTheHeadWithTheFlag) {
    EXPECT_TRUE(Written().empty());
    ds.GetTrendsInfo().SetSeriesFlag(true, 3);
    EXPECT_EQ(Written(), (std::vector<std::int32_t>{1, 3, 0, 1, 1, 0}));
}

TEST_F(TrendsRecord, DropsADeclarationWhoseVariableNoLongerQualifies) {
    MURV_TrendsInfo& t = ds.GetTrendsInfo();
    ASSERT_TRUE(t.SetNDateVars(1));
    ASSERT_TRUE(t.SetDateVar(0, 1, MURV_TrendsInfo::e_YEAR, 1));
    ds.GetVariable(1).SetName("YR");
    EXPECT_TRUE(Written().empty());
    EXPECT_EQ(t.NDateVars(), 0);
}

TEST_F(TrendsRecord, ReadsBackWhatItWroteInEitherByteOrder) {
    const std::vector<std::int32_t> units = {1, 9, 2, 5, 4, 1, 4, 2, 7, 5, 4, 12, 6, 11, 3};
    for (bool swapped : {false, true}) {
        SCOPED_TRACE(swapped);
        info.byteSwapped = swapped;
        ds.GetTrendsInfo().Reset(false);
        handler->Read(ds, info, Record(units, swapped));
        info.byteSwapped = false;
        EXPECT_EQ(Written(), units);
        int index = 0, kind = 0, extra = 0;
        ASSERT_TRUE(ds.GetTrendsInfo().GetDateVar(2, &index, &kind, &extra));
        EXPECT_EQ(index, 3);
        EXPECT_EQ(kind, MURV_TrendsInfo::e_DATKEY);
    }
}

TEST_F(TrendsRecord, APositionInsideAVariableNamesTheNextOne) {
    // Position 2 (cell 1) lies inside the 3-cell string: the first variable
    // starting at or after it is YEAR_.
    handler->Read(ds, info, Record({0, 1, 1, 1, 1, 1, 2, 2, 1, 0, 0, 0}));
    int index = -1, kind = 0, extra = 0;
    ASSERT_TRUE(ds.GetTrendsInfo().GetDateVar(0, &index, &kind, &extra));
    EXPECT_EQ(index, 1);
    ASSERT_TRUE(ds.GetTrendsInfo().GetDateVar(1, &index, &kind, &extra));
    EXPECT_EQ(kind, MURV_TrendsInfo::e_NONE);
}

TEST_F(TrendsRecord, RefusesMalformedPayloads) {
    EXPECT_EQ(Refusal(Record({0, 1, 2, 1, 1, 1, 4, 2, 1})), "nElements >= 3*nDateVars+6");
    EXPECT_EQ(Refusal(Record({0, 1, 1, 1, 1, 1, 99, 2, 1})), "iVar < nVars");
    EXPECT_NE(Refusal(Record({0, 1, 0, 1, 1})), "accepted");
    EXPECT_NE(Refusal(Record({0, 1, 11, 1, 1, 1})), "accepted");
    EXPECT_NE(Refusal(Record({0, 1, -1, 1, 1, 1})), "accepted");
    EXPECT_NE(Refusal(Record({0, 1, 0, 1, 1, 1, 4, 2, 1, 5, 4, 1})), "accepted");  // more triples than entries
    EXPECT_NE(Refusal(Record({0, 1, 1, 1, 1, 1, 4, 2, 1, 5, 4, 1})), "accepted");  // a month as the date key
    EXPECT_NE(Refusal(Record({0, 1, 0, 1, 1, 1}, false, 8)), "accepted");
    EXPECT_NE(Refusal(SystemFileExtensionRecord{}), "accepted");
}

}  // namespace
}  // namespace murv

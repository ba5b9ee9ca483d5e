// The date-variable declaration: as reading a file changes it, and the record
// (subtype 6) that holds it, the units written and the payloads refused.
#include "model/trendsinfo.h"

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"
#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using Units = std::vector<std::int32_t>;

struct Trends : ::testing::Test {
    test::MemoryDataSource ds;
    MURV_TrendsInfo& info = ds.GetTrendsInfo();
    SystemFileInfo fileInfo;
    const SystemFileExtensionHandler* handler = ExtensionHandler(6);

    // A 20-byte string (3 cells) first, so that positions are not indexes.
    void SetUp() override {
        ASSERT_NE(handler, nullptr);
        for (const auto& [width, name] : {std::pair{20, "label"}, {0, "YEAR_"}, {0, "MONTH_"}, {10, "DATE_"}})
            ds.Add(width, name);
    }

    // YEAR_ and MONTH_ declared, and DATE_ as the date key if asked.
    void Declare(bool withKey) {
        ASSERT_TRUE(info.SetNDateVars(2));
        ASSERT_TRUE(info.SetDateVar(0, 1, MURV_TrendsInfo::e_YEAR, 7));
        ASSERT_TRUE(info.SetDateVar(1, 2, MURV_TrendsInfo::e_MONTH, 12));
        ASSERT_TRUE(!withKey || info.SetDateVar(2, 3, MURV_TrendsInfo::e_DATKEY, 3));
    }

    int IndexOf(int entry) {
        int index = -1;
        info.GetDateVar(entry, &index, nullptr, nullptr);
        return index;
    }

    Units Written() {
        SystemFileExtensionRecord rec;
        handler->Write(ds, fileInfo, rec);
        Units units;
        for (std::int32_t i = 0; i < rec.NUnits(); ++i) units.push_back(LoadI32(rec.Contents() + 4 * i, false));
        return units;
    }

    // The condition of the exception that reading the units throws.
    std::string Refusal(const Units& units, int unitSize = 4) {
        SystemFileExtensionRecord rec;
        rec.SetUnitSize(unitSize);
        rec.SetNUnits(static_cast<std::int32_t>(units.size() * 4 / static_cast<std::size_t>(unitSize)));
        if (!units.empty()) rec.SetContents(units.data());
        try {
            handler->Read(ds, fileInfo, rec);
        } catch (const SystemFileException& e) {
            EXPECT_EQ(e.Number(), kErrBadContent);
            return e.Condition();
        }
        return "accepted";
    }
};

// Variables move when long strings are joined, and a variable gone or
// renamed undoes the declaration (the interface tests cover the codes of the
// calls themselves). A deleted date key is only cleared; any other loss drops
// every entry.
TEST_F(Trends, EntriesFollowTheirVariablesAndLossesUndoTheDeclaration) {
    Declare(true);
    info.SetSeriesFlag(true, 4);
    ds.InsertVariable(0, MURV_Variable(0));
    EXPECT_TRUE(info.Validate());
    EXPECT_EQ((std::array{IndexOf(0), IndexOf(2)}), (std::array{2, 4}));
    // A copy of the dataset validates against itself.
    test::MemoryDataSource copy(ds);
    copy.GetVariable(2).SetName("YR");
    EXPECT_FALSE(copy.GetTrendsInfo().Validate());
    EXPECT_TRUE(info.Validate());

    ds.RemoveVariables(4, 4);
    EXPECT_FALSE(info.Validate());
    EXPECT_EQ(info.NDateVars(), 2);
    int index = -1, kind = -1, extra = 0;
    ASSERT_TRUE(info.GetDateVar(2, &index, &kind, &extra));
    EXPECT_EQ((std::array{index, kind, extra}), (std::array{-1, int(MURV_TrendsInfo::e_NONE), 1}));
    EXPECT_TRUE(info.Validate());

    ds.RemoveVariables(2, 2);
    EXPECT_FALSE(info.Validate());
    EXPECT_EQ(info.NDateVars(), 0);
    EXPECT_FALSE(info.GetDateVar(0, nullptr, nullptr, nullptr));
    EXPECT_TRUE(info.GetSeriesFlag());  // the series flag stays
    EXPECT_EQ(info.GetSeriesFlagValue(), 4);
}

TEST_F(Trends, RecordHoldsOneTriplePerEntryAndAStandInForAMissingDateKey) {
    EXPECT_TRUE(Written().empty());
    info.SetSeriesFlag(true, 3);
    EXPECT_EQ(Written(), (Units{1, 3, 0, 1, 1, 0}));

    info.SetSeriesFlag(false, 1);
    Declare(false);
    EXPECT_EQ(Written(), (Units{0, 1, 2, 1, 1, 1, 4, 2, 7, 5, 4, 12, 0, 0, 0}));
    Declare(true);
    info.SetSeriesIntegers(4, 5);
    EXPECT_EQ(Written(), (Units{0, 1, 2, 5, 4, 1, 4, 2, 7, 5, 4, 12, 6, 11, 3}));

    // A variable renamed since drops the declaration before it is written.
    ds.GetVariable(1).SetName("YR");
    EXPECT_TRUE(Written().empty());
}

TEST_F(Trends, RecordRefusesMalformedPayloads) {
    EXPECT_EQ(Refusal({0, 1, 2, 1, 1, 1, 4, 2, 1}), "nElements >= 3*nDateVars+6");
    EXPECT_EQ(Refusal({0, 1, 1, 1, 1, 1, 99, 2, 1}), "iVar < nVars");
    for (const Units& units : {Units{}, Units{0, 1, 0, 1, 1}, Units{0, 1, 11, 1, 1, 1}, Units{0, 1, -1, 1, 1, 1},
                               Units{0, 1, 0, 1, 1, 1, 4, 2, 1, 5, 4, 1},  // more triples than entries
                               Units{0, 1, 1, 1, 1, 1, 4, 2, 1, 5, 4, 1}}) // a month as the date key
        EXPECT_NE(Refusal(units), "accepted") << units.size();
    EXPECT_NE(Refusal({0, 1, 0, 1, 1, 1}, 8), "accepted");

    // A position inside the 3-cell string names the next variable.
    EXPECT_EQ(Refusal({0, 1, 1, 1, 1, 1, 2, 2, 1}), "accepted");
    EXPECT_EQ(IndexOf(0), 1);
}

}  // namespace
}  // namespace murv

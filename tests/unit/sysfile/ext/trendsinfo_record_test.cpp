// The date-variables record (subtype 6): the units written for a
// declaration, and the payloads that are refused as malformed.
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "model/trendsinfo.h"
#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"
#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using Units = std::vector<std::int32_t>;

struct TrendsRecord : ::testing::Test {
    test::MemoryDataSource ds;
    SystemFileInfo info;
    const SystemFileExtensionHandler* handler = ExtensionHandler(6);

    // A 20-byte string (3 cells) first, so that positions are not indexes.
    void SetUp() override {
        ASSERT_NE(handler, nullptr);
        for (const auto& [width, name] : {std::pair{20, "label"}, {0, "YEAR_"}, {0, "MONTH_"}, {10, "DATE_"}})
            ds.Add(width, name);
    }

    Units Written() {
        SystemFileExtensionRecord rec;
        handler->Write(ds, info, rec);
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
            handler->Read(ds, info, rec);
        } catch (const SystemFileException& e) {
            EXPECT_EQ(e.Number(), kErrBadContent);
            return e.Condition();
        }
        return "accepted";
    }
};

TEST_F(TrendsRecord, WritesOneTriplePerEntryAndAStandInForAMissingDateKey) {
    EXPECT_TRUE(Written().empty());
    MURV_TrendsInfo& t = ds.GetTrendsInfo();
    t.SetSeriesFlag(true, 3);
    EXPECT_EQ(Written(), (Units{1, 3, 0, 1, 1, 0}));

    t.SetSeriesFlag(false, 1);
    ASSERT_TRUE(t.SetNDateVars(2));
    ASSERT_TRUE(t.SetDateVar(0, 1, MURV_TrendsInfo::e_YEAR, 7));
    ASSERT_TRUE(t.SetDateVar(1, 2, MURV_TrendsInfo::e_MONTH, 12));
    EXPECT_EQ(Written(), (Units{0, 1, 2, 1, 1, 1, 4, 2, 7, 5, 4, 12, 0, 0, 0}));

    ASSERT_TRUE(t.SetDateVar(2, 3, MURV_TrendsInfo::e_DATKEY, 3));
    t.SetSeriesIntegers(4, 5);
    EXPECT_EQ(Written(), (Units{0, 1, 2, 5, 4, 1, 4, 2, 7, 5, 4, 12, 6, 11, 3}));

    // A variable renamed since drops the declaration before it is written.
    ds.GetVariable(1).SetName("YR");
    EXPECT_TRUE(Written().empty());
}

TEST_F(TrendsRecord, RefusesMalformedPayloads) {
    EXPECT_EQ(Refusal({0, 1, 2, 1, 1, 1, 4, 2, 1}), "nElements >= 3*nDateVars+6");
    EXPECT_EQ(Refusal({0, 1, 1, 1, 1, 1, 99, 2, 1}), "iVar < nVars");
    for (const Units& units : {Units{}, Units{0, 1, 0, 1, 1}, Units{0, 1, 11, 1, 1, 1}, Units{0, 1, -1, 1, 1, 1},
                               Units{0, 1, 0, 1, 1, 1, 4, 2, 1, 5, 4, 1},  // more triples than entries
                               Units{0, 1, 1, 1, 1, 1, 4, 2, 1, 5, 4, 1}}) // a month as the date key
        EXPECT_NE(Refusal(units), "accepted") << units.size();
    EXPECT_NE(Refusal({0, 1, 0, 1, 1, 1}, 8), "accepted");

    // A position inside the 3-cell string names the next variable.
    EXPECT_EQ(Refusal({0, 1, 1, 1, 1, 1, 2, 2, 1}), "accepted");
    int index = -1;
    ASSERT_TRUE(ds.GetTrendsInfo().GetDateVar(0, &index, nullptr, nullptr));
    EXPECT_EQ(index, 1);
}

}  // namespace
}  // namespace murv

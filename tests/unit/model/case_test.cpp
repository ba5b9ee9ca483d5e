#include "model/case.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "model/caseiterator.h"
#include "support/locale_guard.h"
#include "unit/model/test_datasource.h"

namespace murv {
namespace {

using test::MemoryDataSource;

double NumberAt(const char* cell)
{
    double value;
    std::memcpy(&value, cell, sizeof value);
    return value;
}

class CaseBufferTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ds.Add(0, "n");   // cell 0
        ds.Add(10, "s");  // cells 1-2
        ds.Add(3, "t");   // cell 3
    }
    MemoryDataSource ds;
};

TEST_F(CaseBufferTest, StringsAreCutAndBlankPadded)
{
    MURV_Case c(&ds, nullptr);
    EXPECT_TRUE(c.OwnsBuffer());
    EXPECT_EQ(c.CaseSize(), 4u);
    c.SetString(1, "abcdefghijKL");
    EXPECT_EQ(std::string(c.GetValuePtr(1), 16), "abcdefghij      ");
    c.SetString(1, "ab");
    EXPECT_EQ(std::string(c.GetValuePtr(1), 16), "ab" + std::string(14, ' '));
    c.SetString(1, "abcdef", 3);
    EXPECT_EQ(std::string(c.GetValuePtr(1), 16), "abc" + std::string(13, ' '));
    c.SetString(1, "x\0yz", 4);
    EXPECT_EQ(std::string(c.GetValuePtr(1), 16), "x" + std::string(15, ' '));
    c.SetString(2, "uvwxyz");
    EXPECT_EQ(std::string(c.GetValuePtr(2), 8), "uvw     ");
    // The neighbours are untouched.
    c.SetNumeric(0, 4.5);
    c.SetString(1, "q");
    EXPECT_EQ(NumberAt(c.GetValuePtr(0)), 4.5);
    EXPECT_EQ(std::string(c.GetValuePtr(2), 8), "uvw     ");
}

TEST_F(CaseBufferTest, StringsNeverEndInsideACharacter)
{
    MURV_USE_LOCALE(guard, "zh_CN.GBK");
    MURV_Case c(&ds, nullptr);
    // A double-byte character at positions 9 and 10 does not fit width 10.
    c.SetString(1, "abcdefghi\xB0\xA1");
    EXPECT_EQ(std::string(c.GetValuePtr(1), 16), "abcdefghi" + std::string(7, ' '));
    c.SetString(1, "abcdefgh\xB0\xA1");
    EXPECT_EQ(std::string(c.GetValuePtr(1), 16), "abcdefgh\xB0\xA1" + std::string(6, ' '));
}

TEST_F(CaseBufferTest, BorrowedBuffersAndMissingValues)
{
    std::vector<char> buffer(ds.CaseSize() * kCellSize, 'z');
    {
        MURV_Case c(&ds, buffer.data());
        EXPECT_FALSE(c.OwnsBuffer());
        EXPECT_EQ(c.GetValuePtr(0), buffer.data());
        EXPECT_EQ(c.GetValuePtr(2), buffer.data() + 3 * kCellSize);
        EXPECT_EQ(c.GetValuePtr(3), buffer.data() + 4 * kCellSize);  // the end of the case
        c.SetMissing(1, 2);
        EXPECT_EQ(std::string(buffer.data(), 8), std::string(8, 'z'));
        EXPECT_EQ(std::string(buffer.data() + 8, 24), std::string(24, ' '));
        c.SetAllMissing();
        EXPECT_EQ(NumberAt(buffer.data()), -DBL_MAX);
        c.SetNumeric(0, 7.0);
    }
    // The case is gone, the buffer and its contents remain.
    EXPECT_EQ(NumberAt(buffer.data()), 7.0);
}

TEST_F(CaseBufferTest, LayoutIsTakenWhenTheCaseIsMade)
{
    MURV_Case c(&ds, nullptr);
    ds.InsertVariable(0, MURV_Variable(64));
    ds.AddVariable(0);
    EXPECT_EQ(c.CaseSize(), 4u);
    EXPECT_EQ(c.GetLayout().ColumnCount(), 3u);
    EXPECT_EQ(c.GetValuePtr(1), c.GetValuePtr(0) + 8);
}

TEST_F(CaseBufferTest, CaseValueViews)
{
    test::MemoryIterator it(&ds, nullptr);
    it.SetAllMissing();
    CaseValue number(it, 0);
    CaseValue text(it, 1);
    EXPECT_TRUE(number.IsSysmisOrBlank());
    EXPECT_TRUE(number.IsMissing());
    EXPECT_TRUE(text.IsSysmisOrBlank());

    number.SetNumeric(-0.0);
    EXPECT_FALSE(std::signbit(NumberAt(it.GetValuePtr(0))));
    EXPECT_FALSE(number.IsSysmisOrBlank());
    const double negativeZero = -0.0;
    number.Set(&negativeZero);
    EXPECT_FALSE(std::signbit(NumberAt(it.GetValuePtr(0))));

    text.SetString("hello world, long");
    EXPECT_EQ(std::string(it.GetValuePtr(1), 16), "hello worl      ");
    EXPECT_FALSE(text.IsSysmisOrBlank());
    text.Set("0123456789XXXXXX");
    EXPECT_EQ(std::string(it.GetValuePtr(1), 16), "0123456789      ");

    ds.GetVariable(1).SetStringMissingValues("01234567", nullptr, nullptr);
    EXPECT_FALSE(text.IsMissing());  // the view keeps the variable it was bound to
    text.Rebind(it);
    EXPECT_TRUE(text.IsMissing());

    CaseValue unbound(2);
    EXPECT_FALSE(unbound.IsBound());
    EXPECT_EQ(unbound.Type(), 0);
    unbound.Rebind(it);
    EXPECT_EQ(unbound.Type(), 3);
    unbound.SetString("abcdef");
    EXPECT_EQ(std::string(it.GetValuePtr(2), 8), "abc     ");
}

struct RecordingObserver : MURV_DataSource::Observer {
    void IteratorCreated(MURV_InputCaseIterator& iterator) override
    {
        seen.push_back(&iterator);
        sawCase = iterator.GetDataSource() != nullptr && iterator.GetCase().CaseSize() > 0;
    }
    std::vector<MURV_InputCaseIterator*> seen;
    bool sawCase = false;
};

TEST_F(CaseBufferTest, ObserversHearOfEveryIterator)
{
    RecordingObserver first, second;
    ds.AddObserver(&first);
    ds.AddObserver(&second);
    ds.AddObserver(&first);
    auto it = ds.NewInputCaseIterator(nullptr);
    ASSERT_EQ(first.seen.size(), 2u);
    EXPECT_EQ(first.seen[0], it.get());
    EXPECT_TRUE(first.sawCase);
    EXPECT_EQ(second.seen.size(), 1u);

    ds.RemoveObserver(&first);
    auto again = ds.NewInputCaseIterator(nullptr);
    EXPECT_EQ(first.seen.size(), 2u);
    EXPECT_EQ(second.seen.size(), 2u);
}

TEST_F(CaseBufferTest, PassedValueTravelsAlongTheChain)
{
    test::MemoryIterator outer(&ds, nullptr);
    test::MemoryIterator middle(&ds, nullptr);
    test::MemoryIterator inner(&ds, nullptr);
    outer.SetPassedValue(5);
    outer.LinkIterator(&middle);
    EXPECT_EQ(middle.GetPassedValue(), 5u);
    middle.LinkIterator(&inner);
    EXPECT_EQ(inner.GetPassedValue(), 5u);
    outer.SetPassedValue(7);
    EXPECT_EQ(outer.GetPassedValue(), 7u);
    EXPECT_EQ(middle.GetPassedValue(), 7u);
    EXPECT_EQ(inner.GetPassedValue(), 7u);
    outer.LinkIterator(nullptr);
    outer.SetPassedValue(9);
    EXPECT_EQ(middle.GetPassedValue(), 7u);
}

TEST_F(CaseBufferTest, IteratorOverAnotherDatasetSharesTheBuffer)
{
    test::MemoryIterator it(&ds, nullptr);
    MemoryDataSource other(&ds);
    auto nested = it.NewIteratorOver(&other);
    ASSERT_NE(nested, nullptr);
    EXPECT_EQ(nested->GetDataSource(), &other);
    EXPECT_EQ(nested->GetValuePtr(0), it.GetValuePtr(0));
    EXPECT_FALSE(nested->GetCase().OwnsBuffer());
    EXPECT_EQ(it.NewIteratorOver(nullptr), nullptr);
    nested->SetNumeric(0, 2.0);
    EXPECT_EQ(NumberAt(it.GetValuePtr(0)), 2.0);
}

}  // namespace
}  // namespace murv

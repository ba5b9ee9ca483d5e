// Multiple-response sets and variable sets through the public header: sets
// added as structures and through the C and N calls, read back by index and
// as text after a round trip through a file, and the codes for refused sets.
#include <array>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "murvio.h"
#include "support/api_files.h"
#include "support/temp_dir.h"

namespace {

using namespace murv::testing;
using Names = std::vector<const char*>;

// n1, n2, n3 numeric (n3 labelled), s1, s2 strings.
int NewFile(const std::string& path) {
    const int h = OpenNew(path, {{"n1", 0}, {"n2", 0}, {"n3", 0}, {"s1", 8}, {"s2", 8}});
    EXPECT_EQ(murvSetVarLabel(h, "n3", "Third"), MURV_RC_OK);
    return h;
}

std::string Refused(int rc) { return "refused " + std::to_string(rc); }

// The text a getter hands out (released at once), or "refused <code>" with
// the output reset.
template <class Get, class Free>
std::string Text(Get get, Free release, int h) {
    char* text = reinterpret_cast<char*>(&h);
    const int rc = get(h, &text);
    const std::string out = rc == MURV_RC_OK && text ? text : Refused(rc);
    EXPECT_TRUE(rc == MURV_RC_OK || text == nullptr);
    EXPECT_EQ(release(text), MURV_RC_OK);
    return out;
}
std::string MultRespText(int h) { return Text(murvGetMultRespDefs, murvFreeMultRespDefs, h); }
std::string VariableSetText(int h) { return Text(murvGetVariableSets, murvFreeVariableSets, h); }

int Count(int h) {
    int n = -1;
    EXPECT_EQ(murvGetMultRespCount(h, &n), MURV_RC_OK);
    return n;
}

// A set as read back by index: name, 'label', 'counted text', the flags
// (dichotomy, numeric, category labels, first variable's label), the
// counted value and the members.
std::string ByIndex(int h, int i) {
    murvMultRespDef* p = nullptr;
    EXPECT_EQ(murvGetMultRespDefByIndex(h, i, &p), MURV_RC_OK);
    if (!p) return "";
    std::ostringstream out;
    out << p->setName << " '" << p->setLabel << "' '" << (p->countedValueText ? p->countedValueText : "") << "' "
        << p->isDichotomy << p->isNumeric << p->useCategoryLabels << p->useFirstVarLabel << ' ' << p->countedValue;
    for (int k = 0; k < p->varCount; ++k) out << ' ' << p->varNames[k];
    EXPECT_EQ(murvFreeMultRespDefStruct(p), MURV_RC_OK);
    return out.str();
}

TEST(MultResp, SetsOfEveryKindRoundTrip) {
    TempDir dir;
    const std::string path = dir.File("mr.murv");
    const int h = NewFile(path);
    Names nums = {"n1", "n2"}, strs = {"s1", "s2"}, cats = {"n1", "n2", "n3"};
    // A set as a structure: name, label, the flags (dichotomy, numeric,
    // category labels, first variable's label), counted value and members.
    const char* extVars[] = {"N2", "n3"};  // any case names the variable
    murvMultRespDef ext{"$ext", "not shown", 1, 1, 1, 1, {}, -2, nullptr, const_cast<char**>(extVars), 2};
    for (const int rc : {murvAddMultRespDefN(h, "$num", "Numeric set", 1, 1, nums.data(), 2),
                         murvAddMultRespDefC(h, "$str", nullptr, 1, "yes", strs.data(), 2),
                         murvAddMultRespDefC(h, "$cat", "Cats", 0, nullptr, cats.data(), 3),
                         murvAddMultRespDefN(h, "$cat2", "", 0, 99, strs.data(), 2), murvAddMultRespDefExt(h, &ext)})
        EXPECT_EQ(rc, MURV_RC_OK);
    const int r = Reopen(h, path);

    // The extended set's label comes from the first member that has one.
    const char* sets[] = {
        "$num 'Numeric set' '1' 1100 1 n1 n2", "$str '' 'yes' 1000 0 s1 s2", "$cat 'Cats' '' 0000 0 n1 n2 n3",
        "$cat2 '' '' 0000 0 s1 s2", "$ext 'Third' '-2' 1111 -2 n2 n3"};
    ASSERT_EQ(Count(r), 5);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(ByIndex(r, i), sets[i]);

    // The extended set travels in its own record (19), the others in 7.
    EXPECT_EQ(MultRespText(r),
              "$num=D1 1 11 Numeric set n1 n2\n$str=D3 yes 0  s1 s2\n$cat=C 4 Cats n1 n2 n3\n$cat2=C 0  s1 s2\n");
    char raw[64] = {};
    int got = 0;
    EXPECT_EQ(murvGetExtensionData(r, 19, sizeof raw - 1, &got, raw), MURV_RC_OK);
    EXPECT_STREQ(raw, "$ext=E 11 2 -2 0  n2 n3\n");

    murvMultRespDef* p = &ext;
    EXPECT_TRUE(murvGetMultRespDefByIndex(r, 5, &p) == MURV_RC_BAD_MRSET_INDEX && p == nullptr);
    EXPECT_EQ((std::array{murvGetMultRespDefByIndex(r, -1, &p), murvGetMultRespDefByIndex(r, 0, nullptr),
                          murvGetMultRespDefByIndex(-1, 0, &p),
                          murvAddMultRespDefN(r, "$more", "", 1, 1, nums.data(), 2)}),
              (std::array{MURV_RC_BAD_MRSET_INDEX, MURV_RC_BAD_HANDLE, MURV_RC_BAD_HANDLE, MURV_RC_READ_MODE}));
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
}

TEST(MultResp, RefusedSetsChangeNothing) {
    TempDir dir;
    const int h = NewFile(dir.File("refused.murv"));
    Names nums = {"n1", "n2"}, strs = {"s1", "s2"}, mixed = {"s1", "n1"};
    ASSERT_EQ(murvAddMultRespDefN(h, "$set", "", 1, 1, nums.data(), 2), MURV_RC_OK);
    EXPECT_EQ(murvAddMultRespDefN(h, "$SET", "", 1, 1, nums.data(), 2), MURV_RC_DUP_MRSET_NAME);
    for (const char* name : {"set", "$bad name"})
        EXPECT_EQ(murvAddMultRespDefN(h, name, "", 1, 1, nums.data(), 2), MURV_RC_BAD_MRSET_NAME) << name;
    for (Names vars : {Names{"n1"}, Names{}, Names{"n1", "s1"}, Names{"n1", "N1"}, Names{"n1", "nope"},
                       Names{"n1", ""}, Names{"n1", nullptr}})
        EXPECT_EQ(murvAddMultRespDefN(h, "$x", "", 1, 1, vars.data(), static_cast<int>(vars.size())),
                  MURV_RC_BAD_MRSET_DEF)
            << vars.size();
    // A category set takes the kind of its first member; a string dichotomy
    // set needs a counted value and string members. The first variable's
    // label goes only with category labels, and those not with categories.
    char** vars = const_cast<char**>(nums.data());
    murvMultRespDef firstLabel{"$x", "", 1, 1, 0, 1, {}, 1, nullptr, vars, 2},
        categoryLabels{"$x", "", 0, 0, 1, 0, {}, 0, nullptr, vars, 2};
    int call = 0;
    for (const int rc : {murvAddMultRespDefN(h, "$x", "", 1, 1, nullptr, 2),
                         murvAddMultRespDefC(h, "$x", "", 0, nullptr, mixed.data(), 2),
                         murvAddMultRespDefC(h, "$x", "", 1, nullptr, strs.data(), 2),
                         murvAddMultRespDefC(h, "$x", "", 1, "", strs.data(), 2),
                         murvAddMultRespDefC(h, "$x", "", 1, "1", nums.data(), 2),
                         murvAddMultRespDefExt(h, &firstLabel), murvAddMultRespDefExt(h, &categoryLabels)})
        EXPECT_EQ(rc, MURV_RC_BAD_MRSET_DEF) << "call " << call++;
    for (const int rc : {murvAddMultRespDefExt(h, nullptr), murvAddMultRespDefN(h, nullptr, "", 1, 1, nums.data(), 2),
                         murvAddMultRespDefN(-1, "$y", "", 1, 1, nums.data(), 2)})
        EXPECT_EQ(rc, MURV_RC_BAD_HANDLE);

    EXPECT_EQ(Count(h), 1);
    EXPECT_EQ(ByIndex(h, 0), "$set '' '1' 1100 1 n1 n2");
    // A longer name is cut to the 64 bytes a set name holds.
    const std::string longName = "$" + std::string(70, 'a');
    EXPECT_EQ(murvAddMultRespDefN(h, longName.c_str(), "", 1, 1, nums.data(), 2), MURV_RC_OK);
    EXPECT_EQ(ByIndex(h, 1), longName.substr(0, 64) + " '' '1' 1100 1 n1 n2");
    EXPECT_EQ(murvCommitHeader(h), MURV_RC_OK);
    EXPECT_EQ(murvAddMultRespDefN(h, "$late", "", 1, 1, nums.data(), 2), MURV_RC_DICT_COMMITTED);
    EXPECT_EQ(murvCloseWrite(h), MURV_RC_OK);
}

// Definitions as text, through the calls and a file (the parsing has unit tests).
TEST(SetTexts, RawDefinitionsRoundTrip) {
    TempDir dir;
    const std::string path = dir.File("raw.murv");
    int h = NewFile(path);
    // The second line lacks its "$" and then names the same set: it replaces
    // the first. A malformed line is skipped, the others kept. Variable sets
    // lose members that name no variable, and sets left empty.
    ASSERT_EQ(murvSetMultRespDefs(h, "$a=C 3 abc n1 n2\na=D1 1 0  s1 s2\n$b=X nonsense\n$c=C 1 c n2 n3\n"),
              MURV_RC_OK);
    EXPECT_EQ(murvSetVariableSets(h, "Nums= n1 n2 n3\nMixed= s1 gone\nGhosts= x y\n"), MURV_RC_OK);
    EXPECT_EQ(Count(h), 2);
    EXPECT_EQ(ByIndex(h, 0), "$a '' '1' 1000 0 s1 s2");
    EXPECT_EQ(MultRespText(h), Refused(MURV_RC_WRITE_MODE));
    EXPECT_EQ(VariableSetText(h), Refused(MURV_RC_WRITE_MODE));
    // Adding keeps what was there and writes the list again.
    Names nums = {"n1", "n3"};
    ASSERT_EQ(murvAddMultRespDefN(h, "$d", "D", 1, 5, nums.data(), 2), MURV_RC_OK);
    int r = Reopen(h, path);
    EXPECT_EQ(MultRespText(r), "$a=D1 1 0  s1 s2\n$c=C 1 c n2 n3\n$d=D1 5 1 D n1 n3\n");
    EXPECT_EQ(VariableSetText(r), "Nums= n1 n2 n3\nMixed= s1\n");
    EXPECT_EQ((std::array{murvGetMultRespDefs(r, nullptr), murvGetVariableSets(r, nullptr),
                          murvSetVariableSets(-1, "A= n1")}),
              (std::array{MURV_RC_FILE_READ, MURV_RC_FILE_READ, MURV_RC_BAD_HANDLE}));
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);

    // A null text removes the definitions; a file without any has none.
    h = NewFile(path);
    EXPECT_TRUE(murvSetMultRespDefs(h, "$a=C 3 abc n1 n2\n") == MURV_RC_OK && murvSetMultRespDefs(h, nullptr) == 0);
    r = Reopen(h, path);
    EXPECT_EQ(MultRespText(r), Refused(MURV_RC_NO_MRSETS));  // a null text is released too
    EXPECT_EQ(Count(r), 0);
    EXPECT_EQ(VariableSetText(r), Refused(MURV_RC_NO_VARIABLE_SETS));
    EXPECT_EQ(murvCloseRead(r), MURV_RC_OK);
    EXPECT_EQ(murvFreeMultRespDefStruct(nullptr), MURV_RC_OK);
}

}  // namespace

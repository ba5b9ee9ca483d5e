#include "text/textindex.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace murv::text {
namespace {

// Against a plain list: entries added (the table growing several times), a
// repeated text refused, every third entry erased, and every text then found
// or not found as it should be, whatever the probe runs the erasures broke.
TEST(TextIndex, AgreesWithAListThroughInsertsAndErasures) {
    TextArena texts;
    for (int i = 0; i < 200; ++i) texts.Add("n" + std::to_string(i % 150));  // 150..199 repeat 0..49
    const auto keyOf = [&texts](std::uint32_t k) { return texts[k]; };
    TextIndex<decltype(keyOf)> index(keyOf);
    for (std::uint32_t i = 0; i < 200; ++i)
        EXPECT_EQ(index.Insert(i), i < 150 ? index.kNone : i - 150) << i;
    EXPECT_EQ(index.Size(), 150u);

    std::vector<bool> present(150, true);
    for (std::uint32_t i = 0; i < 150; i += 3) {
        index.Erase(i);
        present[i] = false;
    }
    index.Erase(7);  // erased twice: nothing happens the second time
    present[7] = false;
    index.Erase(7);
    for (std::uint32_t i = 0; i < 150; ++i)
        EXPECT_EQ(index.Find(texts[i]), present[i] ? i : index.kNone) << i;
    EXPECT_EQ(index.Find("n150"), index.kNone);
    // The arena gives back its last text (names refused on the way in).
    texts.PopBack();
    texts.Add("xyz");
    EXPECT_EQ(texts[199], "xyz");
    EXPECT_EQ(texts[198], "n48");
}

}  // namespace
}  // namespace murv::text

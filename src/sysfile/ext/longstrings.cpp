// Subtype 14: the very long strings. Each string wider than 255 bytes is
// listed as "SHORTNAME=width" followed by a NUL and a tab, so that a reader
// can join its segments again. Writing this record also gives every
// variable its short name and has the writer split the long strings.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "model/datasource.h"
#include "port/errors.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/ext/shortnames.h"
#include "sysfile/fileinfo.h"
#include "sysfile/saveds.h"
#include "sysfile/segments.h"

namespace murv {

namespace {

// Whether the variables from index on are the segments of a string of width w.
bool SegmentsMatch(const MURV_DataSource& ds, int index, int w) {
    const int k = FullSegments(w), r = RestWidth(w);
    const int count = static_cast<int>(ds.ColumnCount());
    const std::string prefix = WholeCharPrefix(ds.GetVariable(index).GetUpperName(), 5);
    for (int i = index; i < index + k; ++i) {
        if (i >= count) return false;
        const MURV_Variable& v = ds.GetVariable(i);
        if (v.GetType() != kSegmentWidth || v.GetUpperName().compare(0, prefix.size(), prefix) != 0) return false;
    }
    if (r > 0) {
        if (index + k >= count) return false;
        const int t = ds.GetVariable(index + k).GetType();
        if (t < r || t > std::max(8, 8 * ((r + 7) / 8))) return false;
    }
    return true;
}

#define MURV_VLS_FAIL(cond) throw SystemFileException(__FILE__, cond, kErrBadContent, __LINE__)

}  // namespace

class SFExtensionExtStrings final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource& ds, SystemFileInfo& info, SystemFileExtensionRecord& rec) const override {
        info.namePairs = ComputeShortNames(ds);
        std::vector<std::pair<int, int>> list;
        for (std::size_t i = 0; i < ds.ColumnCount(); ++i) {
            const int w = ds.GetVariable(static_cast<int>(i)).GetType();
            if (w > kMaxShortString) list.emplace_back(static_cast<int>(i), w);
        }
        if (list.empty()) return;
        std::string text;
        text.reserve(16 * list.size());
        for (const auto& [index, w] : list) {
            // Short names are in dictionary order, one per variable.
            text += info.namePairs[static_cast<std::size_t>(index)].second;
            char width[16];
            std::snprintf(width, sizeof width, "=%d", w);
            text += width;
            text += '\0';
            text += '\t';
        }
        rec.SetUnitSize(1);
        rec.SetNUnits(static_cast<std::int32_t>(text.size()));
        rec.SetContents(text.data());
        if (auto* writer = dynamic_cast<SystemFileDataSource::SaveDS*>(&ds)) writer->SplitVeryLongStrings(list);
    }

    void Read(MURV_DataSource& ds, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        info.nominalCaseSize = static_cast<std::int32_t>(ds.CaseSize());
        std::vector<std::pair<int, int>> list;
        try {
            list = Parse(ds, info, rec);
        } catch (const SystemFileException&) {
            return;  // a malformed record is ignored whole: the segments stay apart
        }
        if (list.empty()) return;
        info.segments.Setup(ds, list);
        for (auto it = list.rbegin(); it != list.rend(); ++it) {
            const auto [index, w] = *it;
            MURV_Variable joined = ds.GetVariable(index);
            ds.RemoveVariables(index, index + SegmentCount(w) - 1);
            joined.SetType(w);
            joined.SetPrintFormat(1, w, 0);
            ds.InsertVariable(index, joined);
        }
    }

private:
    static std::vector<std::pair<int, int>> Parse(const MURV_DataSource& ds, const SystemFileInfo& info,
                                                  const SystemFileExtensionRecord& rec) {
        if (rec.UnitSize() != 1) MURV_VLS_FAIL("rec.UnitSize() == 1");
        const std::size_t len = rec.Contents() && rec.NUnits() > 0 ? static_cast<std::size_t>(rec.NUnits()) : 0;
        const std::string_view text(reinterpret_cast<const char*>(rec.Contents()), len);
        std::vector<std::pair<std::string, std::string>> pairs = info.namePairs;
        std::sort(pairs.begin(), pairs.end());
        std::vector<std::pair<int, int>> list;
        std::size_t p = 0;
        while (p < text.size()) {
            const std::size_t equal = text.substr(p, 16).find('=');
            if (equal == std::string_view::npos) MURV_VLS_FAIL("equal != content+16");
            const std::string name(text.substr(p, equal));
            const auto found = std::lower_bound(pairs.begin(), pairs.end(), std::make_pair(name, std::string()));
            if (found == pairs.end() || found->first != name) MURV_VLS_FAIL("name == rename->first");
            const int index = ds.GetVarIndex(found->second);
            if (index < 0) MURV_VLS_FAIL("varIndex >= 0");
            const std::size_t d = p + equal + 1;
            const std::string_view tail = text.substr(std::min(d, text.size()), 10);
            const std::size_t end = tail.find_first_of(std::string_view("\t\0", 2));
            if (end == std::string_view::npos || end >= 6) MURV_VLS_FAIL("endLen < lengthString+6");
            int w = 0;
            for (std::size_t i = 0; i < end; ++i) {
                if (tail[i] < '0' || tail[i] > '9') MURV_VLS_FAIL("endLen == endDigits");
                w = w * 10 + (tail[i] - '0');
            }
            // Widths of 255 or less are not very long strings: nothing to join.
            if (w > kMaxShortString && w <= MURV_Variable::MAX_STRING_TYPE && SegmentsMatch(ds, index, w))
                list.emplace_back(index, w);
            std::size_t q = d + end;
            int skipped = 0;
            while (q < text.size() && (text[q] == '\0' || text[q] == '\t')) {
                if (++skipped > 2) MURV_VLS_FAIL("content < endDigits+3");
                ++q;
            }
            p = q;
        }
        // Joining works from the last string to the first by dictionary index.
        std::sort(list.begin(), list.end());
        list.erase(std::unique(list.begin(), list.end(),
                               [](const auto& a, const auto& b) { return a.first == b.first; }),
                   list.end());
        for (std::size_t i = 1; i < list.size(); ++i)
            if (list[i - 1].first + SegmentCount(list[i - 1].second) > list[i].first) MURV_VLS_FAIL("segments overlap");
        return list;
    }
};

void RegisterLongStringHandler() {
    static const SFExtensionExtStrings handler;
    RegisterExtensionHandler(14, &handler);
}

}  // namespace murv

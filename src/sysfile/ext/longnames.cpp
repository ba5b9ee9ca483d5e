// Subtype 13: the long variable names. Every variable is written under a
// unique short name of at most 8 bytes; the record pairs each short name with
// the full name as "SHORT=Full", entries separated by tabs.
#include <string>
#include <unordered_map>
#include <unordered_set>

#include "model/setrecords.h"
#include "model/datasource.h"
#include "port/errors.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/ext/shortnames.h"
#include "sysfile/fileinfo.h"
#include "text/mbtext.h"

namespace murv {

std::string WholeCharPrefix(const std::string& text, std::size_t n) { return text::Truncated(text, n); }

namespace {

// k in bijective base 26: A..Z, AA, AB, ...
std::string Suffix(unsigned long long k) {
    std::string s(1, static_cast<char>('A' + k % 26));
    unsigned long long q = k / 26;
    while (q > 0) {
        --q;
        s.insert(s.begin(), static_cast<char>('A' + q % 26));
        q /= 26;
    }
    return s;
}

std::string Cut64Upper(const std::string& name) { return text::UpperCopy(name.substr(0, 64)); }

}  // namespace

std::vector<std::pair<std::string, std::string>> ComputeShortNames(const MURV_DataSource& ds) {
    const std::size_t n = ds.ColumnCount();
    std::vector<std::pair<std::string, std::string>> pairs(n);
    std::unordered_set<std::string> used;
    std::vector<std::size_t> pending;
    for (std::size_t i = 0; i < n; ++i) {
        const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
        pairs[i].first = v.GetName();
        const std::string& upper = v.GetUpperName();
        if (!upper.empty() && upper.size() <= 8) {
            pairs[i].second = upper;
            used.insert(upper);
        } else {
            pending.push_back(i);
        }
    }
    std::vector<std::size_t> still;
    for (std::size_t i : pending) {
        std::string cut = WholeCharPrefix(ds.GetVariable(static_cast<int>(i)).GetUpperName(), 8);
        while (!cut.empty() && (cut.back() == '.' || cut.back() == '_')) cut.pop_back();
        if (!cut.empty() && used.insert(cut).second)
            pairs[i].second = cut;
        else
            still.push_back(i);
    }
    // Variables whose names agree on their first 6 bytes try the same
    // candidates in the same order, and names once used stay used: each
    // resumes where the last one of its group stopped, so that many names
    // with one stem do not search from the start again and again.
    std::unordered_map<std::string, unsigned long long> nextTry;
    for (std::size_t i : still) {
        const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
        const std::string& upper = v.GetUpperName();
        unsigned long long& k = nextTry[WholeCharPrefix(upper, 6)];
        for (;; ++k) {
            const std::string suffix = Suffix(k);
            const int room = 8 - static_cast<int>(suffix.size()) - 1;
            const std::string prefix = room < 2 ? std::string() : WholeCharPrefix(upper, static_cast<std::size_t>(room));
            if (prefix.empty()) ErrorText::Throw(kErrNoShortName, v.GetName());
            std::string candidate = prefix + "_" + suffix;
            if (used.insert(candidate).second) {
                pairs[i].second = std::move(candidate);
                ++k;
                break;
            }
        }
    }
    return pairs;
}

class SFExtensionExtNames final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource& ds, SystemFileInfo& info, SystemFileExtensionRecord& rec) const override {
        info.longNamesRead = true;
        if (info.namePairs.empty()) return;
        std::unordered_map<std::string, std::string> shortOf;
        shortOf.reserve(info.namePairs.size());
        for (const auto& [full, shortName] : info.namePairs) shortOf.emplace(Cut64Upper(full), shortName);
        RenameSetMembersToShort(ds, shortOf);
        for (std::size_t i = 0; i < ds.ColumnCount(); ++i) {
            MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            const auto it = shortOf.find(v.GetUpperName());
            if (it != shortOf.end()) v.SetName(it->second);
        }
        std::string text;
        for (const auto& [full, shortName] : info.namePairs) {
            if (!text.empty()) text += '\t';
            text += shortName;
            text += '=';
            text += full;
        }
        if (text.empty() || text.size() > 0x7FFFFFFF) return;
        rec.SetUnitSize(1);
        rec.SetNUnits(static_cast<std::int32_t>(text.size()));
        rec.SetContents(text.data());
    }

    void Read(MURV_DataSource& ds, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        MURV_FILE_CHECK(rec.UnitSize() == 1, kErrBadContent);
        info.longNamesRead = true;
        const std::size_t len = static_cast<std::size_t>(rec.NUnits() > 0 ? rec.NUnits() : 0);
        const std::string_view text(reinterpret_cast<const char*>(rec.Contents()), rec.Contents() ? len : 0);
        std::size_t pos = 0;
        std::vector<std::pair<std::string, std::string>> pairs;
        while (pos < text.size()) {
            const std::size_t i = text.find_first_of("=\t", pos);
            if (i == std::string_view::npos || text[i] != '=')
                throw SystemFileException(__FILE__, "i != notFound && extString[i] == '='", kErrBadContent, __LINE__);
            std::size_t j = text.find_first_of("=\t", i + 1);
            if (j == std::string_view::npos) j = text.size();
            if (j != text.size() && text[j] != '\t')
                throw SystemFileException(__FILE__, "j == len || extString[j] == '\\t'", kErrBadContent, __LINE__);
            pairs.emplace_back(std::string(text.substr(pos, i - pos)), std::string(text.substr(i + 1, j - i - 1)));
            pos = j + 1;
        }
        info.namePairs.insert(info.namePairs.end(), pairs.begin(), pairs.end());
        if (pairs.empty()) return;
        std::unordered_map<std::string, std::string> longOf;
        longOf.reserve(pairs.size());
        for (const auto& [shortName, longName] : pairs) longOf.emplace(Cut64Upper(shortName), longName);
        RenameSetMembersToLong(ds, longOf);
        for (std::size_t k = 0; k < ds.ColumnCount(); ++k) {
            MURV_Variable& v = ds.GetVariable(static_cast<int>(k));
            const auto it = longOf.find(v.GetUpperName());
            if (it != longOf.end()) v.SetName(it->second);
        }
    }

private:
    // Member names of the variable and multiple-response sets follow their
    // variables' names into and out of the file; sets in the extended form
    // keep their full names both ways. Into the file the names also go in
    // lower case.
    static void RenameSetMembers(MURV_DataSource& ds, const std::unordered_map<std::string, std::string>& names,
                                 bool lowerCase) {
        for (MURV_SetListType which : {MURV_SetListType::eVariableSets, MURV_SetListType::eMultipleResponseSets}) {
            MURV_VariableSetList list = ReadVariableSets(ds, which);
            if (list.empty()) continue;
            for (MURV_VariableSet& set : list) {
                if (set.IsExtended()) continue;
                std::vector<std::string> members;
                members.reserve(set.NVariables());
                for (const std::string& member : set.GetVariables()) {
                    const auto it = names.find(Cut64Upper(member));
                    std::string renamed = it != names.end() ? it->second : member;
                    if (lowerCase) {
                        renamed = renamed.substr(0, 64);
                        text::ToLower(renamed.data());
                    }
                    members.push_back(std::move(renamed));
                }
                set.SetVariables(members);
            }
            StoreVariableSets(list, ds);
        }
    }
    static void RenameSetMembersToShort(MURV_DataSource& ds, const std::unordered_map<std::string, std::string>& n) {
        RenameSetMembers(ds, n, true);
    }
    static void RenameSetMembersToLong(MURV_DataSource& ds, const std::unordered_map<std::string, std::string>& n) {
        RenameSetMembers(ds, n, false);
    }
};

namespace {
const ExtensionHandlerRegistration<SFExtensionExtNames> gRegister(13);
}  // namespace

}  // namespace murv

// Subtype 13: the long variable names. Every variable is written under a
// unique short name of at most 8 bytes; the record pairs each short name with
// the full name as "SHORT=Full", entries separated by tabs.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>

#include "model/setrecords.h"
#include "model/datasource.h"
#include "port/errors.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/ext/shortnames.h"
#include "sysfile/fileinfo.h"
#include "sysfile/saveds.h"
#include "text/mbtext.h"
#include "text/names.h"
#include "text/textindex.h"

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
    // The short names given so far: those of the pairs in the index.
    const auto shortOf = [&pairs](std::uint32_t k) { return std::string_view(pairs[k].second); };
    text::TextIndex<decltype(shortOf)> used(shortOf);
    used.Reserve(n);
    const auto take = [&](std::size_t i, std::string&& name) {
        if (used.Find(name) != used.kNone) return false;
        pairs[i].second = std::move(name);
        used.Insert(static_cast<std::uint32_t>(i));
        return true;
    };
    std::vector<std::size_t> pending;
    for (std::size_t i = 0; i < n; ++i) {
        if (i + used.kPrefetchDistance < n)
            used.Prefetch(ds.GetVariable(static_cast<int>(i + used.kPrefetchDistance)).GetUpperName());
        const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
        pairs[i].first = v.GetName();
        const std::string& upper = v.GetUpperName();
        if (!upper.empty() && upper.size() <= 8) {
            pairs[i].second = upper;
            used.Insert(static_cast<std::uint32_t>(i));
        } else {
            pending.push_back(i);
        }
    }
    std::vector<std::size_t> still;
    for (std::size_t i : pending) {
        std::string cut = WholeCharPrefix(ds.GetVariable(static_cast<int>(i)).GetUpperName(), 8);
        while (!cut.empty() && (cut.back() == '.' || cut.back() == '_')) cut.pop_back();
        if (cut.empty() || !take(i, std::move(cut))) still.push_back(i);
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
            if (take(i, prefix + "_" + suffix)) {
                ++k;
                break;
            }
        }
    }
    return pairs;
}

namespace {

using NamePairs = std::vector<std::pair<std::string, std::string>>;

// The key of a pair: the first 64 bytes of its first name, upper-cased.
std::string PairKey(const std::pair<std::string, std::string>& pair) { return Cut64Upper(pair.first); }

// True when no two of the values are equal (0 among them).
bool AllDistinct(const std::vector<std::uint64_t>& values) {
    std::size_t size = 16;
    while (size / 2 < values.size()) size *= 2;
    int shift = 64;
    for (std::size_t s = size; s > 1; s /= 2) --shift;
    // Open addressing; 0 marks a free slot, so the value 0 is seen apart.
    std::vector<std::uint64_t> slots(size, 0);
    const std::size_t mask = size - 1;
    const auto home = [shift](std::uint64_t v) {
        return static_cast<std::size_t>((v * 0x9E3779B97F4A7C15ull) >> shift);
    };
    bool zero = false;
    constexpr std::size_t kAhead = 8;
    for (std::size_t k = 0; k < values.size(); ++k) {
        if (k + kAhead < values.size()) __builtin_prefetch(&slots[home(values[k + kAhead])]);
        const std::uint64_t v = values[k];
        if (v == 0) {
            if (zero) return false;
            zero = true;
            continue;
        }
        for (std::size_t i = home(v);; i = (i + 1) & mask) {
            if (slots[i] == v) return false;
            if (slots[i] == 0) {
                slots[i] = v;
                break;
            }
        }
    }
    return true;
}

// Whether pair i is the pair of variable i, for every variable (see
// RenameVariables). Files and the writer list the pairs in dictionary order,
// one per variable, and this check spares a map of all names.
bool PairsInOrder(const MURV_DataSource& ds, const NamePairs& pairs) {
    const std::size_t n = ds.ColumnCount();
    if (pairs.size() != n) return false;
    // The upper-cased names as numbers while they fit in 8 bytes (as the
    // names of variable records do): equal names give equal numbers, so
    // distinct numbers prove the names distinct without a table of texts.
    std::vector<std::uint64_t> packed;
    packed.reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        // (A first name that is the variable's name has its upper-cased name
        // for key: no copy is made for the usual pair.)
        const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
        if (pairs[i].first != v.GetName() && PairKey(pairs[i]) != v.GetUpperName()) return false;
        const std::string& upper = v.GetUpperName();
        if (packed.size() == i && upper.size() <= 8) {
            std::uint64_t word = 0;
            std::memcpy(&word, upper.data(), upper.size());
            packed.push_back(word);
        }
    }
    // Then each variable's pair is its own unless two variables share an
    // upper-cased name (and so a key, of which the first pair wins).
    if (packed.size() == n && AllDistinct(packed)) return true;
    const auto upperOf = [&ds](std::uint32_t k) {
        return std::string_view(ds.GetVariable(static_cast<int>(k)).GetUpperName());
    };
    text::TextIndex<decltype(upperOf)> seen(upperOf);
    seen.Reserve(n);
    for (std::size_t i = 0; i < n; ++i) {
        if (i + seen.kPrefetchDistance < n) seen.Prefetch(upperOf(static_cast<std::uint32_t>(i + seen.kPrefetchDistance)));
        if (seen.Insert(static_cast<std::uint32_t>(i)) != seen.kNone) return false;
    }
    return true;
}

bool IsAscii(const std::string& text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

// RenameVariables for the usual record: one pair per variable in dictionary
// order, short names of at most 8 bytes. One pass over the variables checks
// each pair as it renames, so that each variable is visited once; the short
// names are then checked for repeats. When the record is not of that kind,
// the names given are taken back and the answer is false. When met is not
// null, the new names are added to it on the way (see
// SystemFileInfo::readNames); it is left empty when the answer is false.
bool RenameInOrder(MURV_DataSource& ds, const NamePairs& pairs, SystemFileInfo::ReadNames* met) {
    const std::size_t n = ds.ColumnCount();
    if (met) met->Clear();
    if (pairs.size() != n) return false;
    if (met) {
        met->index.StartAssign(n);
        met->kept = true;
    }
    std::vector<std::uint64_t> packed;  // as in PairsInOrder
    packed.reserve(n);
    // The names to put back that are not the first names of their pairs,
    // or that storing again might not give back as they are (not ASCII).
    std::vector<std::pair<std::size_t, std::string>> kept;
    std::size_t done = 0;
    for (; done < n; ++done) {
        if (done + MURV_Variable::kPrefetchAhead < n)
            ds.GetVariable(static_cast<int>(done + MURV_Variable::kPrefetchAhead)).Prefetch();
        MURV_Variable& v = ds.GetVariable(static_cast<int>(done));
        const std::string& upper = v.GetUpperName();
        const bool same = pairs[done].first == v.GetName();
        if (upper.size() > 8 || (!same && PairKey(pairs[done]) != upper)) break;
        std::uint64_t word = 0;
        std::memcpy(&word, upper.data(), upper.size());
        packed.push_back(word);
        if (!same || !IsAscii(v.GetName())) kept.emplace_back(done, v.GetName());
        v.SetName(pairs[done].second);
        if (met) {
            met->index.AddKey(v.GetUpperName());
            met->kept = met->kept && names::KeptOnReading(v.GetName());
        }
    }
    if (done == n && AllDistinct(packed)) return true;
    if (met) met->Clear();
    auto k = kept.begin();
    for (std::size_t i = 0; i < done; ++i) {
        MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
        if (k != kept.end() && k->first == i) {
            v.SetName(k->second);
            ++k;
        } else {
            v.SetName(pairs[i].first);
        }
    }
    return false;
}

// Gives every variable whose upper-cased name is the key of some pair the
// second name of the first such pair.
void RenameVariables(MURV_DataSource& ds, const NamePairs& pairs, SystemFileInfo::ReadNames* met = nullptr) {
    if (RenameInOrder(ds, pairs, met)) return;
    const std::size_t n = ds.ColumnCount();
    if (PairsInOrder(ds, pairs)) {
        for (std::size_t i = 0; i < n; ++i) ds.GetVariable(static_cast<int>(i)).SetName(pairs[i].second);
        return;
    }
    std::unordered_map<std::string, std::size_t> firstOf;
    firstOf.reserve(pairs.size());
    for (std::size_t k = 0; k < pairs.size(); ++k) firstOf.emplace(PairKey(pairs[k]), k);
    for (std::size_t i = 0; i < n; ++i) {
        MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
        const auto it = firstOf.find(v.GetUpperName());
        if (it != firstOf.end()) v.SetName(pairs[it->second].second);
    }
}

}  // namespace

class SFExtensionExtNames final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource& ds, SystemFileInfo& info, SystemFileExtensionRecord& rec) const override {
        info.longNamesRead = true;
        if (info.namePairs.empty()) return;
        RenameSetMembersToShort(ds, info.namePairs);
        auto* writer = dynamic_cast<SystemFileDataSource::SaveDS*>(&ds);
        if (writer && PairsInOrder(ds, info.namePairs)) {
            // The short names serve as they are unless one would be stored
            // otherwise as a name.
            const bool asTheyAre = std::all_of(info.namePairs.begin(), info.namePairs.end(), [](const auto& pair) {
                return StoredName(pair.second.data(), pair.second.size()) == pair.second;
            });
            if (asTheyAre) {
                writer->SetFileNames(&info.namePairs);
            } else {
                std::vector<std::string> names;
                names.reserve(info.namePairs.size());
                for (const auto& pair : info.namePairs) names.push_back(StoredName(pair.second.data(), pair.second.size()));
                writer->SetFileNames(std::move(names));
            }
        } else {
            RenameVariables(ds, info.namePairs);
        }
        // "SHORT=Full" entries between tabs, made in place (a million
        // names make a large record).
        std::size_t size = info.namePairs.size() - 1;
        for (const auto& [full, shortName] : info.namePairs) size += shortName.size() + 1 + full.size();
        if (size > 0x7FFFFFFF) return;
        rec.SetUnitSize(1);
        rec.SetNUnits(static_cast<std::int32_t>(size));
        unsigned char* const start = rec.Contents();
        unsigned char* out = start;
        for (const auto& [full, shortName] : info.namePairs) {
            if (out != start) *out++ = '\t';
            out = std::copy(shortName.begin(), shortName.end(), out);
            *out++ = '=';
            out = std::copy(full.begin(), full.end(), out);
        }
    }

    void Read(MURV_DataSource& ds, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        info.readNames.Clear();
        MURV_FILE_CHECK(rec.UnitSize() == 1, kErrBadContent);
        info.longNamesRead = true;
        const std::size_t len = static_cast<std::size_t>(rec.NUnits() > 0 ? rec.NUnits() : 0);
        const std::string_view text(reinterpret_cast<const char*>(rec.Contents()), rec.Contents() ? len : 0);
        std::size_t pos = 0;
        NamePairs pairs;
        pairs.reserve(static_cast<std::size_t>(std::count(text.begin(), text.end(), '\t')) + 1);
        // The next '=' or tab from a position, or the end.
        const auto separator = [&text](std::size_t from) {
            while (from < text.size() && text[from] != '=' && text[from] != '\t') ++from;
            return from;
        };
        while (pos < text.size()) {
            const std::size_t i = separator(pos);
            if (i == text.size() || text[i] != '=')
                throw SystemFileException(__FILE__, "i != notFound && extString[i] == '='", kErrBadContent, __LINE__);
            const std::size_t j = separator(i + 1);
            if (j != text.size() && text[j] != '\t')
                throw SystemFileException(__FILE__, "j == len || extString[j] == '\\t'", kErrBadContent, __LINE__);
            pairs.emplace_back(std::string(text.substr(pos, i - pos)), std::string(text.substr(i + 1, j - i - 1)));
            pos = j + 1;
        }
        if (!pairs.empty()) {
            RenameSetMembersToLong(ds, pairs);
            RenameVariables(ds, pairs, &info.readNames);
        }
        if (info.namePairs.empty())
            info.namePairs = std::move(pairs);
        else
            info.namePairs.insert(info.namePairs.end(), pairs.begin(), pairs.end());
    }

private:
    // Member names of the variable and multiple-response sets follow their
    // variables' names into and out of the file; sets in the extended form
    // keep their full names both ways. Into the file the names also go in
    // lower case.
    static void RenameSetMembers(MURV_DataSource& ds, const NamePairs& pairs, bool lowerCase) {
        // Pair key -> second name of the first pair with that key, made when
        // there are sets at all.
        std::unordered_map<std::string, std::string> names;
        for (MURV_SetListType which : {MURV_SetListType::eVariableSets, MURV_SetListType::eMultipleResponseSets}) {
            MURV_VariableSetList list = ReadVariableSets(ds, which);
            if (list.empty()) continue;
            if (names.empty())
                for (const auto& pair : pairs) names.emplace(PairKey(pair), pair.second);
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
    static void RenameSetMembersToShort(MURV_DataSource& ds, const NamePairs& pairs) {
        RenameSetMembers(ds, pairs, true);
    }
    static void RenameSetMembersToLong(MURV_DataSource& ds, const NamePairs& pairs) {
        RenameSetMembers(ds, pairs, false);
    }
};

void RegisterLongNameHandler() {
    static const SFExtensionExtNames handler;
    RegisterExtensionHandler(13, &handler);
}

}  // namespace murv

#include "model/setrecords.h"

#include <limits>
#include <stdexcept>
#include <string_view>
#include <unordered_set>

#include "model/variable.h"
#include "text/mbtext.h"

namespace murv {

namespace {

void RemoveRecords(MURV_DataSource& dataset, MURV_SetListType type)
{
    if (type == MURV_SetListType::eVariableSets) {
        dataset.SetExtension(eVariableSetRecord, 1, 0, nullptr);
    } else {
        dataset.SetExtension(eMultRespSetRecord, 1, 0, nullptr);
        dataset.SetExtension(eExtendedMultRespSetRecord, 1, 0, nullptr);
    }
}

// Whether a member names a variable, given the upper-cased names of all
// variables. The member is cut to the 64 bytes a variable name can hold
// before it is compared, as the dictionary's own name lookup does.
bool NamesVariable(const std::unordered_set<std::string>& upperNames, const std::string& member)
{
    const std::string_view cut =
        std::string_view(member).substr(0, std::size_t{MURV_Variable::eMaxNameLength});
    return upperNames.count(text::UpperCopy(cut)) != 0;
}

bool PruneList(MURV_DataSource& dataset, MURV_SetListType type,
               const std::unordered_set<std::string>& upperNames)
{
    MURV_VariableSetList list = ReadVariableSets(dataset, type);
    if (list.empty()) return false;
    bool removed = false;
    MURV_VariableSetList kept;
    kept.reserve(list.size());
    for (MURV_VariableSet& set : list) {
        if (set.KeepVariablesIf([&](const std::string& m) { return NamesVariable(upperNames, m); })) {
            removed = true;
        }
        if (set.NVariables() == 0) {
            removed = true;
        } else {
            kept.push_back(std::move(set));
        }
    }
    if (removed) {
        RemoveRecords(dataset, type);
        StoreVariableSets(kept, dataset);
    }
    return removed;
}

}  // namespace

MURV_VariableSetList ReadVariableSets(const MURV_DataSource& dataset, MURV_SetListType type,
                                      std::size_t* nMalformed)
{
    MURV_VariableSetList list;
    std::size_t malformed = 0;
    auto readRecord = [&](int recordType) {
        if (!dataset.HasExtension(recordType)) return;
        const MURV_Extension record = dataset.GetExtension(recordType);
        malformed += AppendSetsFromText(record.Contents(), type, list);
    };
    if (type == MURV_SetListType::eVariableSets) {
        readRecord(eVariableSetRecord);
    } else {
        readRecord(eMultRespSetRecord);
        readRecord(eExtendedMultRespSetRecord);
    }
    if (nMalformed) *nMalformed = malformed;
    return list;
}

void StoreVariableSets(const MURV_VariableSetList& list, MURV_DataSource& dataset)
{
    std::string variableSets;
    std::string multResp;
    std::string extended;
    for (const MURV_VariableSet& set : list) {
        if (!set.IsMultipleResponse()) {
            variableSets += set.Encode();
        } else if (set.IsExtended()) {
            extended += set.Encode();
        } else {
            multResp += set.Encode();
        }
    }
    const auto store = [&](int recordType, const std::string& text) {
        if (text.empty()) return;
        if (text.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
            throw std::length_error("set definitions too long for an extension record");
        }
        dataset.SetExtension(recordType, 1, static_cast<int>(text.size()), text.data());
    };
    store(eVariableSetRecord, variableSets);
    store(eMultRespSetRecord, multResp);
    store(eExtendedMultRespSetRecord, extended);
}

std::string MultRespDisplayLabel(const MURV_VariableSet& set, const MURV_DataSource& dataset)
{
    if (!set.GetFlag(MURV_VariableSet::eLabelFromFirstVar)) return set.GetLabel();
    // An empty label has nothing to display, so it does not stop the search.
    for (const std::string& member : set.GetVariables()) {
        const int index = dataset.GetVarIndex(std::string_view(member));
        if (index < 0) continue;
        const std::string* label = dataset.GetVariable(index).GetLabel();
        if (label != nullptr && !label->empty()) return *label;
    }
    return set.GetVariables().empty() ? std::string() : set.GetVariables().front();
}

void PruneSetsAfterRead(MURV_DataSource& dataset)
{
    if (!dataset.HasExtension(eVariableSetRecord) && !dataset.HasExtension(eMultRespSetRecord) &&
        !dataset.HasExtension(eExtendedMultRespSetRecord)) {
        return;
    }
    std::unordered_set<std::string> upperNames;
    upperNames.reserve(dataset.ColumnCount());
    for (std::size_t i = 0; i < dataset.ColumnCount(); ++i) {
        upperNames.insert(dataset.GetVariable(static_cast<int>(i)).GetUpperName());
    }
    PruneList(dataset, MURV_SetListType::eVariableSets, upperNames);
    PruneList(dataset, MURV_SetListType::eMultipleResponseSets, upperNames);
}

}  // namespace murv

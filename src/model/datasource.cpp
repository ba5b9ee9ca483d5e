#include "model/datasource.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <ctime>

#include "model/constants.h"
#include "model/datetime.h"
#include "model/refcnt.h"
#include "port/assert.h"
#include "port/clock.h"
#include "text/mbtext.h"
#include "text/names.h"

namespace murv {

namespace {

std::size_t ByteCount(int unitSize, std::size_t nElements)
{
    return static_cast<std::size_t>(unitSize) * nElements;
}

double CurrentLocalTimeStamp()
{
    double value = 0.0;
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    if (now != static_cast<std::time_t>(-1) && port::LocalTime(now, &local) &&
        DateTimeValue(local.tm_mday, local.tm_mon + 1, local.tm_year + 1900, local.tm_hour,
                      local.tm_min, local.tm_sec, &value))
        return value;
    // A clock the calendar cannot place: a fixed moment instead.
    if (DateTimeValue(1, 2, 1975, 12, 0, 0.0, &value)) return value;
    return 0.0;
}

const std::string& NoContents()
{
    static const std::string empty;
    return empty;
}

}  // namespace

// ---- extension bodies and handles ----

MURV_ExtensionImpl::MURV_ExtensionImpl(int type, int unitSize, std::size_t nElements, const void* bytes)
    : fType(type), fUnitSize(unitSize < 1 ? 1 : unitSize)
{
    if (nElements > 0) {
        MURV_ASSERT(bytes != nullptr);
        fContents.assign(static_cast<const char*>(bytes), ByteCount(fUnitSize, nElements));
    }
}

void MURV_ExtensionImpl::Append(std::size_t nElements, const void* bytes)
{
    if (nElements == 0) return;
    MURV_ASSERT(bytes != nullptr);
    fContents.append(static_cast<const char*>(bytes), ByteCount(fUnitSize, nElements));
}

MURV_Extension::MURV_Extension(int type, int unitSize, std::size_t nElements, const void* bytes)
    : fpImpl(std::make_shared<MURV_ExtensionImpl>(type, unitSize, nElements, bytes))
{
}

MURV_Extension::MURV_Extension(std::shared_ptr<MURV_ExtensionImpl> body) : fpImpl(std::move(body)) {}

const std::string& MURV_Extension::Contents() const
{
    return fpImpl ? fpImpl->Contents() : NoContents();
}

std::size_t MURV_Extension::ReadElements(void* buffer, std::size_t nBytes)
{
    if (!fpImpl || fpImpl->UnitSize() < 1) return 0;
    const auto unit = static_cast<std::size_t>(fpImpl->UnitSize());
    const std::size_t total = fpImpl->NElements();
    const std::size_t left = fPosition < total ? total - fPosition : 0;
    const std::size_t n = std::min(nBytes / unit, left);
    if (n > 0) std::memcpy(buffer, fpImpl->Contents().data() + fPosition * unit, n * unit);
    fPosition += n;
    return n;
}

// ---- the dataset ----

MURV_DataSource::MURV_DataSource()
{
    fData.fTimeStamp = CurrentLocalTimeStamp();
    fData.fTrendsInfo.SetDataSource(this);
}

MURV_DataSource::MURV_DataSource(const MURV_DataSource& other)
{
    AdoptData(other.fData);
}

MURV_DataSource::~MURV_DataSource() = default;

void MURV_DataSource::AdoptData(const Data& data)
{
    fData = data;
    fData.fTrendsInfo.SetDataSource(this);
    DictionaryChanged();
}

void MURV_DataSource::CopyDictionary(const MURV_DataSource& other)
{
    if (&other != this) AdoptData(other.fData);
}

std::uint32_t MURV_DataSource::CaseSize() const
{
    return fData.fLayout.Total();
}

std::int64_t MURV_DataSource::NumberOfCases() const
{
    return -1;
}

// ---- variables ----

MURV_Variable& MURV_DataSource::GetVariable(int index)
{
    MURV_ASSERT(0 <= index);
    MURV_ASSERT(std::size_t(index) < fData.fDictionary.size());
    return fData.fDictionary[static_cast<std::size_t>(index)];
}

const MURV_Variable& MURV_DataSource::GetVariable(int index) const
{
    MURV_ASSERT(0 <= index);
    MURV_ASSERT(std::size_t(index) < fData.fDictionary.size());
    return fData.fDictionary[static_cast<std::size_t>(index)];
}

const MURV_DataSource::Lookup& MURV_DataSource::CurrentLookup() const
{
    const std::uint64_t changes = MURV_Variable::IdentityChanges();
    if (fLookup.valid && fLookup.seenChanges == changes) return fLookup;
    fLookup.byName.clear();
    fLookup.byID.clear();
    fLookup.byName.reserve(fData.fDictionary.size());
    fLookup.byID.reserve(fData.fDictionary.size());
    for (std::size_t i = 0; i < fData.fDictionary.size(); ++i) {
        const MURV_Variable& var = fData.fDictionary[i];
        // emplace keeps the first (lowest) index of equal keys
        fLookup.byName.emplace(text::TrimBlanks(var.GetUpperName()), static_cast<int>(i));
        fLookup.byID.emplace(var.GetID().Value(), static_cast<int>(i));
    }
    fLookup.valid = true;
    fLookup.seenChanges = changes;
    return fLookup;
}

int MURV_DataSource::GetVarIndex(std::string_view name) const
{
    const std::string upper = names::NameKey(name);
    const Lookup& lookup = CurrentLookup();
    const auto found = lookup.byName.find(upper);
    return found == lookup.byName.end() ? -1 : found->second;
}

int MURV_DataSource::GetIndexOfID(MURV_VariableID id) const
{
    const Lookup& lookup = CurrentLookup();
    const auto found = lookup.byID.find(id.Value());
    return found == lookup.byID.end() ? -1 : found->second;
}

void MURV_DataSource::ReserveVariables(std::size_t n)
{
    fData.fDictionary.reserve(n);
    fData.fLayout.Reserve(n);
}

MURV_Variable& MURV_DataSource::AddVariable(int type, int* index)
{
    return AppendVariable(MURV_Variable(type), index);
}

MURV_Variable& MURV_DataSource::AppendVariable(const MURV_Variable& variable, int* index)
{
    MURV_ASSERT(variable.IsValid());
    // The type is read first: the variable given may be one of this
    // dictionary's, which growing the dictionary can move.
    const int type = variable.GetType();
    if (index) *index = static_cast<int>(ColumnCount());
    fData.fDictionary.push_back(variable);
    fData.fLayout.AddColumn(type);
    DictionaryChanged();
    return fData.fDictionary.back();
}

MURV_Variable& MURV_DataSource::AppendVariable(MURV_Variable&& variable, int* index)
{
    MURV_ASSERT(variable.IsValid());
    // Taking the handle over spares a count up and down on its body.
    const int type = variable.GetType();
    if (index) *index = static_cast<int>(ColumnCount());
    fData.fDictionary.push_back(std::move(variable));
    fData.fLayout.AddColumn(type);
    DictionaryChanged();
    return fData.fDictionary.back();
}

MURV_Variable& MURV_DataSource::InsertVariable(int varAfter, const MURV_Variable& variable)
{
    MURV_ASSERT(0 <= varAfter && std::size_t(varAfter) <= fData.fDictionary.size());
    MURV_ASSERT(variable.IsValid());
    const auto position = static_cast<std::size_t>(varAfter);
    const int type = variable.GetType();
    fData.fDictionary.insert(fData.fDictionary.begin() + varAfter, variable);
    fData.fLayout.InsertColumn(position, type);
    DictionaryChanged();
    return fData.fDictionary[position];
}

void MURV_DataSource::RemoveVariables(int start, int finish)
{
    MURV_ASSERT(finish < (int) ColumnCount());
    if (start <= finish) {
        MURV_ASSERT(0 <= start);
        fData.fDictionary.erase(fData.fDictionary.begin() + start, fData.fDictionary.begin() + finish + 1);
        fData.fLayout.RemoveColumns(start, finish);
        DictionaryChanged();
    }
}

void MURV_DataSource::FillWithMissing(void* buffer, int firstVar, int nVars) const
{
    MURV_ASSERT(0 <= firstVar && 0 <= nVars);
    MURV_ASSERT(firstVar+nVars <= (int) ColumnCount());
    if (nVars == 0) return;
    const double sysmis = std::bit_cast<double>(kSysmisBits);
    char* cell = static_cast<char*>(buffer) + fData.fLayout.StartCell(firstVar) * kCellSize;
    for (int i = firstVar; i < firstVar + nVars; ++i) {
        // The run is the layout's: a type changed through a reference into
        // the dictionary must not make this write beyond the case.
        const std::uint32_t cells = fData.fLayout.ColumnCells(static_cast<std::size_t>(i));
        if (fData.fDictionary[static_cast<std::size_t>(i)].GetType() == 0)
            std::memcpy(cell, &sysmis, sizeof sysmis);
        else
            std::memset(cell, ' ', cells * kCellSize);
        cell += cells * kCellSize;
    }
}

// ---- weight ----

void MURV_DataSource::SetWeightVar(int index)
{
    if (0 <= index && std::size_t(index) < ColumnCount())
        fData.fWeightID = GetVariable(index).GetID();
    else
        fData.fWeightID = MURV_VariableID();
}

int MURV_DataSource::GetWeightVarIndex() const
{
    if (fData.fWeightID.IsNull()) return -1;
    return GetIndexOfID(fData.fWeightID);
}

// ---- strings ----

void MURV_DataSource::SetIdString(const char* text)
{
    fData.fIdString.clear();
    fData.fHasIdString = text != nullptr;
    if (text) fData.fIdString = text;
}

void MURV_DataSource::SetIdString(std::string_view text)
{
    fData.fIdString.assign(text);
    fData.fHasIdString = true;
}

const std::string* MURV_DataSource::GetIdString() const
{
    return fData.fHasIdString ? &fData.fIdString : nullptr;
}


// ---- extensions ----

bool MURV_DataSource::HasExtension(int type) const
{
    const auto found = fData.fExtensions.find(type);
    return found != fData.fExtensions.end() && found->second && !found->second->Contents().empty();
}

MURV_Extension MURV_DataSource::GetExtension(int type) const
{
    if (HasExtension(type)) return MURV_Extension(fData.fExtensions.at(type));
    return MURV_Extension(type, 1, 0, nullptr);
}

void MURV_DataSource::SetExtension(int type, int unitSize, int nElements, const void* content)
{
    MURV_ASSERT(0 <= type);
    MURV_ASSERT(nElements >= 0);
    MURV_ASSERT((nElements==0) >= (content==0));
    if (nElements == 0) {
        fData.fExtensions.erase(type);
        return;
    }
    fData.fExtensions[type] =
        std::make_shared<MURV_ExtensionImpl>(type, unitSize, static_cast<std::size_t>(nElements), content);
}

void MURV_DataSource::StoreExtension(const MURV_Extension& extension)
{
    const int type = extension.Type();
    MURV_ASSERT(0 <= type);
    if (extension.NElements() == 0) {
        fData.fExtensions.erase(type);
        return;
    }
    fData.fExtensions[type] = extension.Body();
}

void MURV_DataSource::AppendExtension(int type, int nElements, const void* content)
{
    MURV_ASSERT(HasExtension(type));
    MURV_ASSERT(nElements >= 0);
    MakePrivate(fData.fExtensions.at(type)).Append(static_cast<std::size_t>(nElements), content);
}

std::vector<int> MURV_DataSource::ExtensionTypes() const
{
    std::vector<int> types;
    for (const auto& [type, body] : fData.fExtensions)
        if (body && !body->Contents().empty()) types.push_back(type);
    return types;
}

}  // namespace murv

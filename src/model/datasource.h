// The in-memory dataset: an ordered dictionary of variables, the layout of a
// case in 8-byte cells, and the file-level items that travel with a
// dictionary (weight variable, identification string, creation time stamp,
// extension records with the documents at type 0, date
// variables, file attributes).
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "meta/attributes.h"
#include "model/trendsinfo.h"
#include "model/dictionary.h"
#include "model/variable.h"

namespace murv {

// An extension record kept by the dataset (and the documents, type 0):
// `unit size` x `element count` bytes, stored as they were given.
class MURV_ExtensionImpl {
public:
    MURV_ExtensionImpl(int type, int unitSize, std::size_t nElements, const void* bytes);

    int Type() const { return fType; }
    int UnitSize() const { return fUnitSize; }
    std::size_t NElements() const { return fContents.size() / static_cast<std::size_t>(fUnitSize); }
    const std::string& Contents() const { return fContents; }
    void Append(std::size_t nElements, const void* bytes);

private:
    int fType;
    int fUnitSize;
    std::string fContents;
};

// A handle on an extension body with a read position counted in elements.
// Copies share the body.
class MURV_Extension {
public:
    // An empty handle: type -1, unit size 0, no elements.
    MURV_Extension() = default;
    MURV_Extension(int type, int unitSize, std::size_t nElements, const void* bytes);
    explicit MURV_Extension(std::shared_ptr<MURV_ExtensionImpl> body);

    bool IsValid() const { return fpImpl != nullptr; }
    int Type() const { return fpImpl ? fpImpl->Type() : -1; }
    int UnitSize() const { return fpImpl ? fpImpl->UnitSize() : 0; }
    std::size_t NElements() const { return fpImpl ? fpImpl->NElements() : 0; }
    // The bytes of the record (empty for an empty handle).
    const std::string& Contents() const;

    // Copies as many whole elements as fit in nBytes from the read position,
    // advances the position by them and answers their number.
    std::size_t ReadElements(void* buffer, std::size_t nBytes);

    const std::shared_ptr<MURV_ExtensionImpl>& Body() const { return fpImpl; }

private:
    std::shared_ptr<MURV_ExtensionImpl> fpImpl;
    std::size_t fPosition = 0;
};

class MURV_DataSource {
public:
    // An empty dataset whose creation time stamp is the current local time.
    MURV_DataSource();
    MURV_DataSource(const MURV_DataSource& other);
    MURV_DataSource& operator=(const MURV_DataSource&) = delete;
    virtual ~MURV_DataSource();

    // Cells of one case.
    std::uint32_t CaseSize() const;
    // Number of cases, -1 when unknown.
    virtual std::int64_t NumberOfCases() const;

    // Takes over every dictionary and file-level item of other.
    void CopyDictionary(const MURV_DataSource& other);

    // ---- variables ----
    std::size_t ColumnCount() const { return fData.fDictionary.size(); }
    // The stored variable: changes through the reference change the dataset
    // (but not its layout: a variable's type is set before it is added).
    MURV_Variable& GetVariable(int index);
    const MURV_Variable& GetVariable(int index) const;
    // Index of the first variable whose name has the name's key
    // (names::NameKey: the first 64 bytes up to a NUL, without leading and
    // trailing blanks, upper-cased); -1 when there is none.
    int GetVarIndex(std::string_view name) const;
    // Index of the first variable with the ID, -1 when there is none.
    int GetIndexOfID(MURV_VariableID id) const;

    // Makes room for n variables in all, so that adding them one at a time
    // does not grow the dictionary again and again.
    void ReserveVariables(std::size_t n);
    MURV_Variable& AddVariable(int type, int* index = nullptr);
    MURV_Variable& AppendVariable(const MURV_Variable& variable, int* index = nullptr);
    MURV_Variable& AppendVariable(MURV_Variable&& variable, int* index = nullptr);
    // Stores the variable at position varAfter (0 to ColumnCount()).
    MURV_Variable& InsertVariable(int varAfter, const MURV_Variable& variable);
    // Removes the variables start..finish (both included; none when start >
    // finish).
    void RemoveVariables(int start, int finish);
    // Writes the system-missing value into each numeric variable and blanks
    // into each string of nVars variables from firstVar on, in a case buffer
    // of this dataset's layout.
    void FillWithMissing(void* buffer, int firstVar, int nVars) const;

    const ObsLayout& GetObsLayout() const { return fData.fLayout; }

    // ---- weight ----
    // Any index outside the dictionary clears the weight.
    void SetWeightVar(int index);
    int GetWeightVarIndex() const;

    // ---- strings, time stamp, date variables, attributes ----
    // A null text removes the identification string; an empty one is one.
    void SetIdString(const char* text);
    void SetIdString(std::string_view text);
    const std::string* GetIdString() const;
    double GetTimeStamp() const { return fData.fTimeStamp; }
    void SetTimeStamp(double value) { fData.fTimeStamp = value; }
    MURV_TrendsInfo& GetTrendsInfo() { return fData.fTrendsInfo; }
    const MURV_TrendsInfo& GetTrendsInfo() const { return fData.fTrendsInfo; }
    const Attributes& GetFileAttributes() const { return fData.fFileAttributes; }
    void SetFileAttributes(const Attributes& attributes) { fData.fFileAttributes = attributes; }

    // ---- extension records, by type; type 0 holds the documents ----
    // True when a non-empty record of the type is stored.
    bool HasExtension(int type) const;
    // A handle on the stored record, or on a new empty one of that type.
    MURV_Extension GetExtension(int type) const;
    // Stores unitSize x nElements bytes as the record of the type (a unit
    // size below 1 counts as 1); nElements 0 removes the record.
    void SetExtension(int type, int unitSize, int nElements, const void* content);
    // Stores the handle's body under its type by the same rule.
    void StoreExtension(const MURV_Extension& extension);
    // Appends to the stored record of the type.
    void AppendExtension(int type, int nElements, const void* content);
    // The types that hold a record, in ascending order.
    std::vector<int> ExtensionTypes() const;

private:
    // Private, so that the dictionary, its layout and the lookups below
    // change only together.
    struct Data {
        std::vector<MURV_Variable> fDictionary;
        ObsLayout fLayout;
        std::string fIdString;
        bool fHasIdString = false;
        MURV_VariableID fWeightID;
        // Records by type. Types come from files, so the table is sparse.
        std::map<int, std::shared_ptr<MURV_ExtensionImpl>> fExtensions;
        double fTimeStamp = 0.0;
        MURV_TrendsInfo fTrendsInfo;
        Attributes fFileAttributes;
    };

    Data fData;

    // Lookup tables by upper-cased name and by ID, built on demand: each maps
    // to the lowest index. They are dropped by every change of the dictionary
    // made here, and rebuilt whenever some variable has been renamed or some
    // handle re-pointed since (which may have happened through a reference
    // into this dictionary).
    struct Lookup {
        bool valid = false;
        std::uint64_t seenChanges = 0;
        std::unordered_map<std::string, int> byName;
        std::unordered_map<std::uint32_t, int> byID;
    };

    const Lookup& CurrentLookup() const;
    void DictionaryChanged() { fLookup.valid = false; }
    void AdoptData(const Data& data);

    mutable Lookup fLookup;
};

}  // namespace murv

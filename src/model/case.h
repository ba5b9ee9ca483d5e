// Cases: one row of values in a buffer of 8-byte cells laid out by the
// dataset's ObsLayout. A numeric value is a double in machine byte order; a
// string of width w is its w bytes, blank-padded over its whole run of cells
// and never NUL-terminated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "model/dictionary.h"
#include "model/variable.h"

namespace murv {

class MURV_DataSource;
class MURV_InputCaseIterator;

class MURV_Case {
public:
    // A case of the dataset's current layout over the given buffer (borrowed;
    // it must hold CaseSize() cells and outlive the case) or, with null, over
    // a buffer of its own. The layout is taken as it is now: variables added
    // or removed later do not resize the buffer, and indexes beyond the
    // layout taken are refused.
    MURV_Case(MURV_DataSource* dataSource, void* buffer);
    MURV_Case(const MURV_Case&) = delete;
    MURV_Case& operator=(const MURV_Case&) = delete;
    virtual ~MURV_Case();

    MURV_DataSource* GetDataSource() const { return fpDataSource; }
    const ObsLayout& GetLayout() const { return fLayout; }
    std::size_t CaseSize() const { return fLayout.Total(); }
    bool OwnsBuffer() const { return fOwned != nullptr; }

    // The first cell of a variable; index ColumnCount() gives the end of the
    // case.
    char* GetValuePtr(int index);
    const char* GetValuePtr(int index) const;

    char* SetNumeric(int index, double value);
    // Writes the text's whole characters that fit the string's width (cut at
    // a NUL) and blanks over the rest of its cells.
    void SetString(int index, const char* text);
    void SetString(int index, const char* text, std::size_t length);
    // System-missing into numerics and blanks into strings, variables first
    // to last included.
    void SetMissing(int first, int last);
    void SetAllMissing();

    // An iterator over another dataset that reads into this case's buffer;
    // null for a null dataset or one that cannot be read.
    std::unique_ptr<MURV_InputCaseIterator> NewIteratorOver(MURV_DataSource* dataSource);

    // The iterator to which a passed value goes on, and the value.
    MURV_InputCaseIterator* GetLinkedIterator() const { return fpLinked; }
    void SetLinkedIterator(MURV_InputCaseIterator* iterator) { fpLinked = iterator; }
    std::uint32_t GetPassedValue() const { return fPassedValue; }
    void SetPassedValueField(std::uint32_t value) { fPassedValue = value; }

    // Bytes a string variable may fill in this case: its width, bounded by
    // the cells the case's layout gives it.
    std::size_t StringBytes(int index) const;

private:
    MURV_DataSource* fpDataSource;
    MURV_InputCaseIterator* fpLinked = nullptr;
    ObsLayout fLayout;
    char* fpBuffer = nullptr;
    std::uint32_t fPassedValue = 0;
    std::unique_ptr<char[]> fOwned;
};

// A typed view of one variable's value in the case of an iterator.
class CaseValue {
public:
    // Bound to nothing until Rebind.
    explicit CaseValue(int index);
    CaseValue(MURV_InputCaseIterator& iterator, int index);

    void Rebind(MURV_InputCaseIterator& iterator);

    bool IsBound() const { return _pValue != nullptr; }
    int Index() const { return _index; }
    std::int16_t Type() const { return _type; }
    const MURV_Variable& Variable() const { return _variable; }
    const char* ValuePtr() const { return _pValue; }

    // The variable's missing-value test on the value.
    bool IsMissing() const;
    // Numeric: the system-missing value; string: all blanks.
    bool IsSysmisOrBlank() const;
    // Copies a value of this variable's kind: 8 bytes of double, or the
    // string's width in bytes. A numeric -0 is stored as +0.
    void Set(const void* value);
    void SetString(const char* text);
    void SetString(const char* text, std::size_t length);
    void SetNumeric(double value);

private:
    void BlankLastCell();

    char* _pValue = nullptr;
    MURV_Variable _variable;
    int _index;
    std::int16_t _type = 0;
    std::size_t _cells = 0;
    std::size_t _width = 0;
};

}  // namespace murv

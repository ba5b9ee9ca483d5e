// Input case iterators: each owns one case in its dataset's layout and fills
// it with the next case on each read. Concrete datasets supply their own
// iterators; this base holds the case and passes a value along a chain of
// iterators that read through one another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "model/case.h"

namespace murv {

class MURV_DataSource;

class MURV_InputCaseIterator {
public:
    // Creates the iterator's case over caseBuffer (borrowed) or, with null, a
    // buffer of the case's own, then tells the dataset's observers about the
    // new iterator.
    MURV_InputCaseIterator(MURV_DataSource* dataSource, void* caseBuffer);
    MURV_InputCaseIterator(const MURV_InputCaseIterator&) = delete;
    MURV_InputCaseIterator& operator=(const MURV_InputCaseIterator&) = delete;
    virtual ~MURV_InputCaseIterator();

    // Stores the value in the case and hands it on to the linked iterator.
    virtual void SetPassedValue(std::uint32_t value);
    virtual bool CanSeek() = 0;
    // True when the next read will return the case at caseIndex.
    virtual bool Seek(std::int64_t caseIndex) = 0;
    // Index of the next case to be read.
    virtual std::int64_t Tell() = 0;
    // Non-zero when a case was read into the buffer, 0 at the end.
    virtual int ReadNext() = 0;
    // The same, but the case goes straight into record (the dictionary's
    // layout) and the iterator's own case is left as it was.
    virtual int ReadNextInto(void* record) {
        if (!ReadNext()) return 0;
        std::memcpy(record, fpCase->GetValuePtr(0), fpCase->CaseSize() * 8);
        return 1;
    }

    MURV_DataSource* GetDataSource() const { return fpCase->GetDataSource(); }
    MURV_Case& GetCase() { return *fpCase; }
    const MURV_Case& GetCase() const { return *fpCase; }

    char* GetValuePtr(int index) { return fpCase->GetValuePtr(index); }
    char* SetNumeric(int index, double value) { return fpCase->SetNumeric(index, value); }
    void SetString(int index, const char* text) { fpCase->SetString(index, text); }
    void SetString(int index, const char* text, std::size_t length) { fpCase->SetString(index, text, length); }
    void SetMissing(int first, int last) { fpCase->SetMissing(first, last); }
    void SetAllMissing() { fpCase->SetAllMissing(); }
    std::unique_ptr<MURV_InputCaseIterator> NewIteratorOver(MURV_DataSource* dataSource)
    {
        return fpCase->NewIteratorOver(dataSource);
    }

    // From now on, passed values go on to other too; it gets the current one
    // at once. Null unlinks.
    void LinkIterator(MURV_InputCaseIterator* other);
    std::uint32_t GetPassedValue() const { return fpCase->GetPassedValue(); }

private:
    std::unique_ptr<MURV_Case> fpCase;
};

}  // namespace murv

// A dataset held only in memory, for tests of the model: its iterators read
// nothing and cannot seek.
#pragma once

#include <cstdint>
#include <memory>

#include "model/caseiterator.h"
#include "model/datasource.h"

namespace murv::test {

class MemoryIterator : public MURV_InputCaseIterator {
public:
    using MURV_InputCaseIterator::MURV_InputCaseIterator;
    bool CanSeek() override { return false; }
    bool Seek(std::int64_t) override { return false; }
    std::int64_t Tell() override { return 0; }
    int ReadNext() override { return 0; }
};

class MemoryDataSource : public MURV_DataSource {
public:
    using MURV_DataSource::MURV_DataSource;
    std::unique_ptr<MURV_InputCaseIterator> NewInputCaseIterator(void* caseBuffer) override
    {
        return std::make_unique<MemoryIterator>(this, caseBuffer);
    }

    // Appends a variable of the given type and name; answers its index.
    int Add(int type, const char* name)
    {
        int index = -1;
        AddVariable(type, &index).SetName(name);
        return index;
    }
};

}  // namespace murv::test

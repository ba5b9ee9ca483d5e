// A dataset held only in memory, for tests of the model.
#pragma once

#include "model/datasource.h"

namespace murv::test {

class MemoryDataSource : public MURV_DataSource {
public:
    using MURV_DataSource::MURV_DataSource;

    // Appends a variable of the given type and name; answers its index.
    int Add(int type, const char* name)
    {
        int index = -1;
        AddVariable(type, &index).SetName(name);
        return index;
    }
};

}  // namespace murv::test

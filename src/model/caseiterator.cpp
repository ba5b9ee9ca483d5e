#include "model/caseiterator.h"

#include "model/datasource.h"
#include "port/assert.h"

namespace murv {

MURV_InputCaseIterator::MURV_InputCaseIterator(MURV_DataSource* dataSource, void* caseBuffer)
    : fpCase(std::make_unique<MURV_Case>(dataSource, caseBuffer))
{
    dataSource->NotifyIteratorCreated(*this);
}

MURV_InputCaseIterator::~MURV_InputCaseIterator() = default;

void MURV_InputCaseIterator::SetPassedValue(std::uint32_t value)
{
    fpCase->SetPassedValueField(value);
    if (MURV_InputCaseIterator* linked = fpCase->GetLinkedIterator()) linked->SetPassedValue(value);
}

void MURV_InputCaseIterator::LinkIterator(MURV_InputCaseIterator* other)
{
    MURV_ASSERT(other != this);
    fpCase->SetLinkedIterator(other);
    if (other) other->SetPassedValue(fpCase->GetPassedValue());
}

}  // namespace murv

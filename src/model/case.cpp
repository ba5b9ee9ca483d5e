#include "model/case.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "model/caseiterator.h"
#include "model/constants.h"
#include "model/datasource.h"
#include "port/assert.h"
#include "text/mbtext.h"

namespace murv {

namespace {

constexpr double kSysmis = std::bit_cast<double>(kSysmisBits);

}  // namespace

// ---- MURV_Case ----

MURV_Case::MURV_Case(MURV_DataSource* dataSource, void* buffer) : fpDataSource(dataSource)
{
    MURV_ASSERT(dataSource != nullptr);
    fLayout = dataSource->GetObsLayout();
    if (buffer) {
        fpBuffer = static_cast<char*>(buffer);
    } else {
        fOwned = std::make_unique<char[]>(std::size_t{fLayout.Total()} * kCellSize);
        fpBuffer = fOwned.get();
    }
}

MURV_Case::~MURV_Case() = default;

char* MURV_Case::GetValuePtr(int index)
{
    MURV_ASSERT(0 <= index);
    return fpBuffer + fLayout.StartCell(index) * kCellSize;
}

const char* MURV_Case::GetValuePtr(int index) const
{
    MURV_ASSERT(0 <= index);
    return fpBuffer + fLayout.StartCell(index) * kCellSize;
}

std::size_t MURV_Case::StringBytes(int index) const
{
    MURV_ASSERT(0 <= index && std::size_t(index) < fLayout.ColumnCount());
    const int type = fpDataSource->GetVariable(index).GetType();
    return std::min<std::size_t>(static_cast<std::size_t>(type),
                                 fLayout.ColumnCells(static_cast<std::size_t>(index)) * kCellSize);
}

char* MURV_Case::SetNumeric(int index, double value)
{
    MURV_ASSERT(0 <= index && std::size_t(index) < fLayout.ColumnCount());
    char* cell = GetValuePtr(index);
    std::memcpy(cell, &value, sizeof value);
    return cell;
}

void MURV_Case::SetString(int index, const char* text)
{
    SetString(index, text, StringBytes(index));
}

void MURV_Case::SetString(int index, const char* text, std::size_t length)
{
    const std::size_t tgtlen = StringBytes(index);
    MURV_ASSERT(tgtlen > 0);
    const std::size_t run = fLayout.ColumnCells(static_cast<std::size_t>(index)) * kCellSize;
    if (text == nullptr) text = "";
    text::CopyPadded(GetValuePtr(index), run, text, std::min(tgtlen, length));
}

void MURV_Case::SetMissing(int first, int last)
{
    MURV_ASSERT(0 <= first);
    MURV_ASSERT(last < static_cast<int>(fLayout.ColumnCount()));
    for (int i = first; i <= last; ++i) {
        char* cell = GetValuePtr(i);
        if (fpDataSource->GetVariable(i).GetType() == 0)
            std::memcpy(cell, &kSysmis, sizeof kSysmis);
        else
            std::memset(cell, ' ', fLayout.ColumnCells(static_cast<std::size_t>(i)) * kCellSize);
    }
}

void MURV_Case::SetAllMissing()
{
    SetMissing(0, static_cast<int>(fLayout.ColumnCount()) - 1);
}

std::unique_ptr<MURV_InputCaseIterator> MURV_Case::NewIteratorOver(MURV_DataSource* dataSource)
{
    if (dataSource == nullptr) return nullptr;
    return dataSource->NewInputCaseIterator(fpBuffer);
}

// ---- CaseValue ----

CaseValue::CaseValue(int index) : _index(index) {}

CaseValue::CaseValue(MURV_InputCaseIterator& iterator, int index) : _index(index)
{
    Rebind(iterator);
}

void CaseValue::Rebind(MURV_InputCaseIterator& iterator)
{
    MURV_Case& theCase = iterator.GetCase();
    const ObsLayout& layout = theCase.GetLayout();
    MURV_ASSERT(0 <= _index && std::size_t(_index) < layout.ColumnCount());
    _variable = theCase.GetDataSource()->GetVariable(_index);
    _type = _variable.GetType();
    _pValue = theCase.GetValuePtr(_index);
    _cells = layout.ColumnCells(static_cast<std::size_t>(_index));
    _width = _type == 0 ? kCellSize : std::min<std::size_t>(static_cast<std::size_t>(_type), _cells * kCellSize);
}

bool CaseValue::IsMissing() const
{
    MURV_ASSERT(_pValue);
    return _variable.IsMissing(_pValue);
}

bool CaseValue::IsSysmisOrBlank() const
{
    MURV_ASSERT(_pValue);
    if (_type == 0) {
        double value;
        std::memcpy(&value, _pValue, sizeof value);
        return value == kSysmis;
    }
    return std::all_of(_pValue, _pValue + _width, [](char c) { return c == ' '; });
}

void CaseValue::BlankLastCell()
{
    std::memset(_pValue + (_cells - 1) * kCellSize, ' ', kCellSize);
}

void CaseValue::Set(const void* value)
{
    MURV_ASSERT(_pValue);
    if (_type != 0) {
        BlankLastCell();
        std::memcpy(_pValue, value, _width);
    } else {
        double number;
        std::memcpy(&number, value, sizeof number);
        SetNumeric(number);
    }
}

void CaseValue::SetString(const char* text)
{
    SetString(text, _width);
}

void CaseValue::SetString(const char* text, std::size_t length)
{
    MURV_ASSERT(_pValue);
    MURV_ASSERT(_type != 0);
    BlankLastCell();
    if (text == nullptr) text = "";
    text::CopyPadded(_pValue, _width, text, std::min(_width, length));
}

void CaseValue::SetNumeric(double value)
{
    MURV_ASSERT(_pValue);
    MURV_ASSERT(_type == 0);
    // Adding +0 turns a negative zero into a positive one.
    value += 0.0;
    std::memcpy(_pValue, &value, sizeof value);
}

}  // namespace murv

#include "model/dictionary.h"

#include "model/datasource.h"
#include "port/assert.h"

namespace murv {

// ---- ObsLayout ----

long ObsLayout::StartCell(long var_index) const
{
    const long lth = static_cast<long>(fStart.size());
    MURV_ASSERT(var_index >= -1);
    MURV_ASSERT(var_index <= lth);
    if (var_index == -1) return -1;
    if (var_index == lth) return fTotal;
    return fStart[static_cast<std::size_t>(var_index)];
}

std::uint32_t ObsLayout::ColumnCells(std::size_t index) const
{
    MURV_ASSERT(index < fStart.size());
    const std::uint32_t end = index + 1 < fStart.size() ? fStart[index + 1] : fTotal;
    return end - fStart[index];
}

void ObsLayout::AddColumn(int type)
{
    InsertColumn(fStart.size(), type);
}

void ObsLayout::InsertColumn(std::size_t position, int type)
{
    MURV_ASSERT(position <= fStart.size());
    const std::uint32_t cells = CellsForType(type);
    const std::uint32_t first = position < fStart.size() ? fStart[position] : fTotal;
    fStart.insert(fStart.begin() + static_cast<std::ptrdiff_t>(position), first);
    for (std::size_t j = position + 1; j < fStart.size(); ++j) fStart[j] += cells;
    if (position + 1 == fStart.size()) fLastWidth = cells;
    fTotal += cells;
}

void ObsLayout::RemoveColumns(long start, long finish)
{
    const long columnCount = static_cast<long>(fStart.size());
    MURV_ASSERT(0 <= start);
    MURV_ASSERT(finish < columnCount);
    MURV_ASSERT(start <= finish);
    const auto first = static_cast<std::size_t>(start);
    const auto last = static_cast<std::size_t>(finish);
    if (finish == columnCount - 1) fLastWidth = first == 0 ? 0 : fStart[first] - fStart[first - 1];
    const std::uint32_t removed = static_cast<std::uint32_t>(StartCell(finish + 1) - StartCell(start));
    for (std::size_t j = last + 1; j < fStart.size(); ++j) fStart[j] -= removed;
    fStart.erase(fStart.begin() + start, fStart.begin() + finish + 1);
    fTotal -= removed;
}

// ---- DictionaryIndex ----

DictionaryIndex::DictionaryIndex(const MURV_DataSource& dataSource) : fDataSource(dataSource)
{
    Rebuild();
}

void DictionaryIndex::Rebuild()
{
    // The cells come from the layout, a compact array, rather than from each
    // variable's type: the layout follows every variable added, inserted or
    // removed, and reading one type per variable would visit a million
    // bodies scattered over the heap.
    const ObsLayout& layout = fDataSource.GetObsLayout();
    const std::size_t count = layout.ColumnCount();
    fEntries.clear();
    fEntries.reserve(layout.Total());
    for (std::size_t i = 0; i < count; ++i) {
        fEntries.push_back(static_cast<std::int32_t>(i));
        const std::uint32_t cells = layout.ColumnCells(i);
        if (cells > 1) fEntries.insert(fEntries.end(), cells - 1, -1);
    }
}

int DictionaryIndex::IndexAt(long position) const
{
    if (position < 1 || static_cast<std::size_t>(position) > fEntries.size()) return -1;
    return fEntries[static_cast<std::size_t>(position - 1)];
}

}  // namespace murv

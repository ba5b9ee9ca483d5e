// The layout of a case in 8-byte cells, and the map from the file's
// dictionary positions to variables.
//
// A case is the cells of all variables in dictionary order, without gaps: a
// numeric variable takes one cell (a double), a string of width w takes one
// cell when w <= 8 and (w + 7) / 8 cells otherwise, blank-padded.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace murv {

class MURV_DataSource;
class MURV_Variable;

inline constexpr std::size_t kCellSize = 8;

// Cells taken by a variable of the given type (0 numeric, else the width).
constexpr std::uint32_t CellsForType(int type)
{
    return type <= 8 ? 1u : static_cast<std::uint32_t>((type + 7) / 8);
}

class ObsLayout {
public:
    // Number of variables laid out.
    std::size_t ColumnCount() const { return fStart.size(); }
    // Total cells of a case.
    std::uint32_t Total() const { return fTotal; }
    // Cells of the last variable (0 for an empty layout).
    std::uint32_t LastWidth() const { return fLastWidth; }

    // First cell of a variable: -1 for index -1, the total for index
    // ColumnCount(). Any other index is a broken precondition.
    long StartCell(long index) const;
    // Cells taken by the variable at index.
    std::uint32_t ColumnCells(std::size_t index) const;

    void Reserve(std::size_t columns) { fStart.reserve(columns); }
    void AddColumn(int type);
    void InsertColumn(std::size_t position, int type);
    // Removes the columns start..finish, both included.
    void RemoveColumns(long start, long finish);

    bool operator==(const ObsLayout&) const = default;

private:
    std::vector<std::uint32_t> fStart;
    std::uint32_t fTotal = 0;
    std::uint32_t fLastWidth = 0;
};

// The file's 1-based dictionary positions, one per cell, mapped to variable
// indexes: a variable's first position holds its index, each further cell
// of a long string holds -1.
class DictionaryIndex {
public:
    explicit DictionaryIndex(const MURV_DataSource& dataSource);

    void Rebuild();
    std::size_t Size() const { return fEntries.size(); }
    // The variable index at a position, or -1 when the position is outside
    // the dictionary or continues a long string.
    int IndexAt(long position) const;

private:
    const MURV_DataSource& fDataSource;
    std::vector<std::int32_t> fEntries;
};

}  // namespace murv

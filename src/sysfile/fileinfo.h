// The per-file block of header values and settings that the reader fills
// from a file, that the writer takes its header and source parameters from,
// and that the extension-record handlers read and fill.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "model/constants.h"
#include "sysfile/layout.h"
#include "sysfile/segments.h"
#include "text/textindex.h"

namespace murv {

struct SystemFileInfo {
    static constexpr int kSeenFlags = 100;

    double bias = kDefaultBias;
    double sysmis = SysmisValue();
    double highest = HighestValue();
    double lowest = LowestValue();
    std::int64_t _nCases = -1;
    std::int32_t nominalCaseSize = -1;
    std::string product = kDefaultProduct;
    std::int32_t layoutCode = kLayoutCode;
    std::array<std::int32_t, 3> release = {15, 0, 0};
    std::int32_t machineCode = 720;
    std::int32_t floatingPointCode = 1;
    std::int32_t compressionCode = 1;
    std::int32_t characterCode = 2;
    std::int32_t weightIndex = 0;
    // Writing: (full name, short name) of every variable. Reading: (short
    // name, long name) of the long-name record.
    std::vector<std::pair<std::string, std::string>> namePairs;
    // Reading: the upper-cased names of the variables by position, added
    // (not yet indexed, see text::NameIndex::StartAssign) by the long-name
    // record when it renamed every variable in one pass, and whether every
    // name is kept on reading (names::KeptOnReading); the name check at the
    // end of the dictionary then need not visit the variables again. Emptied
    // by whatever changes the variables after that record (see ReadFile).
    // A copy of the information starts without them.
    struct ReadNames {
        text::NameIndex index;
        bool kept = false;

        ReadNames() = default;
        ReadNames(const ReadNames&) {}
        ReadNames& operator=(const ReadNames&) {
            Clear();
            return *this;
        }
        void Clear() {
            index.Clear();
            kept = false;
        }
    };
    ReadNames readNames;
    std::bitset<kSeenFlags> seen;
    // How the file's case maps onto the dataset's when very long strings
    // are stored as segments; empty otherwise.
    SystemFileDechunker segments;
    // One byte per cell of the file's case, set at the first cell of every
    // numeric variable, when the file is byte-reversed; empty otherwise.
    std::vector<unsigned char> swapFlags;
    bool compressed = false;
    bool byteSwapped = false;
    bool longNamesRead = false;

    bool IsSubtypeSeen(int subtype) const { return subtype >= 0 && subtype < kSeenFlags && seen[subtype]; }
    void MarkSeen(int subtype) {
        if (subtype >= 0 && subtype < kSeenFlags) seen[subtype] = true;
    }
};

}  // namespace murv

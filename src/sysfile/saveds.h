// The writer of a system file: a dataset of its own whose dictionary starts
// as a copy of the file dataset's (so that writing may reshape it without
// touching the caller's), which serialises the dictionary and then takes
// cases, plainly or compressed. Finish brings the case counts up to date.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "sysfile/compression.h"
#include "sysfile/systemfile.h"

namespace murv {

class SystemFileDataSource::SaveDS : public MURV_DataSource {
public:
    SaveDS(const MURV_DataSource& source, SystemFileInfo& info, MURV_FileStream& stream);
    ~SaveDS() override;

    // Writes the header and all dictionary records; returns the position of
    // the 64-bit case-count payload (0 when none was written).
    std::int64_t WriteDictionary();
    void WriteCase(const void* cells);
    void CreateCompressed(SparseFileIndex& index, std::int64_t row0pos);
    // Continues an existing file holding existingCases cases; returns the
    // cases that new ones follow (fewer when the data ends before).
    std::int64_t PrepareAppend(std::int64_t caseCountRecordPos, std::int64_t existingCases);
    // Completes the file: last block, header and 64-bit case counts. Returns
    // the total number of cases (-1 when unknown).
    std::int64_t Finish();
    // Gives up a file whose dictionary could not be written: nothing more is
    // written to it, not even when the writer is destroyed.
    void Abandon();

    // Where the case data ended when Finish had written the last case.
    std::int64_t DataEnd() const { return dataEnd_; }

    // Replaces every very long string of list ((index, width) in dictionary
    // order) by its segments, and prepares the movers that cut each case's
    // values into them.
    void SplitVeryLongStrings(const std::vector<std::pair<int, int>>& list);

    // The names the variables go into the file under, one per variable in
    // dictionary order, as the long-names record pairs them. Renaming the
    // variables themselves would give each of them a private body.
    void SetFileNames(std::vector<std::string> names) {
        fileNames_ = std::move(names);
        filePairs_ = nullptr;
    }
    // The same names as the second names of pairs, one per variable in
    // dictionary order; the pairs must stay as they are until the dictionary
    // is written (they are the file information's, and saving a copy of a
    // million names matters).
    void SetFileNames(const std::vector<std::pair<std::string, std::string>>* pairs) {
        fileNames_.clear();
        filePairs_ = pairs;
    }

private:
    // The name variable i goes into the file under.
    const std::string& FileName(std::size_t i) const {
        if (filePairs_) return (*filePairs_)[i].second;
        return fileNames_.empty() ? GetVariable(static_cast<int>(i)).GetName() : fileNames_[i];
    }
    std::vector<std::string> fileNames_;
    const std::vector<std::pair<std::string, std::string>>* filePairs_ = nullptr;

    void WriteVariables();
    void WriteValueLabels();
    void WriteDocuments();

    std::uint64_t casesWritten_ = 0;
    std::int64_t baseCaseCount_ = 0;
    std::int64_t caseCountRecordPos_ = 0;
    SystemFileInfo& info_;
    MURV_FileStream& stream_;
    std::unique_ptr<CompressedSystemFile> compressed_;
    bool finished_ = false;
    std::int64_t dataEnd_ = -1;

    // Copies one run of a case given in the dictionary's layout into the
    // file's layout: width 0 copies cells as they are, a width cuts a very
    // long string into its segments.
    struct Mover {
        std::uint32_t source;       // first cell in the dictionary case
        std::uint32_t destination;  // first cell in the file case
        std::uint32_t cells;        // cells copied (width 0)
        int width;
    };
    std::vector<Mover> movers_;
    // Plain cases waiting to be written.
    static constexpr std::size_t kStagingBytes = 64 * 1024;
    std::vector<unsigned char> staging_;
    void FlushStaging();
    std::vector<unsigned char> caseBuffer_;
};

}  // namespace murv

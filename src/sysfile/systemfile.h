// The dataset bound to one system file: it reads a file's header and
// dictionary when opened by name, or writes a new file from a dictionary
// defined in memory, and gives out case iterators with random access, each
// reading the file's cases plainly or through the decompressor as the file
// was written.
//
// States: 0 the dictionary is being defined (nothing on disk), 1 cases are
// being written, 2 reading (an existing file, or one whose writing has
// finished). A file opened for reading goes to 1 when cases are appended.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "model/datasource.h"
#include "sysfile/fileinfo.h"
#include "sysfile/filestream.h"
#include "sysfile/scratchbytes.h"
#include "sysfile/sparseindex.h"

namespace murv {

class CompressedSystemFile;

class SystemFileDataSource : public MURV_DataSource {
public:
    class SaveDS;
    class Iterator;

    // kFailed: writing failed; the close reports it and removes what was
    // written (or, for an append, puts the file back as it was).
    enum State : int { kDefining = 0, kWriting = 1, kReading = 2, kFailed = 3 };

    struct CreateTag {};
    // A new file to be written at fileName; nothing is created until the
    // dictionary is committed.
    SystemFileDataSource(std::string fileName, CreateTag);
    // Opens fileName and reads its header and dictionary. Throws ErrorText
    // (1201 cannot open, 1204 bad content, 1205 ends early).
    explicit SystemFileDataSource(std::string fileName);
    // Finishes a file being written (errors are swallowed here; call
    // FinishWriting to see them).
    ~SystemFileDataSource() override;

    // An iterator that reads this file's cases into caseBuffer (null: a
    // buffer of the iterator's own); null while nothing is on disk yet.
    std::unique_ptr<Iterator> NewInputCaseIterator(void* caseBuffer);
    std::int64_t NumberOfCases() const override { return m_data->m_options._nCases; }
    // Writes one case given in the dictionary's layout: commits first in
    // state 0, appends in state 2.
    void WriteCase(const void* cells);
    void FinishWriting();
    void SetCompression(bool compressed) { m_data->m_options.compressed = compressed; }
    void CommitDictionary();

    // ---- file-level queries ----
    bool IsSubtypeSeen(int subtype) const { return m_data->m_options.IsSubtypeSeen(subtype); }
    // The release numbers of the file's source-parameter record; false when
    // the file has none.
    bool GetReleaseInfo(int release[3]) const;
    bool IsByteSwapped() const { return m_data->m_options.byteSwapped; }
    bool IsCompressed() const { return m_data->m_options.compressed; }
    const std::string& FileName() const { return m_data->fileName; }
    void SetFileName(std::string name) { m_data->fileName = std::move(name); }
    SystemFileInfo& Options() { return m_data->m_options; }
    const SystemFileInfo& Options() const { return m_data->m_options; }

    // Moves into *index the upper-cased names of the dictionary by position,
    // when reading the file found every name valid and unique and built
    // them on the way (the usual file), and the dictionary has not changed
    // since; false, leaving *index as it is, otherwise.
    bool TakeNameIndex(text::NameIndex* index);

    // Product text of the header of a file written from this dataset.
    void SetProduct(std::string product) { m_data->m_options.product = std::move(product); }

protected:
    struct Data {
        Data();
        ~Data();
        std::string fileName;
        std::unique_ptr<SaveDS> writer;
        int state = kDefining;
        SystemFileInfo m_options;
        MURV_FileStream stream;
        SparseFileIndex index;
        std::int64_t row0pos = 0;
        std::int64_t caseCountRecordPos = 0;
        int iterators = 0;
        // Where the bytes go while writing: the file itself, or, when it
        // existed before, a new file beside it that replaces it at the end.
        std::string writeName;
        bool replacing = false;
        // writeName was made by this dataset: giving up removes it.
        bool created = false;
        // A case write failed: nothing more is written, and finishing
        // reports the failure.
        bool failed = false;
        // Appending: what the first new case overwrites, and the case counts
        // of the header, so that a failed append can put the file back.
        bool appending = false;
        std::int64_t appendStart = -1;
        std::vector<unsigned char> overwritten;
        std::vector<unsigned char> headerCount;
        std::vector<unsigned char> recordCount;
    };

private:
    void ReadFile();
    void StartAppend();
    // Ends writing (state 1 -> 2) and reopens the stream for reading.
    void EndWriting();
    // Completes the file on disk: the replacement moves into place, an
    // appended file loses whatever stray bytes followed its data.
    void CompleteFile();
    // Gives up writing: removes a new file or a replacement, or puts an
    // appended file back as it was. Never throws.
    void DiscardWriting() noexcept;

    std::unique_ptr<Data> m_data;
};

// Reads the cases of a file in state 2, one at a time into its buffer, from
// any case on.
class SystemFileDataSource::Iterator {
public:
    // Over caseBuffer (borrowed; it must hold CaseSize() cells and outlive
    // the iterator) or, with null, over a buffer of its own.
    Iterator(SystemFileDataSource& ds, void* caseBuffer);
    Iterator(const Iterator&) = delete;
    Iterator& operator=(const Iterator&) = delete;
    ~Iterator();

    bool CanSeek() const { return true; }
    // True when the next read will return the case at caseIndex.
    bool Seek(std::int64_t caseIndex);
    // Index of the next case to be read.
    std::int64_t Tell() const { return static_cast<std::int64_t>(pos_); }
    // 1 when a case was read into the buffer, 0 at the end.
    int ReadNext() { return ReadNextInto(buffer_); }
    // The same, but the case goes straight into record (the dictionary's
    // layout) and the buffer is left as it was.
    int ReadNextInto(void* record) {
        // Reading a plain file on from a case that came out of the read-ahead
        // block: the next one is there as well.
        if (aheadNext_ != aheadEnd_) {
            std::memcpy(record, aheadNext_, aheadCaseLen_);
            aheadNext_ += aheadCaseLen_;
            ++pos_;
            ++streamCase_;
            return 1;
        }
        return ReadInto(static_cast<unsigned char*>(record));
    }
    // The first cell of a variable in the buffer, in the layout the dataset
    // had when the iterator was made.
    char* GetValuePtr(int index) { return buffer_ + layout_.StartCell(index) * 8; }

private:
    // Reads the next case into caseCells, in the dictionary's layout: plain
    // cases come from the read-ahead block, compressed ones are decoded
    // there, and only files with very long strings go through a case of the
    // file's own layout first.
    int ReadInto(unsigned char* caseCells);
    // Reads the plain case at pos_ into dst; returns the bytes found (fewer
    // than a case at the end of the file). Sequential reading takes many
    // cases with one stream call and hands them out one by one.
    std::int64_t ReadPlain(unsigned char* dst, std::int64_t caseLen);

    static constexpr std::size_t kReadAhead = 256 * 1024;

    Data& data_;
    ObsLayout layout_;
    std::unique_ptr<char[]> owned_;
    char* buffer_;
    ScratchBytes ahead_;
    std::uint64_t aheadCase_ = 0;
    std::size_t aheadLen_ = 0;
    // The cases of the read-ahead block behind the one read last, while
    // reading goes on in order (a plain file whose cases need no further
    // work): the next read copies the one at aheadNext_. Equal when there is
    // none.
    const unsigned char* aheadNext_ = nullptr;
    const unsigned char* aheadEnd_ = nullptr;
    std::size_t aheadCaseLen_ = 0;
    std::uint64_t pos_ = 0;
    std::int64_t streamCase_ = -1;
    MURV_FileStream stream_;
    // Set for a compressed file.
    std::unique_ptr<CompressedSystemFile> compressed_;
    std::vector<unsigned char> fileCase_;
};

}  // namespace murv

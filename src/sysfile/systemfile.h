// The dataset bound to one system file: it reads a file's header and
// dictionary when opened by name, or writes a new file from a dictionary
// defined in memory, and gives out case iterators with random access.
//
// States: 0 the dictionary is being defined (nothing on disk), 1 cases are
// being written, 2 reading (an existing file, or one whose writing has
// finished). A file opened for reading goes to 1 when cases are appended.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "model/datasource.h"
#include "sysfile/fileinfo.h"
#include "sysfile/filestream.h"
#include "sysfile/sparseindex.h"

namespace murv {

class SystemFileDataSource : public IndependentDataStore {
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

    // ---- MURV_DataSource / IndependentDataStore ----
    std::unique_ptr<MURV_InputCaseIterator> NewInputCaseIterator(void* caseBuffer) override;
    std::int64_t NumberOfCases() const override { return m_data->m_options._nCases; }
    // Writes one case given in the dictionary's layout: commits first in
    // state 0, appends in state 2.
    void WriteCase(const void* cells) override;
    void FinishWriting() override;
    void SetCompression(bool compressed) override { m_data->m_options.compressed = compressed; }
    void CommitDictionary() override;

    // ---- file-level queries ----
    bool IsSubtypeSeen(int subtype) const { return m_data->m_options.IsSubtypeSeen(subtype); }
    // The release numbers of the file's source-parameter record; false when
    // the file has none.
    bool GetReleaseInfo(int release[3]) const;
    bool IsByteSwapped() const { return m_data->m_options.byteSwapped; }
    double GetFileSysmis() const { return m_data->m_options.sysmis; }
    bool IsCompressed() const { return m_data->m_options.compressed; }
    int GetState() const { return m_data->state; }
    const std::string& FileName() const { return m_data->fileName; }
    void SetFileName(std::string name) { m_data->fileName = std::move(name); }
    SystemFileInfo& Options() { return m_data->m_options; }
    const SystemFileInfo& Options() const { return m_data->m_options; }
    int LiveIterators() const { return m_data->iterators; }

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

}  // namespace murv

#include "sysfile/saveds.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <unordered_map>
#include <unordered_set>

#include "port/assert.h"
#include "port/errors.h"
#include "port/file.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/layout.h"
#include "sysfile/segments.h"
#include "text/mbtext.h"
#include "text/textindex.h"

namespace murv {

namespace {

constexpr std::int64_t kMaxHeaderCount = std::numeric_limits<std::int32_t>::max();

// A small buffer that collects one record before a single stream write.
class RecordBytes {
public:
    void I32(std::int32_t v) {
        unsigned char b[4];
        StoreI32(b, v);
        bytes_.insert(bytes_.end(), b, b + 4);
    }
    void Raw(const void* p, std::size_t n) {
        const auto* b = static_cast<const unsigned char*>(p);
        bytes_.insert(bytes_.end(), b, b + n);
    }
    void Blanks(std::size_t n) { bytes_.insert(bytes_.end(), n, ' '); }
    void Padded(const std::string& text, std::size_t n) {
        const std::size_t len = std::min(text.size(), n);
        Raw(text.data(), len);
        Blanks(n - len);
    }
    void FlushTo(MURV_FileStream& stream) {
        if (!bytes_.empty()) stream.Write(bytes_.data(), static_cast<unsigned>(bytes_.size()));
        bytes_.clear();
    }
    std::size_t Size() const { return bytes_.size(); }

private:
    std::vector<unsigned char> bytes_;
};

}  // namespace

SystemFileDataSource::SaveDS::SaveDS(const MURV_DataSource& source, SystemFileInfo& info, MURV_FileStream& stream)
    : MURV_DataSource(source), info_(info), stream_(stream) {}

SystemFileDataSource::SaveDS::~SaveDS() {
    try {
        Finish();
    } catch (...) {
        // A destructor cannot report; FinishWriting calls Finish first.
    }
}

std::int64_t SystemFileDataSource::SaveDS::WriteDictionary() {
    // Names must be unique without regard to case.
    {
        const auto upperOf = [this](std::uint32_t k) {
            return std::string_view(GetVariable(static_cast<int>(k)).GetUpperName());
        };
        text::TextIndex<decltype(upperOf)> seen(upperOf);
        seen.Reserve(ColumnCount());
        for (std::size_t i = 0; i < ColumnCount(); ++i) {
            if (i + seen.kPrefetchDistance < ColumnCount()) seen.Prefetch(upperOf(static_cast<std::uint32_t>(i + seen.kPrefetchDistance)));
            if (seen.Insert(static_cast<std::uint32_t>(i)) != seen.kNone)
                ErrorText::Throw(kErrDuplicateName, GetVariable(static_cast<int>(i)).GetUpperName());
        }
    }

    // Handlers may reshape this dictionary, so the records are collected
    // before the header is written.
    const ExtensionRecords records = CollectExtensionRecords(*this, info_);
    // The names as they go into the file (short names, and the segments of
    // very long strings) must be unique too: a variable already named like a
    // segment would otherwise appear twice.
    // (Short names made for the variables are unique already: a name of up
    // to 8 bytes upper-cased, unique as checked above, or one checked against
    // all those as it was made. They are taken as the file names only when
    // there is one per variable, no segment among them, and a million of them
    // need no second index.)
    if (!filePairs_) {
        text::TextArena uppers;
        const auto upperOf = [&uppers](std::uint32_t k) { return uppers[k]; };
        text::TextIndex<decltype(upperOf)> seen(upperOf);
        seen.Reserve(ColumnCount());
        for (std::size_t i = 0; i < ColumnCount(); ++i) uppers.Add(text::UpperCopy(FileName(i)));
        for (std::size_t i = 0; i < ColumnCount(); ++i) {
            if (i + seen.kPrefetchDistance < ColumnCount()) seen.Prefetch(uppers[i + seen.kPrefetchDistance]);
            if (seen.Insert(static_cast<std::uint32_t>(i)) != seen.kNone)
                ErrorText::Throw(kErrDuplicateName, std::string(uppers[i]));
        }
    }

    HeaderRecord h;
    h.product = info_.product;
    h.layoutCode = info_.layoutCode;
    h.nominalCaseSize = static_cast<std::int32_t>(CaseSize());
    h.compression = info_.compressed ? 1 : 0;
    const int weight = GetWeightVarIndex();
    h.weightIndex = weight >= 0 ? static_cast<std::int32_t>(1 + GetObsLayout().StartCell(weight)) : 0;
    h.caseCount = (info_._nCases >= 0 && info_._nCases <= kMaxHeaderCount) ? static_cast<std::int32_t>(info_._nCases) : -1;
    h.bias = info_.bias;
    const auto [date, time] = FormatCreationStamp(static_cast<std::int64_t>(std::time(nullptr)));
    h.creationDate = date;
    h.creationTime = time;
    const std::string* label = GetIdString();
    h.fileLabel = label ? *label : std::string();
    const auto header = EncodeHeader(h);
    stream_.Write(header.data(), kHeaderSize);

    WriteVariables();
    WriteValueLabels();
    WriteDocuments();
    caseCountRecordPos_ = WriteExtensionRecords(records, stream_);

    RecordBytes end;
    end.I32(kRecEnd);
    end.I32(0);
    end.FlushTo(stream_);
    // The file names served the dictionary only.
    fileNames_ = {};
    filePairs_ = nullptr;
    return caseCountRecordPos_;
}

void SystemFileDataSource::SaveDS::WriteVariables() {
    RecordBytes rec;
    for (std::size_t i = 0; i < ColumnCount(); ++i) {
        const MURV_Variable& v = GetVariable(static_cast<int>(i));
        const int type = v.GetType();
        const std::string* label = v.GetLabel();
        const char* slots[3] = {nullptr, nullptr, nullptr};
        const int code = v.GetMissingValues(&slots[0], &slots[1], &slots[2]);
        rec.I32(kRecVariable);
        rec.I32(type);
        rec.I32(label ? 1 : 0);
        rec.I32(code);
        rec.I32(static_cast<std::int32_t>(v.GetPackedPrintFormat()));
        rec.I32(static_cast<std::int32_t>(v.GetPackedWriteFormat()));
        rec.Padded(FileName(i), kShortNameSize);
        if (label) {
            rec.I32(static_cast<std::int32_t>(label->size()));
            rec.Raw(label->data(), label->size());
            rec.Blanks((4 - label->size() % 4) % 4);
        }
        const int nMissing = code < 0 ? -code : code;
        for (int k = 0; k < nMissing && k < 3; ++k) rec.Raw(slots[k], 8);
        for (std::uint32_t c = 1; c < CellsForType(type); ++c) {
            rec.I32(kRecVariable);
            rec.I32(-1);
            rec.I32(0);
            rec.I32(0);
            rec.I32(kContinuationFormat);
            rec.I32(kContinuationFormat);
            rec.Blanks(kShortNameSize);
        }
        if (rec.Size() >= 64 * 1024) rec.FlushTo(stream_);
    }
    rec.FlushTo(stream_);
}

void SystemFileDataSource::SaveDS::WriteValueLabels() {
    // One record pair per distinct label set (the same shared body, not
    // merely equal contents), in the order of its first variable.
    std::unordered_map<const void*, std::vector<int>> users;
    std::vector<const void*> order;
    for (std::size_t i = 0; i < ColumnCount(); ++i) {
        const MURV_ValueLabelMap labels = GetVariable(static_cast<int>(i)).GetValueLabels();
        if (labels.Count() == 0) continue;
        auto [it, added] = users.try_emplace(labels.BodyIdentity());
        if (added) order.push_back(labels.BodyIdentity());
        it->second.push_back(static_cast<int>(i));
    }
    RecordBytes rec;
    for (const void* body : order) {
        const std::vector<int>& vars = users[body];
        const MURV_ValueLabelMap labels = GetVariable(vars.front()).GetValueLabels();
        rec.I32(kRecValueLabels);
        rec.I32(static_cast<std::int32_t>(labels.Count()));
        for (const auto& [key, label] : labels.Entries()) {
            const std::string text = text::Truncated(label, 255);
            rec.Raw(key.data(), 8);
            const auto n = static_cast<unsigned char>(text.size());
            rec.Raw(&n, 1);
            rec.Raw(text.data(), text.size());
            rec.Blanks((8 - (1 + text.size()) % 8) % 8);
        }
        MURV_ASSERT(!vars.empty());
        rec.I32(kRecValueLabelVars);
        rec.I32(static_cast<std::int32_t>(vars.size()));
        for (int i : vars) rec.I32(static_cast<std::int32_t>(1 + GetObsLayout().StartCell(i)));
        if (rec.Size() >= 64 * 1024) rec.FlushTo(stream_);
    }
    rec.FlushTo(stream_);
}

void SystemFileDataSource::SaveDS::WriteDocuments() {
    if (!HasExtension(0)) return;
    const MURV_Extension docs = GetExtension(0);
    const std::string& bytes = docs.Contents();
    // An incomplete last line is not written.
    const std::size_t lines = bytes.size() / kDocumentLineSize;
    if (lines == 0 || lines > 0x7FFFFFFF / kDocumentLineSize) return;
    RecordBytes rec;
    rec.I32(kRecDocument);
    rec.I32(static_cast<std::int32_t>(lines));
    rec.Raw(bytes.data(), lines * kDocumentLineSize);
    rec.FlushTo(stream_);
}

void SystemFileDataSource::SaveDS::CreateCompressed(SparseFileIndex& index, std::int64_t row0pos) {
    compressed_ = std::make_unique<CompressedSystemFile>(static_cast<int>(info_.nominalCaseSize), &stream_, &index, row0pos);
}

void SystemFileDataSource::SaveDS::SplitVeryLongStrings(const std::vector<std::pair<int, int>>& list) {
    // The movers use the cells of the dictionary as it stands, before the split.
    movers_.clear();
    std::uint32_t extra = 0;
    for (const auto& [index, w] : list) extra += FileCells(w) - DictionaryCells(w);
    const std::uint32_t dictCells = static_cast<std::uint32_t>(CaseSize());
    caseBuffer_.assign(8 * static_cast<std::size_t>(dictCells + extra), ' ');
    std::uint32_t d = 0, f = 0;
    for (const auto& [index, w] : list) {
        const auto s = static_cast<std::uint32_t>(GetObsLayout().StartCell(index));
        if (s > d) {
            movers_.push_back({d, f, s - d, 0});
            f += s - d;
            d = s;
        }
        movers_.push_back({d, f, 0, w});
        d += DictionaryCells(w);
        f += FileCells(w);
    }
    if (d < dictCells) movers_.push_back({d, f, dictCells - d, 0});

    // Segment j of a string is named by its stem and j. Two strings whose
    // names share a stem would give their segments one name: a later one
    // takes the next free number instead (readers check only the stem). A
    // variable of the dataset named like a segment is still refused when the
    // dictionary is written.
    std::vector<std::vector<std::string>> names(list.size());
    {
        std::unordered_set<std::string> taken;
        for (std::size_t k = 0; k < list.size(); ++k) {
            const auto [index, w] = list[k];
            const std::string stem = text::Truncated(GetVariable(index).GetUpperName(), 5);
            int number = 1;
            for (int j = 1; j < SegmentCount(w); ++j) {
                if (number < j) number = j;
                std::string name;
                do {
                    char digits[16];
                    std::snprintf(digits, sizeof digits, "%.3d", number++);
                    name = stem + digits;
                } while (!taken.insert(name).second && number < 100000);
                names[k].push_back(std::move(name));
            }
        }
    }

    // Split from the last string to the first, so that earlier indexes hold.
    for (std::size_t k = list.size(); k-- > 0;) {
        const auto [index, w] = list[k];
        const MURV_Variable original = GetVariable(index);
        RemoveVariables(index, index);
        const int segments = SegmentCount(w);
        for (int j = 0; j < segments; ++j) {
            MURV_Variable seg = original;
            const int width = j < FullSegments(w) ? kSegmentWidth : RestWidth(w);
            seg.SetType(width);
            seg.SetPrintFormat(1, width, 0);
            if (j > 0) seg.SetName(names[k][static_cast<std::size_t>(j - 1)]);
            InsertVariable(index + j, seg);
        }
    }
}

void SystemFileDataSource::SaveDS::WriteCase(const void* cells) {
    const auto* bytes = static_cast<const unsigned char*>(cells);
    if (!movers_.empty()) {
        unsigned char* out = caseBuffer_.data();
        for (const Mover& m : movers_) {
            if (m.width == 0)
                std::memcpy(out + 8 * static_cast<std::size_t>(m.destination), bytes + 8 * static_cast<std::size_t>(m.source),
                            8 * static_cast<std::size_t>(m.cells));
            else
                CutVeryLongString(bytes + 8 * static_cast<std::size_t>(m.source), m.width,
                                  out + 8 * static_cast<std::size_t>(m.destination));
        }
        bytes = out;
    }
    if (compressed_) {
        compressed_->WriteCase(bytes);
    } else {
        // Plain cases are gathered and handed to the stream many at a time,
        // so that large writes go straight to the file.
        const std::size_t toWrite = static_cast<std::size_t>(info_.nominalCaseSize) * 8u;
        staging_.insert(staging_.end(), bytes, bytes + toWrite);
        if (staging_.size() >= kStagingBytes) FlushStaging();
    }
    ++casesWritten_;
}

std::int64_t SystemFileDataSource::SaveDS::PrepareAppend(std::int64_t caseCountRecordPos, std::int64_t existingCases) {
    caseCountRecordPos_ = caseCountRecordPos;
    baseCaseCount_ = existingCases;
    // Prepares what writing cases needs from the handlers (the split of very
    // long strings); nothing is written, and the file's own information (the
    // name pairs read from it) stays as it was.
    SystemFileInfo scratch = info_;
    (void)CollectExtensionRecords(*this, scratch);
    if (compressed_) {
        compressed_->PrepareAppend(static_cast<std::uint64_t>(existingCases), &stream_);
        // New cases follow the last whole case even when the data ends
        // before the count the header gives.
        baseCaseCount_ = std::min<std::int64_t>(existingCases, static_cast<std::int64_t>(compressed_->CurrentCase()));
    }
    return baseCaseCount_;
}

void SystemFileDataSource::SaveDS::FlushStaging() {
    if (staging_.empty()) return;
    const auto toWrite = static_cast<unsigned>(staging_.size());
    const unsigned written = stream_.Write(staging_.data(), toWrite);
    staging_.clear();
    if (written == 0) throw SystemFileException(__FILE__, "toWrite", kErrCaseWrite, __LINE__);
}

void SystemFileDataSource::SaveDS::Abandon() {
    staging_.clear();
    finished_ = true;
    if (compressed_) compressed_->Abandon();
    compressed_.reset();
}

std::int64_t SystemFileDataSource::SaveDS::Finish() {
    if (finished_) return info_._nCases;
    finished_ = true;
    FlushStaging();
    if (compressed_) {
        compressed_->Flush();
        compressed_.reset();
    }
    stream_.Flush();
    dataEnd_ = stream_.Tell();
    const std::int64_t total =
        baseCaseCount_ < 0 ? -1 : baseCaseCount_ + static_cast<std::int64_t>(casesWritten_);
    if (total == info_._nCases && total <= kMaxHeaderCount) return total;
    const std::string name = stream_.Name();
    stream_.Close();  // a failure to close what was written is a failed write
    if (!stream_.Open(name.c_str(), "rb+"))
        ErrorText::Throw(kErrStreamWrite, name, port::LastErrorText());
    unsigned char count32[4];
    StoreI32(count32, (total >= 0 && total <= kMaxHeaderCount) ? static_cast<std::int32_t>(total) : -1);
    stream_.Seek(kOffCaseCount, 0);
    stream_.Write(count32, 4);
    stream_.Flush();
    if (caseCountRecordPos_ > 0) {
        unsigned char count64[8];
        StoreI64(count64, total);
        stream_.Seek(caseCountRecordPos_ + 8, 0);
        stream_.Write(count64, 8);
        stream_.Flush();
    }
    info_._nCases = total;
    return total;
}

}  // namespace murv

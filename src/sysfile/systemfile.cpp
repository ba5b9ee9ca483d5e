#include "sysfile/systemfile.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <cwctype>
#include <limits>
#include <unordered_set>
#include <vector>

#include "model/setrecords.h"
#include "model/datetime.h"
#include "port/assert.h"
#include "port/errors.h"
#include "port/file.h"
#include "sysfile/byteorder.h"
#include "sysfile/compression.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/layout.h"
#include "sysfile/saveds.h"
#include "sysfile/segments.h"
#include "text/mbtext.h"
#include "text/names.h"
#include "text/textindex.h"

namespace murv {

// ---------------------------------------------------------------------------
// Reading the dictionary

namespace {

#define MURV_THROW_FILE(condition, number) throw SystemFileException(__FILE__, condition, number, __LINE__)

// Reads records from the stream, never trusting a length the file gives
// before checking it against the bytes the file still holds.
class RecordReader {
public:
    RecordReader(MURV_FileStream& stream, std::int64_t fileSize) : stream_(stream), fileSize_(fileSize) {}

    bool swapped = false;

    std::int64_t Left() const { return std::max<std::int64_t>(0, fileSize_ - stream_.Tell()); }
    std::int64_t Position() const { return stream_.Tell(); }

    // Exactly n bytes, or SystemFileException 1205 with the condition.
    void Exact(void* dst, std::int64_t n, const char* condition) {
        if (n < 0 || n > Left()) MURV_THROW_FILE(condition, kErrFileEnds);
        if (n == 0) return;
        if (stream_.Read(dst, static_cast<unsigned>(n)) != static_cast<unsigned>(n)) MURV_THROW_FILE(condition, kErrFileEnds);
    }
    std::vector<unsigned char> Bytes(std::int64_t n, const char* condition) {
        if (n < 0 || n > Left()) MURV_THROW_FILE(condition, kErrFileEnds);
        std::vector<unsigned char> out(static_cast<std::size_t>(n));
        Exact(out.data(), n, condition);
        return out;
    }
    std::int32_t I32(const char* condition) {
        unsigned char b[4];
        Exact(b, 4, condition);
        return LoadI32(b, swapped);
    }

private:
    MURV_FileStream& stream_;
    std::int64_t fileSize_;
};

// Lower-cases a name character by character; bytes that form no character
// are dropped.
std::string LowerName(const std::string& name) {
    std::string out;
    out.reserve(name.size());
    std::size_t pos = 0;
    while (pos < name.size()) {
        const int len = text::CharacterLengthAt(name.c_str() + pos, name.size() - pos);
        if (len <= 0) {
            ++pos;  // not a character: dropped
            continue;
        }
        char ch[8] = {};
        std::memcpy(ch, name.data() + pos, static_cast<std::size_t>(len));
        text::ToLower(ch);
        out.append(ch, static_cast<std::size_t>(len));
        pos += static_cast<std::size_t>(len);
    }
    return out;
}

int MonthOf(const std::string& s) {
    static const char* const kMonths[12] = {"jan", "feb", "mar", "apr", "may", "jun",
                                            "jul", "aug", "sep", "oct", "nov", "dec"};
    for (int m = 0; m < 12; ++m) {
        bool same = s.size() >= 3;
        for (int i = 0; same && i < 3; ++i) same = std::tolower(static_cast<unsigned char>(s[i])) == kMonths[m][i];
        if (same) return m + 1;
    }
    return 13;
}

int TwoDigits(const std::string& s, std::size_t at) {
    if (s.size() < at + 2) return -1;
    const char a = s[at], b = s[at + 1];
    if (a < '0' || a > '9' || b < '0' || b > '9') return -1;
    return (a - '0') * 10 + (b - '0');
}

// ---- reading the dictionary, record by record ----

// The header record: the file information, the file label and the creation
// time. Returns the case size it states (-1 when it does not know).
std::int32_t ReadHeaderRecord(RecordReader& in, std::int64_t fileSize, SystemFileDataSource& ds, SystemFileInfo& info) {
    unsigned char header[kHeaderSize];
    if (fileSize < 4) MURV_THROW_FILE("nRead == 4", kErrFileEnds);
    in.Exact(header, 4, "nRead == 4");
    if (std::memcmp(header, kMagic, 4) != 0) MURV_THROW_FILE("std::string(magic) == \"$FL2\"", kErrBadContent);
    in.Exact(header + 4, kHeaderSize - 4, "nRead == len1");
    info.byteSwapped = HeaderIsSwapped(header);
    in.swapped = info.byteSwapped;
    const HeaderRecord h = DecodeHeader(header, info.byteSwapped);
    info.product = TrimRight(h.product);
    info.layoutCode = h.layoutCode;
    info.nominalCaseSize = h.nominalCaseSize;
    info.weightIndex = h.weightIndex;
    info.compressed = h.compression != 0;
    info._nCases = h.caseCount;
    info.bias = h.bias;
    // Every file has a label field: one of blanks is an empty label, not
    // the absence of one.
    ds.SetIdString(TrimRight(h.fileLabel));
    {
        const int day = TwoDigits(h.creationDate, 0);
        const int month = MonthOf(h.creationDate.substr(3));
        int year = TwoDigits(h.creationDate, 7);
        if (year >= 0) year += year < 70 ? 2000 : 1900;
        const int hour = TwoDigits(h.creationTime, 0);
        const int minute = TwoDigits(h.creationTime, 3);
        const int second = TwoDigits(h.creationTime, 6);
        double stamp = 0;
        if (DateTimeValue(day, month, year, hour, minute, second, &stamp) && stamp != 0) ds.SetTimeStamp(stamp);
    }

    return h.nominalCaseSize;
}

// A variable record (or the continuation record of a string's further cell).
void ReadVariableRecord(RecordReader& in, SystemFileDataSource& ds, std::uint32_t& fileCells) {
    unsigned char v[28];
    in.Exact(v, 28, "len == sizeof(varRecord)");
    const std::int32_t type = LoadI32(v, in.swapped);
    const std::int32_t hasLabel = LoadI32(v + 4, in.swapped);
    const std::int32_t code = LoadI32(v + 8, in.swapped);
    const auto print = static_cast<std::uint32_t>(LoadI32(v + 12, in.swapped));
    const auto write = static_cast<std::uint32_t>(LoadI32(v + 16, in.swapped));
    // A code outside -3..3 would ask for more values than a variable
    // holds: the record is refused rather than read.
    if (code < -3 || code > 3 || code == -1) MURV_THROW_FILE("nMissing >= -3 && nMissing <= 3", kErrBadContent);
    if (type > MURV_Variable::MAX_STRING_TYPE || type < -1) MURV_THROW_FILE("type >= -1 && type <= 32767", kErrBadContent);
    std::string varLabel;
    if (hasLabel) {
        const std::int32_t n = in.I32("len == sizeof(labelLen)");
        if (n < 0) MURV_THROW_FILE("labelLen >= 0", kErrBadContent);
        const std::int64_t padded = (static_cast<std::int64_t>(n) + 3) / 4 * 4;
        if (padded > in.Left()) MURV_THROW_FILE("len == paddedLabelLen", kErrFileEnds);
        varLabel.resize(static_cast<std::size_t>(padded));
        in.Exact(varLabel.data(), padded, "len == paddedLabelLen");
        varLabel.resize(static_cast<std::size_t>(n));
    }
    unsigned char missing[3][8] = {};
    const int nMissing = code < 0 ? -code : code;
    for (int k = 0; k < nMissing; ++k) {
        in.Exact(missing[k], 8, "len == sizeof(missingValue)");
        if (in.swapped && type == 0) StoreU64(missing[k], Swap64(LoadU64(missing[k])));
    }
    fileCells += 1;
    if (type < 0) return;  // a continuation cell of the string before it
    MURV_Variable& var = ds.AddVariable(type);
    // The blanks that pad the name go before the name is stored.
    std::size_t nameLength = kShortNameSize;
    while (nameLength > 0 && v[20 + nameLength - 1] == ' ') --nameLength;
    var.SetName(reinterpret_cast<const char*>(v + 20), nameLength);
    var.SetPrintFormat(UnpackFormat(print));
    var.SetWriteFormat(UnpackFormat(write));
    if (hasLabel) var.SetLabel(varLabel.data(), varLabel.size());
    if (code != 0) var.SetMissingValues(code, missing[0], nMissing > 1 ? missing[1] : nullptr, nMissing > 2 ? missing[2] : nullptr);
}

// A value-label record and the variable-index record after it.
void ReadValueLabelRecord(RecordReader& in, SystemFileDataSource& ds, DictionaryIndex& dictIndex) {
    const std::int32_t nLabels = in.I32("len == sizeof(nLabels)");
    // Each label takes at least 16 bytes: no more can be in the file.
    if (nLabels < 0 || static_cast<std::int64_t>(nLabels) * 16 > in.Left())
        MURV_THROW_FILE("nLabels >= 0 && nLabels*16 <= bytesLeft", kErrBadContent);
    std::vector<std::pair<ValueLabelKey, std::string>> pairs;
    pairs.reserve(static_cast<std::size_t>(nLabels));
    for (std::int32_t i = 0; i < nLabels; ++i) {
        unsigned char head[9];
        in.Exact(head, 9, "len == header.size()");
        const int n = head[8];
        const int padded = (n + 8) / 8 * 8 - 1;
        if (padded > in.Left()) MURV_THROW_FILE("len == paddedLen", kErrFileEnds);
        std::string text(static_cast<std::size_t>(padded), '\0');
        in.Exact(text.data(), padded, "len == paddedLen");
        text.resize(static_cast<std::size_t>(n));
        ValueLabelKey key;
        std::memcpy(key.data(), head, 8);
        pairs.emplace_back(key, std::move(text));
    }
    unsigned char vh[8];
    in.Exact(vh, 8, "len == 2*sizeof(int32)");
    if (LoadI32(vh, in.swapped) != kRecValueLabelVars) MURV_THROW_FILE("h[0] == 4", kErrBadContent);
    const std::int32_t nVars = LoadI32(vh + 4, in.swapped);
    if (nVars <= 0) MURV_THROW_FILE("h[1] > 0", kErrBadContent);
    const auto raw = in.Bytes(static_cast<std::int64_t>(nVars) * 4, "len == nVars*sizeof(int32)");
    std::vector<int> vars;
    vars.reserve(static_cast<std::size_t>(nVars));
    for (std::int32_t i = 0; i < nVars; ++i) {
        const int index = dictIndex.IndexAt(LoadI32(raw.data() + 4 * i, in.swapped));
        // A position on a continuation cell or outside the case names
        // no variable: the file is inconsistent.
        if (index < 0) MURV_THROW_FILE("position names a variable", kErrBadContent);
        vars.push_back(index);
    }
    const bool numeric = ds.GetVariable(vars.front()).GetType() == 0;
    for (int index : vars)
        if ((ds.GetVariable(index).GetType() == 0) != numeric)
            MURV_THROW_FILE("value labels of one kind of variable", kErrBadContent);
    MURV_ValueLabelMap labels;
    for (auto& [key, text] : pairs) {
        if (in.swapped && numeric) StoreU64(key.data(), Swap64(LoadU64(key.data())));
        labels.SetLabel(key, text);
    }
    for (int index : vars) ds.GetVariable(index).SetValueLabels(labels);
}

// The documents: lines of 80 bytes, kept as the dataset's record 0.
void ReadDocumentRecord(RecordReader& in, SystemFileDataSource& ds, SystemFileInfo& info) {
    const std::int32_t n = in.I32("len == sizeof(nLines)");
    if (n < 0) MURV_THROW_FILE("nLines >= 0", kErrBadContent);
    const auto bytes = in.Bytes(static_cast<std::int64_t>(n) * kDocumentLineSize, "len == nLines*80");
    ds.SetExtension(0, 1, n * kDocumentLineSize, bytes.empty() ? nullptr : bytes.data());
    info.MarkSeen(0);
}

// An extension record, handed to the handler of its subtype or kept whole.
void ReadExtensionRecord(RecordReader& in, SystemFileDataSource& ds, SystemFileInfo& info,
                         std::int64_t& caseCountRecordPos) {
    unsigned char eh[12];
    in.Exact(eh, 12, "len == 3*sizeof(int32)");
    const std::int32_t subtype = LoadI32(eh, in.swapped);
    const std::int32_t unitSize = LoadI32(eh + 4, in.swapped);
    const std::int32_t nUnits = LoadI32(eh + 8, in.swapped);
    if (subtype < 0) MURV_THROW_FILE("0 <= type", kErrBadContent);
    if (unitSize < 1 || nUnits < 0) MURV_THROW_FILE("unitSize > 0 && nUnits >= 0", kErrBadContent);
    const std::int64_t len = static_cast<std::int64_t>(unitSize) * nUnits;
    if (len > std::numeric_limits<std::int32_t>::max()) MURV_THROW_FILE("unitSize*nUnits fits", kErrBadContent);
    if (subtype == 16) caseCountRecordPos = in.Position();
    if (len > in.Left()) MURV_THROW_FILE("len == h[2]*h[1]", kErrFileEnds);
    // Joining very long strings changes the variables after the long-name
    // record may have met their names (no other record does).
    if (subtype == 14) info.readNames.Clear();
    // A record with no units is accepted: an unhandled subtype is then
    // removed from the dataset, and a handler judges the empty payload.
    SystemFileExtensionRecord record;
    record.SetUnitSize(unitSize);
    record.SetNUnits(nUnits);
    if (nUnits > 0) in.Exact(record.Contents(), len, "len == h[2]*h[1]");
    ReadDispatch(subtype, ds, info, record);
}

// Names that the rules refuse or that repeat another are replaced by V1,
// V2, ...; then, when the file carries no long names, every name (the new
// ones too) is lower-cased. When no name changes, names->index is left
// holding the upper-cased names by position; otherwise it is left empty.
void RepairNames(SystemFileDataSource& ds, bool longNamesRead, SystemFileInfo::ReadNames* names) {
    // The usual file: every name valid and unique. One pass checks that and
    // builds the index that lookups by name need afterwards, unless the
    // long-name record has met every name already.
    text::NameIndex* const index = &names->index;
    bool valid = true;
    bool unique;
    if (index->Size() == ds.ColumnCount() && index->Size() > 0) {
        valid = names->kept;
        unique = index->FinishAssign();
    } else {
        unique = index->Assign(ds.ColumnCount(), [&ds, &valid](std::size_t i) {
            const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            valid = valid && names::KeptOnReading(v.GetName());
            return std::string_view(v.GetUpperName());
        });
    }
    if (!unique || !valid || !longNamesRead) names->Clear();
    if (unique && valid) {
        if (!longNamesRead)
            for (std::size_t i = 0; i < ds.ColumnCount(); ++i) {
                MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
                v.SetName(LowerName(v.GetName()));
            }
        return;
    }
    {
        // The upper-cased names of the variables that keep their names or
        // have their new ones.
        const auto upperOf = [&ds](std::uint32_t k) {
            return std::string_view(ds.GetVariable(static_cast<int>(k)).GetUpperName());
        };
        text::TextIndex<decltype(upperOf)> taken(upperOf);
        taken.Reserve(ds.ColumnCount());
        std::vector<std::size_t> repair;
        for (std::size_t i = 0; i < ds.ColumnCount(); ++i) {
            if (i + taken.kPrefetchDistance < ds.ColumnCount())
                taken.Prefetch(upperOf(static_cast<std::uint32_t>(i + taken.kPrefetchDistance)));
            const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            if (names::KeptOnReading(v.GetName()) && taken.Insert(static_cast<std::uint32_t>(i)) == taken.kNone) continue;
            repair.push_back(i);
        }
        int counter = 1;
        for (std::size_t i : repair) {
            std::string name;
            do {
                char buf[16];
                std::snprintf(buf, sizeof buf, "V%d", counter++);
                name = buf;
            } while (taken.Find(text::UpperCopy(name)) != taken.kNone);
            MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            v.SetName(name);
            taken.Insert(static_cast<std::uint32_t>(i));
        }
    }
    if (!longNamesRead)
        for (std::size_t i = 0; i < ds.ColumnCount(); ++i) {
            MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            v.SetName(LowerName(v.GetName()));
        }
}

}  // namespace

SystemFileDataSource::Data::Data() = default;
// The writer refers to the stream and the file information: it goes first.
SystemFileDataSource::Data::~Data() { writer.reset(); }

SystemFileDataSource::SystemFileDataSource(std::string fileName, CreateTag) : m_data(std::make_unique<Data>()) {
    m_data->fileName = std::move(fileName);
    m_data->state = kDefining;
}

SystemFileDataSource::SystemFileDataSource(std::string fileName) : m_data(std::make_unique<Data>()) {
    m_data->fileName = std::move(fileName);
    if (!m_data->stream.Open(m_data->fileName.c_str(), "rb"))
        ErrorText::Throw(kErrFileOpen, m_data->fileName, port::LastErrorText());
    try {
        ReadFile();
    } catch (const SystemFileException& e) {
        ErrorText::Throw(e.Number(), m_data->fileName);
    }
    m_data->state = kReading;
}

SystemFileDataSource::~SystemFileDataSource() {
    if (m_data && (m_data->state == kWriting || m_data->state == kFailed)) {
        try {
            FinishWriting();
        } catch (...) {
            // Nothing can be reported from a destructor.
        }
    }
}

void SystemFileDataSource::ReadFile() {
    SystemFileInfo& info = m_data->m_options;
    MURV_FileStream& stream = m_data->stream;
    if (stream.Seek(0, 2) != 0) MURV_THROW_FILE("nRead == 4", kErrFileEnds);
    const std::int64_t fileSize = stream.Tell();
    stream.Seek(0, 0);
    RecordReader in(stream, fileSize);
    const std::int32_t headerCaseSize = ReadHeaderRecord(in, fileSize, *this, info);

    // Dictionary records up to the termination record. Value labels name
    // variables by their case position: the index follows the variables read.
    // At most one variable per cell of the header's case size, and per
    // variable record (32 bytes at least) that the file can hold.
    if (headerCaseSize > 0) ReserveVariables(static_cast<std::size_t>(std::min<std::int64_t>(headerCaseSize, fileSize / 32)));
    DictionaryIndex dictIndex(*this);
    bool indexCurrent = false;
    std::uint32_t fileCells = 0;
    for (;;) {
        const std::int32_t recType = in.I32("len == sizeof(recType)");
        if (recType == kRecVariable) {
            indexCurrent = false;
            // (The names met by a long-name record no longer cover every variable.)
            if (info.readNames.index.Size() > 0) info.readNames.Clear();
            ReadVariableRecord(in, *this, fileCells);
        } else if (recType == kRecValueLabels) {
            if (!indexCurrent) {
                dictIndex.Rebuild();
                indexCurrent = true;
            }
            ReadValueLabelRecord(in, *this, dictIndex);
        } else if (recType == kRecDocument) {
            ReadDocumentRecord(in, *this, info);
        } else if (recType == kRecExtension) {
            ReadExtensionRecord(in, *this, info, m_data->caseCountRecordPos);
        } else if (recType == kRecEnd) {
            unsigned char filler[4];
            in.Exact(filler, 4, "len == sizeof(padding)");
            break;
        } else {
            MURV_THROW_FILE("false", kErrBadContent);
        }
    }

    // One variable or continuation record per cell of the file's case; a
    // header that does not know its case size (-1) takes the dictionary's.
    std::uint32_t expectCells = static_cast<std::uint32_t>(CaseSize());
    for (const auto& e : info.segments.Entries())
        if (e.width > 0) expectCells += FileCells(e.width) - DictionaryCells(e.width);
    if (fileCells != expectCells) MURV_THROW_FILE("continuation records == string cells", kErrBadContent);
    if (headerCaseSize >= 0 && static_cast<std::uint32_t>(headerCaseSize) != fileCells)
        MURV_THROW_FILE("nominalCaseSize == dictionary cells", kErrBadContent);
    info.nominalCaseSize = static_cast<std::int32_t>(fileCells);

    dictIndex.Rebuild();
    // The header counts positions in the file's case.
    const long weightCell = info.weightIndex > 0 ? info.segments.DictCellOf(static_cast<std::uint32_t>(info.weightIndex - 1)) : -1;
    const int weight = weightCell >= 0 ? dictIndex.IndexAt(weightCell + 1) : -1;
    SetWeightVar(weight >= 0 && GetVariable(weight).GetType() == 0 ? weight : -1);

    RepairNames(*this, info.longNamesRead, &info.readNames);
    // Sets naming variables the dictionary does not hold lose those members.
    PruneSetsAfterRead(*this);

    if (info.byteSwapped) {
        info.swapFlags.assign(static_cast<std::size_t>(info.nominalCaseSize), 0);
        for (std::size_t i = 0; i < ColumnCount(); ++i)
            if (GetVariable(static_cast<int>(i)).GetType() == 0)
                info.swapFlags[info.segments.FileCellOf(
                    static_cast<std::uint32_t>(GetObsLayout().StartCell(static_cast<long>(i))))] = 1;
    }
    m_data->row0pos = stream.Tell();
}

bool SystemFileDataSource::TakeNameIndex(text::NameIndex* index) {
    text::NameIndex& names = m_data->m_options.readNames.index;
    // Any change of the dictionary since reading would have to keep the index
    // current; none does, so the index is given out only once and only while
    // it covers every variable.
    const bool current = names.Size() == ColumnCount() && ColumnCount() > 0;
    if (current) index->Swap(names);
    names.Clear();
    return current;
}

bool SystemFileDataSource::GetReleaseInfo(int release[3]) const {
    const SystemFileInfo& info = m_data->m_options;
    for (int i = 0; i < 3; ++i) release[i] = info.release[static_cast<std::size_t>(i)];
    return info.IsSubtypeSeen(3);
}

// ---------------------------------------------------------------------------
// Writing

void SystemFileDataSource::CommitDictionary() {
    Data& d = *m_data;
    if (d.state != kDefining) ErrorText::Throw(kErrBadState);
    // A new file appears under its name at once. An existing one is never
    // overwritten: its replacement is written beside it and moved over it
    // when it is complete.
    d.writeName = d.fileName;
    d.replacing = false;
    if (!d.stream.Open(d.fileName.c_str(), "wbx")) {
        if (!port::LastErrorWasExists())
            ErrorText::Throw(kErrFileOpen, d.fileName, port::LastErrorText());
        d.writeName = port::CreateFileBeside(d.fileName.c_str());
        if (d.writeName.empty())
            ErrorText::Throw(kErrFileOpen, d.fileName, port::LastErrorText());
        d.replacing = true;
        d.created = true;
        if (!d.stream.Open(d.writeName.c_str(), "wb")) {
            const std::string reason = port::LastErrorText();
            DiscardWriting();
            ErrorText::Throw(kErrFileOpen, d.fileName, reason);
        }
    }
    d.created = true;
    try {
        d.writer = std::make_unique<SaveDS>(*this, d.m_options, d.stream);
        d.caseCountRecordPos = d.writer->WriteDictionary();
        // The writer's case (very long strings split into segments) is the file's.
        d.m_options.nominalCaseSize = static_cast<std::int32_t>(d.writer->CaseSize());
        d.row0pos = d.stream.Tell();
        if (d.m_options.compressed) d.writer->CreateCompressed(d.index, d.row0pos);
    } catch (...) {
        // A dictionary that cannot be written leaves no half-written file.
        DiscardWriting();
        d.state = kDefining;
        throw;
    }
    d.state = kWriting;
}

void SystemFileDataSource::StartAppend() {
    Data& d = *m_data;
    d.writeName = d.fileName;
    d.replacing = false;
    d.created = false;
    // From here on a failure puts the file back as it was.
    d.appending = true;
    d.appendStart = -1;
    d.writer = std::make_unique<SaveDS>(*this, d.m_options, d.stream);
    std::int64_t existing = d.m_options._nCases;
    const std::int64_t caseBytes = static_cast<std::int64_t>(d.m_options.nominalCaseSize) * 8;
    d.stream.Flush();
    d.stream.Seek(0, 2);
    const std::int64_t fileSize = d.stream.Tell();
    // The case counts as they stand, to be put back if the append fails.
    auto keep = [&](std::int64_t at, std::size_t n) {
        std::vector<unsigned char> bytes(n);
        d.stream.Seek(at, 0);
        if (d.stream.Read(bytes.data(), static_cast<unsigned>(n)) != n) bytes.clear();
        return bytes;
    };
    d.headerCount = keep(kOffCaseCount, 4);
    d.recordCount = d.caseCountRecordPos > 0 ? keep(d.caseCountRecordPos + 8, 8) : std::vector<unsigned char>();
    if (d.m_options.compressed) {
        d.writer->CreateCompressed(d.index, d.row0pos);
        if (existing < 0) {
            // Count the cases by walking to the end of the data.
            CompressedSystemFile counter(d.m_options.nominalCaseSize, &d.stream, &d.index, d.row0pos);
            counter.SetTarget(static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
            counter.PositionAtTarget();
            existing = static_cast<std::int64_t>(counter.CurrentCase());
        }
    } else {
        // New cases go right behind the last whole case: stray bytes after
        // it are overwritten, and a count beyond the data is not believed.
        const std::int64_t whole = caseBytes > 0 ? std::max<std::int64_t>(0, fileSize - d.row0pos) / caseBytes : 0;
        if (existing < 0 || existing > whole) existing = whole;
        const std::string name = d.fileName;
        if (!d.stream.Open(name.c_str(), "r+b"))
            ErrorText::Throw(kErrFileOpen, name, port::LastErrorText());
        d.stream.Seek(d.row0pos + existing * caseBytes, 0);
    }
    // The header's count stays what the file says until the writer finishes
    // and corrects it.
    d.writer->PrepareAppend(d.caseCountRecordPos, existing);
    // The bytes that the first new case overwrites: a compressed file's last
    // block is continued where it ends.
    d.appendStart = d.stream.Tell();
    constexpr std::int64_t kKeepAtMost = 64 * 1024;
    d.overwritten = keep(d.appendStart, static_cast<std::size_t>(
                                            std::clamp<std::int64_t>(fileSize - d.appendStart, 0, kKeepAtMost)));
    d.stream.Seek(d.appendStart, 0);
    d.state = kWriting;
}

void SystemFileDataSource::WriteCase(const void* cells) {
    Data& d = *m_data;
    if (d.iterators > 0) ErrorText::Throw(kErrBadState);
    // After a failed write the file cannot be trusted: nothing more goes in.
    if (d.state == kFailed) ErrorText::Throw(kErrCaseWrite, d.fileName);
    try {
        if (d.state == kReading) StartAppend();
        if (d.state == kDefining) CommitDictionary();
        d.writer->WriteCase(cells);
    } catch (const SystemFileException& e) {
        if (d.state == kWriting || d.appending) d.state = kFailed;
        ErrorText::Throw(e.Number(), d.fileName);
    } catch (...) {
        // A failed commit has removed its file already (state 0).
        if (d.state == kWriting || d.appending) d.state = kFailed;
        throw;
    }
}

void SystemFileDataSource::FinishWriting() {
    Data& d = *m_data;
    if (d.state == kFailed) {
        DiscardWriting();
        d.state = kReading;
        ErrorText::Throw(kErrStreamWrite, d.fileName, "an earlier write failed");
    }
    if (d.state != kWriting) return;
    try {
        d.writer->Finish();
        CompleteFile();
    } catch (const SystemFileException& e) {
        DiscardWriting();
        d.state = kReading;
        ErrorText::Throw(e.Number(), d.fileName);
    } catch (...) {
        DiscardWriting();
        d.state = kReading;
        throw;
    }
    d.writer.reset();
    d.appending = false;
    d.overwritten.clear();
    d.state = kReading;
}

void SystemFileDataSource::CompleteFile() {
    Data& d = *m_data;
    if (d.appending && d.writer->DataEnd() >= 0) d.stream.Truncate(d.writer->DataEnd());
    // A replacement must be whole on disk before it takes the old file's place.
    if (d.replacing) d.stream.Sync();
    d.stream.Close();
    if (d.replacing) {
        if (!port::ReplaceFile(d.writeName.c_str(), d.fileName.c_str()))
            ErrorText::Throw(kErrStreamWrite, d.fileName, port::LastErrorText());
        d.replacing = false;
    }
    d.created = false;
}

void SystemFileDataSource::DiscardWriting() noexcept {
    Data& d = *m_data;
    if (d.writer) d.writer->Abandon();
    d.writer.reset();
    d.stream.Discard();
    d.replacing = false;
    if (d.created) {
        // Only what this dataset created is removed: a new file, or the
        // replacement that never took the old file's place.
        port::RemoveFile(d.writeName.c_str());
        d.created = false;
        return;
    }
    if (!d.appending) return;
    // The old cases stay as they were: the bytes behind them and the case
    // counts are put back. Best effort: a failure here cannot be reported
    // beyond the failure already being reported.
    try {
        if (d.stream.Open(d.fileName.c_str(), "r+b")) {
            if (d.appendStart >= 0) {
                d.stream.Truncate(d.appendStart);
                d.stream.Seek(d.appendStart, 0);
                if (!d.overwritten.empty()) d.stream.Write(d.overwritten.data(), static_cast<unsigned>(d.overwritten.size()));
            }
            if (d.headerCount.size() == 4) {
                d.stream.Seek(kOffCaseCount, 0);
                d.stream.Write(d.headerCount.data(), 4);
            }
            if (d.recordCount.size() == 8) {
                d.stream.Seek(d.caseCountRecordPos + 8, 0);
                d.stream.Write(d.recordCount.data(), 8);
            }
            d.stream.Close();
        }
    } catch (...) {
        d.stream.Discard();
    }
    d.appending = false;
    d.overwritten.clear();
}

void SystemFileDataSource::EndWriting() {
    Data& d = *m_data;
    if (d.state == kWriting || d.state == kFailed) FinishWriting();
    if (d.state != kReading || d.stream.IsOpen()) return;
    if (!d.stream.Open(d.fileName.c_str(), "rb"))
        ErrorText::Throw(kErrFileOpen, d.fileName, port::LastErrorText());
}

// ---------------------------------------------------------------------------
// Reading cases

SystemFileDataSource::Iterator::Iterator(SystemFileDataSource& ds, void* caseBuffer)
    : data_(*ds.m_data), layout_(ds.GetObsLayout()), stream_(data_.stream) {
    if (caseBuffer) {
        buffer_ = static_cast<char*>(caseBuffer);
    } else {
        owned_ = std::make_unique<char[]>(std::size_t{layout_.Total()} * 8);
        buffer_ = owned_.get();
    }
    if (data_.m_options.compressed)
        compressed_ = std::make_unique<CompressedSystemFile>(data_.m_options.nominalCaseSize, &stream_, &data_.index,
                                                             data_.row0pos);
    // Very long strings: the file's case is read whole, then assembled.
    if (!data_.m_options.segments.Empty())
        fileCase_.resize(8 * static_cast<std::size_t>(data_.m_options.nominalCaseSize));
    ++data_.iterators;
}

SystemFileDataSource::Iterator::~Iterator() { --data_.iterators; }

bool SystemFileDataSource::Iterator::Seek(std::int64_t caseIndex) {
    if (caseIndex < 0) return false;
    pos_ = static_cast<std::uint64_t>(caseIndex);
    aheadNext_ = aheadEnd_ = nullptr;
    return true;
}

int SystemFileDataSource::Iterator::ReadInto(unsigned char* const caseCells) {
    SystemFileInfo& info = data_.m_options;
    const unsigned cells = static_cast<unsigned>(info.nominalCaseSize);
    const std::int64_t caseLen = static_cast<std::int64_t>(cells) * 8;
    if (static_cast<std::int64_t>(pos_) != streamCase_) {
        if (compressed_) compressed_->SetTarget(pos_);
        streamCase_ = static_cast<std::int64_t>(pos_);
    }
    unsigned char* dst = fileCase_.empty() ? caseCells : fileCase_.data();
    const unsigned char* swap = info.swapFlags.empty() ? nullptr : info.swapFlags.data();
    std::int64_t readLen;
    if (compressed_) {
        readLen = static_cast<std::int64_t>(compressed_->ReadCase(dst, swap)) * 8;
        // Positioning may have stopped early at the end of the data.
        streamCase_ = static_cast<std::int64_t>(compressed_->CurrentCase()) - (readLen ? 1 : 0);
    } else {
        readLen = ReadPlain(dst, caseLen);
        // The cases behind this one in the read-ahead block go out directly
        // while nothing else is to be done to them.
        aheadNext_ = aheadEnd_ = nullptr;
        if (readLen == caseLen && !swap && fileCase_.empty()) {
            const std::size_t len = static_cast<std::size_t>(caseLen);
            aheadCaseLen_ = len;
            aheadNext_ = ahead_.data() + (pos_ - aheadCase_ + 1) * len;
            aheadEnd_ = ahead_.data() + aheadLen_ / len * len;
        }
        if (readLen != 0 && readLen != caseLen)
            throw SystemFileException(__FILE__, "readLen== 0 || readLen == caseLen", kErrFileEnds, __LINE__);
        if (readLen == 0 && info._nCases > static_cast<std::int64_t>(pos_))
            throw SystemFileException(__FILE__, "readLen || m_data.m_options._nCases <= m_pos", kErrFileEnds,
                                      __LINE__);
        if (readLen && swap)
            for (unsigned c = 0; c < cells; ++c)
                if (swap[c]) StoreU64(dst + 8 * c, Swap64(LoadU64(dst + 8 * c)));
    }
    if (readLen != 0) {
        if (!fileCase_.empty()) info.segments.Assemble(fileCase_.data(), caseCells);
        ++streamCase_;
        ++pos_;
        return 1;
    }
    if (info._nCases == -1) info._nCases = streamCase_;
    return 0;
}

std::int64_t SystemFileDataSource::Iterator::ReadPlain(unsigned char* dst, std::int64_t caseLen) {
    if (caseLen <= 0) return 0;
    const auto len = static_cast<std::size_t>(caseLen);
    const std::uint64_t whole = aheadLen_ / len;
    if (aheadLen_ > 0 && pos_ >= aheadCase_ && pos_ - aheadCase_ < whole) {
        std::memcpy(dst, ahead_.data() + (pos_ - aheadCase_) * len, len);
        return caseLen;
    }
    const bool sequential = aheadLen_ > 0 && pos_ == aheadCase_ + whole;
    std::size_t want = len;
    if (sequential) want = std::max<std::size_t>(1, kReadAhead / len) * len;
    ahead_.Reserve(want);
    stream_.Seek(data_.row0pos + static_cast<std::int64_t>(pos_) * caseLen, 0);
    const unsigned n = stream_.Read(ahead_.data(), static_cast<unsigned>(want));
    aheadCase_ = pos_;
    aheadLen_ = n;
    if (n >= len) {
        std::memcpy(dst, ahead_.data(), len);
        return caseLen;
    }
    return n;
}

std::unique_ptr<SystemFileDataSource::Iterator> SystemFileDataSource::NewInputCaseIterator(void* caseBuffer) {
    if (m_data->state != kReading || !m_data->stream.IsOpen()) EndWriting();
    if (m_data->state != kReading) return nullptr;  // nothing on disk yet
    return std::make_unique<Iterator>(*this, caseBuffer);
}

}  // namespace murv

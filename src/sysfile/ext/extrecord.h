// Extension records (record type 7): a subtype, a unit size, a unit count and
// unit size x count bytes of payload. One stateless handler object per known
// subtype interprets and produces its records; records of other subtypes are
// kept whole in the dataset and written back unchanged.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace murv {

class MURV_DataSource;
struct SystemFileInfo;
class MURV_FileStream;

class SystemFileExtensionRecord {
public:
    std::int32_t UnitSize() const { return m_unitSize; }
    std::int32_t NUnits() const { return m_nUnits; }
    // Sizes can be set only before the payload exists.
    void SetUnitSize(std::int32_t size);
    void SetNUnits(std::int32_t n);
    // The payload, made on first use; requires both sizes non-zero.
    unsigned char* Contents();
    // The payload as it stands (null until made).
    const unsigned char* Contents() const { return m_pContents.empty() ? nullptr : m_pContents.data(); }
    std::size_t Size() const { return m_pContents.size(); }
    void SetContents(const void* bytes);
    bool Empty() const { return m_nUnits == 0; }

private:
    std::vector<unsigned char> m_pContents;
    std::int32_t m_nUnits = 0;
    std::int32_t m_unitSize = 0;
};

class SystemFileExtensionHandler {
public:
    // Fills record (empty on entry) from the dataset being written; leaving
    // it empty writes nothing.
    virtual void Write(MURV_DataSource& dataset, SystemFileInfo& info, SystemFileExtensionRecord& record) const = 0;
    // Applies a record just read (payload in the file's byte order) to the
    // dataset being built. Throws SystemFileException 1204 on a bad payload.
    virtual void Read(MURV_DataSource& dataset, SystemFileInfo& info, const SystemFileExtensionRecord& record) const = 0;

protected:
    ~SystemFileExtensionHandler() = default;
};

// The process-wide table of handlers by subtype, filled on first use. A later
// registration for a subtype replaces the earlier one.
void RegisterExtensionHandler(int subtype, const SystemFileExtensionHandler* handler);
const SystemFileExtensionHandler* ExtensionHandler(int subtype);

// Each handler's file registers its handlers through one of these. The table
// calls every one when it is first used, rather than each file registering
// itself at load: a program linked with the static library would otherwise
// leave out the handler files that nothing else refers to.
void RegisterDisplayParametersHandler();
void RegisterAttributeHandlers();
void RegisterLongStringHandler();
void RegisterLongNameHandler();
void RegisterDateVariableHandler();
void RegisterCaseCountHandler();
void RegisterSourceParameterHandlers();

// Write dispatch: the subtype's handler fills record, or an opaque block of
// that subtype kept in the dataset is copied into it.
void WriteDispatch(int subtype, MURV_DataSource& dataset, SystemFileInfo& info, SystemFileExtensionRecord& record);
// Read dispatch: the subtype's handler applies record, or it is stored in
// the dataset's extension table; then the subtype is marked seen.
void ReadDispatch(int subtype, MURV_DataSource& dataset, SystemFileInfo& info, const SystemFileExtensionRecord& record);

// The records of one dictionary by subtype.
using ExtensionRecords = std::map<int, SystemFileExtensionRecord>;

// Collects every extension record of the dataset, asking every subtype that
// has a handler or a stored block, from the highest down to 1 (handlers may
// change the dataset on the way).
ExtensionRecords CollectExtensionRecords(MURV_DataSource& dataset, SystemFileInfo& info);

// Writes the collected records in ascending subtype order, skipping empty
// ones. Returns the stream position of the subtype-16 payload, or 0.
std::int64_t WriteExtensionRecords(const ExtensionRecords& records, MURV_FileStream& stream);

}  // namespace murv

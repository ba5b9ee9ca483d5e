#include "sysfile/ext/extrecord.h"

#include <cstring>

#include "model/datasource.h"
#include "port/assert.h"
#include "sysfile/fileinfo.h"
#include "sysfile/byteorder.h"
#include "sysfile/filestream.h"
#include "sysfile/layout.h"

namespace murv {

void SystemFileExtensionRecord::SetUnitSize(std::int32_t size) {
    MURV_ASSERT(m_pContents.empty());
    m_unitSize = size;
}

void SystemFileExtensionRecord::SetNUnits(std::int32_t n) {
    MURV_ASSERT(m_pContents.empty());
    m_nUnits = n;
}

unsigned char* SystemFileExtensionRecord::Contents() {
    MURV_ASSERT(m_nUnits > 0 && m_unitSize > 0);
    if (m_pContents.empty())
        m_pContents.assign(static_cast<std::size_t>(m_nUnits) * static_cast<std::size_t>(m_unitSize), 0);
    return m_pContents.data();
}

void SystemFileExtensionRecord::SetContents(const void* bytes) {
    unsigned char* dst = Contents();
    std::memcpy(dst, bytes, m_pContents.size());
}

namespace {

std::vector<const SystemFileExtensionHandler*>& HandlerTable() {
    static std::vector<const SystemFileExtensionHandler*> table;
    return table;
}

}  // namespace

void RegisterExtensionHandler(int subtype, const SystemFileExtensionHandler* handler) {
    MURV_ASSERT(subtype >= 0);
    auto& table = HandlerTable();
    if (table.size() <= static_cast<std::size_t>(subtype)) table.resize(static_cast<std::size_t>(subtype) + 1, nullptr);
    table[static_cast<std::size_t>(subtype)] = handler;
}

const SystemFileExtensionHandler* ExtensionHandler(int subtype) {
    const auto& table = HandlerTable();
    if (subtype < 0 || static_cast<std::size_t>(subtype) >= table.size()) return nullptr;
    return table[static_cast<std::size_t>(subtype)];
}

std::int64_t WriteExtensionRecords(const std::vector<SystemFileExtensionRecord>& records, MURV_FileStream& stream) {
    std::int64_t caseCountPosition = 0;
    for (std::size_t subtype = 1; subtype < records.size(); ++subtype) {
        const SystemFileExtensionRecord& r = records[subtype];
        if (r.NUnits() <= 0 || r.UnitSize() <= 0 || !r.Contents()) continue;
        unsigned char head[16];
        StoreI32(head, kRecExtension);
        StoreI32(head + 4, static_cast<std::int32_t>(subtype));
        StoreI32(head + 8, r.UnitSize());
        StoreI32(head + 12, r.NUnits());
        stream.Write(head, sizeof head);
        if (subtype == 16) caseCountPosition = stream.Tell();
        stream.Write(r.Contents(), static_cast<unsigned>(r.Size()));
    }
    return caseCountPosition;
}

void WriteDispatch(int subtype, MURV_DataSource& dataset, SystemFileInfo& info, SystemFileExtensionRecord& record) {
    if (const SystemFileExtensionHandler* handler = ExtensionHandler(subtype)) {
        handler->Write(dataset, info, record);
        return;
    }
    if (!dataset.HasExtension(subtype)) return;
    const MURV_Extension ext = dataset.GetExtension(subtype);
    const std::size_t n = ext.NElements();
    if (n == 0 || n > 0x7FFFFFFF) return;
    record.SetUnitSize(ext.UnitSize());
    record.SetNUnits(static_cast<std::int32_t>(n));
    record.SetContents(ext.Contents().data());
}

void ReadDispatch(int subtype, MURV_DataSource& dataset, SystemFileInfo& info, const SystemFileExtensionRecord& record) {
    if (const SystemFileExtensionHandler* handler = ExtensionHandler(subtype)) {
        handler->Read(dataset, info, record);
    } else {
        dataset.SetExtension(subtype, record.UnitSize(), record.NUnits(), record.Contents());
    }
    info.MarkSeen(subtype);
}

std::vector<SystemFileExtensionRecord> CollectExtensionRecords(MURV_DataSource& dataset, SystemFileInfo& info) {
    const int n = dataset.HighestExtensionType();
    std::vector<SystemFileExtensionRecord> records(static_cast<std::size_t>(n) + 1);
    // Highest first: the very long string handler splits variables and gives
    // short names before the handlers that rely on that work run.
    for (int subtype = n; subtype >= 1; --subtype) WriteDispatch(subtype, dataset, info, records[static_cast<std::size_t>(subtype)]);
    return records;
}

}  // namespace murv

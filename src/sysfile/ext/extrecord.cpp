#include "sysfile/ext/extrecord.h"

#include <cstring>
#include <set>

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

std::vector<const SystemFileExtensionHandler*>& HandlerSlots() {
    static std::vector<const SystemFileExtensionHandler*> table;
    return table;
}

const std::vector<const SystemFileExtensionHandler*>& HandlerTable() {
    // Filled once, by the first thread to need it (a local static's
    // initialisation is serialised); read-only afterwards.
    static const bool filled = [] {
        RegisterSourceParameterHandlers();
        RegisterDateVariableHandler();
        RegisterDisplayParametersHandler();
        RegisterLongNameHandler();
        RegisterLongStringHandler();
        RegisterCaseCountHandler();
        RegisterAttributeHandlers();
        return true;
    }();
    (void)filled;
    return HandlerSlots();
}

}  // namespace

void RegisterExtensionHandler(int subtype, const SystemFileExtensionHandler* handler) {
    MURV_ASSERT(subtype >= 0);
    auto& table = HandlerSlots();
    if (table.size() <= static_cast<std::size_t>(subtype)) table.resize(static_cast<std::size_t>(subtype) + 1, nullptr);
    table[static_cast<std::size_t>(subtype)] = handler;
}

const SystemFileExtensionHandler* ExtensionHandler(int subtype) {
    const auto& table = HandlerTable();
    if (subtype < 0 || static_cast<std::size_t>(subtype) >= table.size()) return nullptr;
    return table[static_cast<std::size_t>(subtype)];
}

std::int64_t WriteExtensionRecords(const ExtensionRecords& records, MURV_FileStream& stream) {
    std::int64_t caseCountPosition = 0;
    for (const auto& [subtype, r] : records) {
        if (subtype < 1) continue;
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

ExtensionRecords CollectExtensionRecords(MURV_DataSource& dataset, SystemFileInfo& info) {
    // Only subtypes with a handler or a stored block can give a record; the
    // stored ones come from files and may be far apart, so they are not
    // counted down one by one.
    std::set<int> subtypes;
    for (int t : dataset.ExtensionTypes())
        if (t >= 1) subtypes.insert(t);
    const int handled = static_cast<int>(HandlerTable().size());
    for (int t = 1; t < handled; ++t)
        if (ExtensionHandler(t)) subtypes.insert(t);
    ExtensionRecords records;
    // Highest first: the very long string handler splits variables and gives
    // short names before the handlers that rely on that work run.
    for (auto it = subtypes.rbegin(); it != subtypes.rend(); ++it) WriteDispatch(*it, dataset, info, records[*it]);
    return records;
}

}  // namespace murv

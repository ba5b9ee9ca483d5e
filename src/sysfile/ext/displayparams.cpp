// Subtype 11: measurement level, column width and alignment of every
// variable of the file's dictionary, three 32-bit units per variable.
#include <vector>

#include "model/datasource.h"
#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"

namespace murv {

class SFExtensionLWA final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource& ds, SystemFileInfo&, SystemFileExtensionRecord& rec) const override {
        const std::size_t n = ds.ColumnCount();
        if (n == 0) return;
        std::vector<unsigned char> bytes(n * 12);
        for (std::size_t i = 0; i < n; ++i) {
            const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            StoreI32(bytes.data() + 12 * i, v.GetMeasureLevel());
            StoreI32(bytes.data() + 12 * i + 4, v.GetColumnWidth());
            StoreI32(bytes.data() + 12 * i + 8, v.GetAlignment());
        }
        rec.SetUnitSize(4);
        rec.SetNUnits(static_cast<std::int32_t>(3 * n));
        rec.SetContents(bytes.data());
    }

    void Read(MURV_DataSource& ds, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        MURV_FILE_CHECK(rec.UnitSize() == sizeof(std::int32_t), kErrBadContent);
        MURV_FILE_CHECK(static_cast<std::size_t>(rec.NUnits()) == ds.ColumnCount() * 3, kErrBadContent);
        const unsigned char* p = rec.Contents();
        const std::size_t n = ds.ColumnCount();
        for (std::size_t i = 0; i < n; ++i) {
            if (i + MURV_Variable::kPrefetchAhead < n)
                ds.GetVariable(static_cast<int>(i + MURV_Variable::kPrefetchAhead)).Prefetch();
            MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            const std::int32_t level = LoadI32(p + 12 * i, info.byteSwapped);
            const std::int32_t width = LoadI32(p + 12 * i + 4, info.byteSwapped);
            const std::int32_t align = LoadI32(p + 12 * i + 8, info.byteSwapped);
            // Values out of range are narrowed, not refused.
            v.SetMeasureLevel(level & 3);
            if (width > 0) v.SetColumnWidth(static_cast<std::uint16_t>(width));
            v.SetAlignment(align & 3);
        }
    }
};

void RegisterDisplayParametersHandler() {
    static const SFExtensionLWA handler;
    RegisterExtensionHandler(11, &handler);
}

}  // namespace murv

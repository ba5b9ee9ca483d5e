// Subtype 16: the case count as a signed 64-bit integer, after a marker unit
// whose value (1) shows the writer's byte order. The writer reserves the
// record and rewrites the count when the file is finished.
#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"

namespace murv {

class SFExtensionNCases final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource&, SystemFileInfo& info, SystemFileExtensionRecord& rec) const override {
        unsigned char bytes[16];
        StoreI64(bytes, 1);
        StoreI64(bytes + 8, info._nCases);
        rec.SetUnitSize(8);
        rec.SetNUnits(2);
        rec.SetContents(bytes);
    }

    void Read(MURV_DataSource&, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        MURV_FILE_CHECK(rec.UnitSize() == sizeof(std::int64_t), kErrBadContent);
        MURV_FILE_CHECK(rec.NUnits() == 1 || rec.NUnits() == 2, kErrBadContent);
        const unsigned char* p = rec.Contents();
        std::int64_t n;
        if (rec.NUnits() == 1) {
            n = LoadI64(p, info.byteSwapped);
        } else {
            // The marker alone decides the order of the count.
            const std::int64_t marker = LoadI64(p, false);
            n = LoadI64(p + 8, marker != 1);
        }
        if (n >= info._nCases) info._nCases = n;
    }
};

void RegisterCaseCountHandler() {
    static const SFExtensionNCases handler;
    RegisterExtensionHandler(16, &handler);
}

}  // namespace murv

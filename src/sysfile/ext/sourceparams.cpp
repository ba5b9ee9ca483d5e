// Subtypes 3 and 4: the software and machine that wrote the file, and the
// three special floating-point values it used. Written into every file and
// checked strictly on reading.
#include "port/errors.h"
#include "sysfile/byteorder.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"

namespace murv {

namespace {

// 1 plus the host byte-order answer (1 for little-endian): 2 on this host.
constexpr std::int32_t kByteOrderCode = kHostIsLittleEndian ? 2 : 1;

}  // namespace

class SFExtensionSourceParametersInt final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource&, SystemFileInfo& info, SystemFileExtensionRecord& rec) const override {
        const std::int32_t units[8] = {info.release[0],    info.release[1],          info.release[2],
                                       info.machineCode,   info.floatingPointCode,   info.compressionCode,
                                       kByteOrderCode,     info.characterCode};
        unsigned char bytes[32];
        for (int i = 0; i < 8; ++i) StoreI32(bytes + 4 * i, units[i]);
        rec.SetUnitSize(4);
        rec.SetNUnits(8);
        rec.SetContents(bytes);
    }

    void Read(MURV_DataSource&, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        MURV_FILE_CHECK(rec.UnitSize() == 4, kErrBadContent);
        MURV_FILE_CHECK(rec.NUnits() == 8, kErrBadContent);
        const unsigned char* p = rec.Contents();
        std::int32_t u[8];
        for (int i = 0; i < 8; ++i) u[i] = LoadI32(p + 4 * i, info.byteSwapped);
        info.release = {u[0], u[1], u[2]};
        info.machineCode = u[3];
        info.floatingPointCode = u[4];
        info.compressionCode = u[5];
        info.characterCode = u[7];
    }
};

class SFExtensionSourceParametersDouble final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource&, SystemFileInfo&, SystemFileExtensionRecord& rec) const override {
        unsigned char bytes[24];
        StoreF64(bytes, SysmisValue());
        StoreF64(bytes + 8, HighestValue());
        StoreF64(bytes + 16, LowestValue());
        rec.SetUnitSize(8);
        rec.SetNUnits(3);
        rec.SetContents(bytes);
    }

    void Read(MURV_DataSource&, SystemFileInfo& info, const SystemFileExtensionRecord& rec) const override {
        MURV_FILE_CHECK(rec.UnitSize() == sizeof(double), kErrBadContent);
        MURV_FILE_CHECK(rec.NUnits() == 3, kErrBadContent);
        const unsigned char* p = rec.Contents();
        info.sysmis = LoadF64(p, info.byteSwapped);
        info.highest = LoadF64(p + 8, info.byteSwapped);
        info.lowest = LoadF64(p + 16, info.byteSwapped);
    }
};

void RegisterSourceParameterHandlers() {
    static const SFExtensionSourceParametersInt handler3;
    RegisterExtensionHandler(3, &handler3);
    static const SFExtensionSourceParametersDouble handler4;
    RegisterExtensionHandler(4, &handler4);
}

}  // namespace murv

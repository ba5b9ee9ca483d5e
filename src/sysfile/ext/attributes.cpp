// Subtypes 17 and 18: custom attributes of the file and of the variables, in
// the attributes' text form. The variable record prefixes each variable's
// text with its full name and a ":", and separates variables with "/".
#include <cstring>
#include <string>

#include "model/datasource.h"
#include "port/errors.h"
#include "sysfile/ext/extrecord.h"
#include "sysfile/fileinfo.h"

namespace murv {

namespace {

void SetText(SystemFileExtensionRecord& rec, const std::string& text) {
    if (text.empty() || text.size() > 0x7FFFFFFF) return;
    rec.SetUnitSize(1);
    rec.SetNUnits(static_cast<std::int32_t>(text.size()));
    rec.SetContents(text.data());
}

std::string_view TextOf(const SystemFileExtensionRecord& rec) {
    MURV_FILE_CHECK(rec.UnitSize() == sizeof(char), kErrBadContent);
    MURV_FILE_CHECK(rec.NUnits() >= 0, kErrBadContent);
    const unsigned char* p = rec.Contents();
    if (!p) return {};
    return {reinterpret_cast<const char*>(p), static_cast<std::size_t>(rec.NUnits())};
}

}  // namespace

class SFExtensionDatasetAttributes final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource& ds, SystemFileInfo&, SystemFileExtensionRecord& rec) const override {
        if (ds.GetFileAttributes().Size() > 0) SetText(rec, ds.GetFileAttributes().Encode());
    }

    void Read(MURV_DataSource& ds, SystemFileInfo&, const SystemFileExtensionRecord& rec) const override {
        Attributes decoded;
        // A malformed text leaves the attributes as they were; the file still opens.
        if (decoded.Decode(TextOf(rec))) ds.SetFileAttributes(decoded);
    }
};

class SFExtensionVariableAttributes final : public SystemFileExtensionHandler {
public:
    void Write(MURV_DataSource& ds, SystemFileInfo&, SystemFileExtensionRecord& rec) const override {
        std::string text;
        for (std::size_t i = 0; i < ds.ColumnCount(); ++i) {
            const MURV_Variable& v = ds.GetVariable(static_cast<int>(i));
            const Attributes& attrs = v.GetAttributes();
            if (attrs.Size() == 0) continue;
            const std::size_t before = text.size();
            if (before > 0) text += '/';
            text += v.GetName();
            text += ':';
            text += attrs.Encode();
            // Attributes without values encode to nothing: leave no trace.
            if (text.back() == ':') text.resize(before);
        }
        SetText(rec, text);
    }

    void Read(MURV_DataSource& ds, SystemFileInfo&, const SystemFileExtensionRecord& rec) const override {
        const std::string_view text = TextOf(rec);
        std::size_t p = 0;
        while (p < text.size()) {
            const std::size_t colon = text.find(':', p);
            if (colon == std::string_view::npos || colon == p) break;  // the rest is ignored
            const int index = ds.GetVarIndex(text.substr(p, colon - p));
            Attributes decoded;
            std::size_t consumed = 0;
            if (!decoded.Decode(text.substr(colon + 1), &consumed)) break;
            if (index >= 0) ds.GetVariable(index).SetAttributes(decoded);
            p = colon + 1 + consumed;
            if (p < text.size() && text[p] == '/') ++p;
        }
    }
};

void RegisterAttributeHandlers() {
    static const SFExtensionDatasetAttributes handler17;
    RegisterExtensionHandler(17, &handler17);
    static const SFExtensionVariableAttributes handler18;
    RegisterExtensionHandler(18, &handler18);
}

}  // namespace murv

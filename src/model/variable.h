// Variables: one column of a dataset.
//
// A variable is a handle (`MURV_Variable`) over a body (`MURV_VariableImpl`)
// shared copy-on-write: copies of a handle refer to one body, and a handle
// about to change a shared body first takes a private copy, ID included. The
// dictionary holds variables by value as such handles.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "meta/attributes.h"
#include "model/valuelabelmap.h"

namespace murv {

// Process-wide identity of a variable: the low 4 bits are a tag, the high 28
// bits a serial number. All bits set is the null ID (no variable).
class MURV_VariableID {
public:
    static constexpr std::uint32_t kNullValue = 0xFFFFFFFFu;

    // The null ID.
    constexpr MURV_VariableID() = default;
    constexpr explicit MURV_VariableID(std::uint32_t value) : fValue(value) {}

    // The next ID of the process-wide generator: tag 0 and serials counting up
    // from 0, so the IDs run 0, 16, 32, ... The serial wraps after 2^28 IDs.
    static MURV_VariableID Next();

    constexpr std::uint32_t Value() const { return fValue; }
    constexpr unsigned Tag() const { return fValue & 0xFu; }
    constexpr std::uint32_t Serial() const { return fValue >> 4; }
    constexpr bool IsNull() const { return fValue == kNullValue; }

    constexpr bool operator==(const MURV_VariableID&) const = default;

private:
    std::uint32_t fValue = kNullValue;
};

// A print or write format: type code, width and decimals.
struct MURV_Format {
    std::uint16_t width = 0;
    std::uint8_t type = 0;
    std::uint8_t decimals = 0;

    constexpr bool operator==(const MURV_Format&) const = default;
};

// The packed 32-bit format word, as the variable record of the file has it.
// For type code 1 (the string format): byte 0 the width's high byte, byte 1
// its low byte, byte 2 the code, byte 3 zero. For every other code: byte 0
// the decimals, byte 1 the width's low byte, byte 2 the code, byte 3 the
// width's high byte, which unpacking does not read.
std::uint32_t PackFormat(const MURV_Format& format);
MURV_Format UnpackFormat(std::uint32_t word);
// The format a variable of the given type gets by default: code 5 width 8
// with 2 decimals for a numeric, code 1 of the string's width for a string.
MURV_Format DefaultFormat(int type);

// Whether a print (isPrint) or write format may be given to a variable of
// the given type (0 numeric, else the string width). This is the check the
// interface makes before it sets a format.
bool FormatIsAcceptable(bool isPrint, int variableType, int typeCode, int width, int decimals);

// The enumerations of the variable model.
class MURV_Variable_Enumerations {
public:
    enum : int { NUMERIC_TYPE = 0, MAX_STRING_TYPE = 32767 };

    // Missing-value codes: how many discrete values, or a range (-2) and a
    // range with one discrete value (-3).
    enum MissingCode : int {
        eNoMissing = 0,
        eOneMissing = 1,
        eTwoMissing = 2,
        eThreeMissing = 3,
        eMissingRange = -2,
        eMissingRangeAndOne = -3
    };

    // Format codes the model itself gives: the string format, the string
    // format that shows each byte as two digits, and the default numeric one.
    enum FormatCode : int { eStringFormat = 1, eDoubledStringFormat = 2, eDefaultNumericFormat = 5 };

    // Measurement level 0-3 and alignment 0-2 are stored and returned as given.
    enum : int { eMaxMeasureLevel = 3, eMaxAlignment = 2 };

    // Default measurement level and alignment of a new variable.
    enum : int {
        eNumericMeasureLevel = 0,
        eNumericAlignment = 1,
        eStringMeasureLevel = 1,
        eStringAlignment = 0
    };

    enum : std::size_t { eMaxNameLength = 64, eMissingSlotSize = 8 };
};

// The body of a variable. Handles reach it only through MURV_Variable.
class MURV_VariableImpl : public MURV_Variable_Enumerations {
public:
    explicit MURV_VariableImpl(int type);

    // Missing values: doubles for a numeric variable, 8 bytes of text for a
    // string variable.
    char fMissing[3][eMissingSlotSize] = {};
    // The label, shared by copies of the body; null when there is none. A new
    // label is a new string, so the label's storage goes with the last body
    // that refers to it.
    std::shared_ptr<const std::string> fLabel;
    // The attributes, shared the same way; null when there are none (most
    // variables have none, and a body is made for every variable).
    std::shared_ptr<const Attributes> fAttributes;
    // (The small members go together, so that no padding falls between
    // them: a body is made for every variable.)
    std::uint32_t fPrintFormat = 0;
    std::uint32_t fWriteFormat = 0;
    // Bits 1-2: measurement level; bits 3-4: alignment.
    std::uint32_t fFlags = 0;
    MURV_VariableID fID;
    std::int16_t fType = 0;
    std::uint16_t fColumnWidth = 0;
    std::int8_t fMissingCode = eNoMissing;
    std::string fName;
    // The name after upper-casing under the locale in force when it was set:
    // the key of every lookup by name.
    std::string fUpperName;
    MURV_ValueLabelMap fValueLabels{nullptr};
};

// The name that MURV_Variable::SetName keeps of the first `length` bytes of
// a text.
std::string StoredName(const char* text, std::size_t length);

class MURV_Variable : public MURV_Variable_Enumerations {
public:
    // An empty handle: no body, not valid.
    MURV_Variable() = default;
    // A new variable of the given type (0 numeric, else the string width, at
    // most MAX_STRING_TYPE) with a new ID and the defaults of that type.
    explicit MURV_Variable(int type);

    MURV_Variable(const MURV_Variable&) = default;
    MURV_Variable(MURV_Variable&&) noexcept = default;
    MURV_Variable& operator=(const MURV_Variable& other);
    MURV_Variable& operator=(MURV_Variable&& other) noexcept;
    ~MURV_Variable() = default;

    bool IsValid() const { return fpImpl != nullptr; }

    // Count of renames and re-pointed handles in the process. A dictionary
    // compares it with the value it saw when it built its name and ID lookups
    // to tell whether these may be out of date (variables are renamed through
    // references into the dictionary, which the dictionary does not see).
    static std::uint64_t IdentityChanges();

    const std::string& GetName() const;
    const std::string& GetUpperName() const;
    // Keeps the longest whole-character prefix of at most 64 bytes (cut at a
    // NUL) without trailing blanks, and its upper-cased form. Names are not
    // checked here: the interface validates them and keeps them unique.
    void SetName(std::string_view text);
    void SetName(const char* text, std::size_t length);

    std::int16_t GetType() const;
    // A new type keeps a doubled-string format that still fits (twice the
    // width below 254); any other format becomes the new type's default.
    void SetType(int type);

    MURV_Format GetPrintFormat() const;
    MURV_Format GetWriteFormat() const;
    void GetPrintFormat(int* type, int* width, int* decimals) const;
    void GetWriteFormat(int* type, int* width, int* decimals) const;
    void SetPrintFormat(int type, int width, int decimals);
    void SetWriteFormat(int type, int width, int decimals);
    void SetPrintFormat(const MURV_Format& format);
    void SetWriteFormat(const MURV_Format& format);
    std::uint32_t GetPackedPrintFormat() const;
    std::uint32_t GetPackedWriteFormat() const;

    // The label, or null when the variable has none. An empty label is a
    // label.
    const std::string* GetLabel() const;
    // A null text removes the label; otherwise the label becomes the first
    // `length` bytes of the text.
    void SetLabel(const char* text, std::size_t length);

    // The code, and in *vn slot n when abs(code) >= n (else null). The slots
    // point into the body and stay valid until the variable changes.
    int GetMissingValues(const char** v1, const char** v2, const char** v3) const;
    // Stores the code and 8 bytes from each non-null pointer; a null pointer
    // leaves its slot as it is.
    void SetMissingValues(int code, const void* v1, const void* v2, const void* v3);

    int GetMeasureLevel() const;
    void SetMeasureLevel(int level);
    int GetAlignment() const;
    void SetAlignment(int alignment);
    std::uint16_t GetColumnWidth() const;
    void SetColumnWidth(std::uint16_t width);

    // A handle on the variable's value labels (without a map when it has
    // none). Copies of the variable share the map until one changes it.
    MURV_ValueLabelMap GetValueLabels() const;
    void SetValueLabels(const MURV_ValueLabelMap& labels);

    const Attributes& GetAttributes() const;
    void SetAttributes(const Attributes& attributes);

    MURV_VariableID GetID() const;

    // The body, for telling whether two handles share one.
    const MURV_VariableImpl* Body() const { return fpImpl.get(); }

    // Starts fetching the body into the processor's caches. A pass over the
    // variables of a large dictionary visits bodies scattered over the heap;
    // one that asks for the bodies a few variables ahead overlaps the waits
    // for them.
    // (The reference count that every change checks comes too: the bodies
    // are made by make_shared, which puts it just before the body. A
    // prefetch of an address that holds nothing of ours does no harm.)
    void Prefetch() const {
        const char* const body = reinterpret_cast<const char*>(fpImpl.get());
        if (!body) return;
        __builtin_prefetch(body - 16);
        for (std::size_t at = 0; at < sizeof(MURV_VariableImpl); at += 64) __builtin_prefetch(body + at);
    }
    // How many variables ahead such a pass asks.
    static constexpr std::size_t kPrefetchAhead = 8;

private:
    const MURV_VariableImpl& Read() const;
    MURV_VariableImpl& Write();

    std::shared_ptr<MURV_VariableImpl> fpImpl;
};

}  // namespace murv

#include "model/variable.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstring>

#include "model/constants.h"
#include "model/refcnt.h"
#include "port/assert.h"
#include "text/mbtext.h"

namespace murv {

namespace {

std::atomic<std::uint32_t> gNextSerial{0};
std::atomic<std::uint64_t> gIdentityChanges{0};

void NoteIdentityChange()
{
    gIdentityChanges.fetch_add(1, std::memory_order_relaxed);
}

constexpr std::uint32_t kMeasureShift = 1;
constexpr std::uint32_t kAlignmentShift = 3;
constexpr std::uint32_t kTwoBits = 3;

// One row of the format acceptance table. The width must lie in
// [minWidth (+ decimals when widthFromDecimals), maxWidth] and the decimals in
// [0, maxDecimals]; `even` asks for an even width; with decimals above 0 the
// width must also be at least decimals + minWidthWithDecimals when that is
// non-zero.
struct FormatRule {
    int code;
    bool forString;
    int minWidth;
    bool widthFromDecimals;
    int maxWidth;
    int maxDecimals;
    bool writeOnly;
    bool even;
    int minWidthWithDecimals;
};

constexpr FormatRule kFormatRules[] = {
    // code 1 is checked on its own: its width is the string's width
    {2, true, 2, false, 255, 0, false, true, 0},
    {3, false, 1, true, 40, 16, false, false, 0},
    {4, false, 2, true, 40, 16, false, false, 0},
    {5, false, 1, true, 40, 16, false, false, 0},
    {6, false, 1, false, 8, 16, true, false, 0},
    {7, false, 2, false, 16, 0, false, true, 0},
    {8, false, 1, false, 16, 16, true, false, 0},
    {9, false, 1, false, 8, 16, true, false, 0},
    {10, false, 1, false, 16, 16, true, false, 0},
    {11, false, 2, false, 8, 0, true, false, 0},
    {12, false, 4, false, 16, 0, false, true, 0},
    {15, false, 1, false, 40, 16, false, false, 0},
    {16, false, 1, false, 40, 16, false, false, 0},
    {17, false, 6, true, 40, 16, false, false, 0},
    {20, false, 9, false, 40, 0, false, false, 0},
    {21, false, 5, false, 40, 16, false, false, 9},
    {22, false, 17, false, 40, 16, false, false, 21},
    {23, false, 8, false, 40, 0, false, false, 0},
    {24, false, 5, false, 40, 0, false, false, 0},
    {25, false, 8, false, 40, 16, false, false, 12},
    {26, false, 2, false, 40, 0, false, false, 0},
    {27, false, 3, false, 40, 0, false, false, 0},
    {28, false, 6, false, 40, 0, false, false, 0},
    {29, false, 6, false, 40, 0, false, false, 0},
    {30, false, 8, false, 40, 0, false, false, 0},
    {31, false, 2, true, 40, 16, false, false, 0},
    {32, false, 1, true, 40, 16, false, false, 0},
    {33, false, 2, true, 40, 16, false, false, 0},
    {34, false, 2, true, 40, 16, false, false, 0},
    {35, false, 2, true, 40, 16, false, false, 0},
    {36, false, 2, true, 40, 16, false, false, 0},
    {37, false, 2, true, 40, 16, false, false, 0},
    {38, false, 8, false, 40, 0, false, false, 0},
    {39, false, 8, false, 40, 0, false, false, 0},
};

}  // namespace

// ---- IDs and formats ----

MURV_VariableID MURV_VariableID::Next()
{
    const std::uint32_t serial = gNextSerial.fetch_add(1, std::memory_order_relaxed) & 0x0FFFFFFFu;
    return MURV_VariableID(serial << 4);
}

std::uint32_t PackFormat(const MURV_Format& format)
{
    const std::uint32_t low = format.width & 0xFFu;
    const std::uint32_t high = (format.width >> 8) & 0xFFu;
    const std::uint32_t type = format.type;
    if (format.type == MURV_Variable_Enumerations::eStringFormat)
        return high | (low << 8) | (type << 16);
    return std::uint32_t{format.decimals} | (low << 8) | (type << 16) | (high << 24);
}

MURV_Format UnpackFormat(std::uint32_t word)
{
    MURV_Format format;
    const std::uint8_t byte0 = word & 0xFFu;
    format.width = (word >> 8) & 0xFFu;
    format.type = (word >> 16) & 0xFFu;
    format.decimals = byte0;
    if (format.type == MURV_Variable_Enumerations::eStringFormat) {
        format.width = static_cast<std::uint16_t>(format.width + byte0 * 256);
        format.decimals = 0;
    }
    return format;
}

MURV_Format DefaultFormat(int type)
{
    if (type == 0) return MURV_Format{8, MURV_Variable_Enumerations::eDefaultNumericFormat, 2};
    return MURV_Format{static_cast<std::uint16_t>(type), MURV_Variable_Enumerations::eStringFormat, 0};
}

bool FormatIsAcceptable(bool isPrint, int variableType, int typeCode, int width, int decimals)
{
    if (variableType < 0 || width < 0 || decimals < 0) return false;
    const bool isString = variableType > 0;
    if (typeCode == MURV_Variable_Enumerations::eStringFormat)
        return isString && width == variableType &&
               width <= MURV_Variable_Enumerations::MAX_STRING_TYPE && decimals == 0;
    const auto rule = std::find_if(std::begin(kFormatRules), std::end(kFormatRules),
                                   [typeCode](const FormatRule& r) { return r.code == typeCode; });
    if (rule == std::end(kFormatRules)) return false;
    if (rule->forString != isString) return false;
    if (rule->writeOnly && isPrint) return false;
    if (decimals > rule->maxDecimals) return false;
    const int minWidth = rule->minWidth + (rule->widthFromDecimals ? decimals : 0);
    if (width < minWidth || width > rule->maxWidth) return false;
    if (rule->even && width % 2 != 0) return false;
    if (rule->minWidthWithDecimals != 0 && decimals > 0 && width < decimals + rule->minWidthWithDecimals)
        return false;
    return true;
}

// ---- the body ----

MURV_VariableImpl::MURV_VariableImpl(int type)
    : fID(MURV_VariableID::Next()), fType(static_cast<std::int16_t>(type))
{
    fPrintFormat = fWriteFormat = PackFormat(DefaultFormat(type));
    fColumnWidth = static_cast<std::uint16_t>(std::min(type == 0 ? 8 : type, 50));
    const bool isString = type > 0;
    const std::uint32_t level = isString ? eStringMeasureLevel : eNumericMeasureLevel;
    const std::uint32_t alignment = isString ? eStringAlignment : eNumericAlignment;
    fFlags = (level << kMeasureShift) | (alignment << kAlignmentShift);
}

static_assert(sizeof(MURV_VariableImpl) <= 168, "a variable's body should stay small");

// ---- the handle ----

MURV_Variable::MURV_Variable(int type)
{
    MURV_ASSERT(0 <= type && type <= MAX_STRING_TYPE);
    fpImpl = std::make_shared<MURV_VariableImpl>(type);
}

MURV_Variable& MURV_Variable::operator=(const MURV_Variable& other)
{
    if (fpImpl != other.fpImpl) {
        fpImpl = other.fpImpl;
        NoteIdentityChange();
    }
    return *this;
}

MURV_Variable& MURV_Variable::operator=(MURV_Variable&& other) noexcept
{
    if (this != &other) {
        if (fpImpl != other.fpImpl) NoteIdentityChange();
        fpImpl = std::move(other.fpImpl);
    }
    return *this;
}

std::uint64_t MURV_Variable::IdentityChanges()
{
    return gIdentityChanges.load(std::memory_order_relaxed);
}

const MURV_VariableImpl& MURV_Variable::Read() const
{
    MURV_ASSERT(fpImpl != nullptr);
    return *fpImpl;
}

MURV_VariableImpl& MURV_Variable::Write()
{
    MURV_ASSERT(fpImpl != nullptr);
    return MakePrivate(fpImpl);
}

const std::string& MURV_Variable::GetName() const
{
    return Read().fName;
}

const std::string& MURV_Variable::GetUpperName() const
{
    return Read().fUpperName;
}

std::string StoredName(const char* text, std::size_t length)
{
    // The whole characters of the first 64 bytes (up to a NUL), without the
    // blanks that end them.
    if (text == nullptr || length == 0) return std::string();
    std::string name = text::Truncated(std::string_view(text, length), MURV_Variable::eMaxNameLength);
    std::size_t size = name.size();
    while (size > 0 && name[size - 1] == ' ') --size;
    name.resize(size);
    return name;
}

void MURV_Variable::SetName(const char* text, std::size_t length)
{
    std::string name = StoredName(text, length);
    MURV_VariableImpl& body = Write();
    body.fName = std::move(name);
    body.fUpperName = text::UpperCopy(body.fName);
    NoteIdentityChange();
}

void MURV_Variable::SetName(std::string_view text)
{
    SetName(text.data(), text.size());
}

std::int16_t MURV_Variable::GetType() const
{
    return Read().fType;
}

void MURV_Variable::SetType(int type)
{
    MURV_ASSERT(0 <= type && type <= MAX_STRING_TYPE);
    MURV_VariableImpl& body = Write();
    if (type != body.fType) {
        for (std::uint32_t* word : {&body.fPrintFormat, &body.fWriteFormat}) {
            MURV_Format format = UnpackFormat(*word);
            if (type > 0 && format.type == eDoubledStringFormat && 2 * type < 254) {
                format.width = static_cast<std::uint16_t>(2 * type);
                *word = PackFormat(format);
            } else {
                *word = PackFormat(DefaultFormat(type));
            }
        }
    }
    body.fType = static_cast<std::int16_t>(type);
}

MURV_Format MURV_Variable::GetPrintFormat() const
{
    return UnpackFormat(Read().fPrintFormat);
}

MURV_Format MURV_Variable::GetWriteFormat() const
{
    return UnpackFormat(Read().fWriteFormat);
}

void MURV_Variable::GetPrintFormat(int* type, int* width, int* decimals) const
{
    const MURV_Format format = GetPrintFormat();
    if (type) *type = format.type;
    if (width) *width = format.width;
    if (decimals) *decimals = format.decimals;
}

void MURV_Variable::GetWriteFormat(int* type, int* width, int* decimals) const
{
    const MURV_Format format = GetWriteFormat();
    if (type) *type = format.type;
    if (width) *width = format.width;
    if (decimals) *decimals = format.decimals;
}

void MURV_Variable::SetPrintFormat(int type, int width, int decimals)
{
    SetPrintFormat(MURV_Format{static_cast<std::uint16_t>(width), static_cast<std::uint8_t>(type),
                               static_cast<std::uint8_t>(decimals)});
}

void MURV_Variable::SetWriteFormat(int type, int width, int decimals)
{
    SetWriteFormat(MURV_Format{static_cast<std::uint16_t>(width), static_cast<std::uint8_t>(type),
                               static_cast<std::uint8_t>(decimals)});
}

void MURV_Variable::SetPrintFormat(const MURV_Format& format)
{
    Write().fPrintFormat = PackFormat(format);
}

void MURV_Variable::SetWriteFormat(const MURV_Format& format)
{
    Write().fWriteFormat = PackFormat(format);
}

std::uint32_t MURV_Variable::GetPackedPrintFormat() const
{
    return Read().fPrintFormat;
}

std::uint32_t MURV_Variable::GetPackedWriteFormat() const
{
    return Read().fWriteFormat;
}

const std::string* MURV_Variable::GetLabel() const
{
    return Read().fLabel.get();
}

void MURV_Variable::SetLabel(const char* text, std::size_t length)
{
    MURV_VariableImpl& body = Write();
    if (text == nullptr)
        body.fLabel.reset();
    else
        body.fLabel = std::make_shared<const std::string>(text, length);
}

int MURV_Variable::GetMissingValues(const char** v1, const char** v2, const char** v3) const
{
    const MURV_VariableImpl& body = Read();
    const int code = body.fMissingCode;
    const int used = code < 0 ? -code : code;
    const char** out[3] = {v1, v2, v3};
    for (int n = 0; n < 3; ++n)
        if (out[n]) *out[n] = used > n ? body.fMissing[n] : nullptr;
    return code;
}

void MURV_Variable::SetMissingValues(int code, const void* v1, const void* v2, const void* v3)
{
    MURV_ASSERT(-3 <= code && code <= 3);
    MURV_VariableImpl& body = Write();
    body.fMissingCode = static_cast<std::int8_t>(code);
    const void* in[3] = {v1, v2, v3};
    for (int n = 0; n < 3; ++n)
        if (in[n]) std::memcpy(body.fMissing[n], in[n], eMissingSlotSize);
}

int MURV_Variable::GetMeasureLevel() const
{
    return static_cast<int>((Read().fFlags >> kMeasureShift) & kTwoBits);
}

void MURV_Variable::SetMeasureLevel(int level)
{
    std::uint32_t& flags = Write().fFlags;
    flags = (flags & ~(kTwoBits << kMeasureShift)) |
            ((static_cast<std::uint32_t>(level) & kTwoBits) << kMeasureShift);
}

int MURV_Variable::GetAlignment() const
{
    return static_cast<int>((Read().fFlags >> kAlignmentShift) & kTwoBits);
}

void MURV_Variable::SetAlignment(int alignment)
{
    std::uint32_t& flags = Write().fFlags;
    flags = (flags & ~(kTwoBits << kAlignmentShift)) |
            ((static_cast<std::uint32_t>(alignment) & kTwoBits) << kAlignmentShift);
}

std::uint16_t MURV_Variable::GetColumnWidth() const
{
    return Read().fColumnWidth;
}

void MURV_Variable::SetColumnWidth(std::uint16_t width)
{
    Write().fColumnWidth = width;
}

MURV_ValueLabelMap MURV_Variable::GetValueLabels() const
{
    return Read().fValueLabels;
}

void MURV_Variable::SetValueLabels(const MURV_ValueLabelMap& labels)
{
    Write().fValueLabels = labels;
}

namespace {

const Attributes& AttributesOf(const MURV_VariableImpl& body)
{
    static const Attributes kNone;
    return body.fAttributes ? *body.fAttributes : kNone;
}

}  // namespace

const Attributes& MURV_Variable::GetAttributes() const
{
    return AttributesOf(Read());
}

void MURV_Variable::SetAttributes(const Attributes& attributes)
{
    Write().fAttributes = attributes.Empty() ? nullptr : std::make_shared<const Attributes>(attributes);
}

MURV_VariableID MURV_Variable::GetID() const
{
    return Read().fID;
}

}  // namespace murv

// Crafts system files record by record, in either byte order, plain or
// compressed, including malformed variants that the writer never produces.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>
#include <fstream>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace murv::testing {

class ByteBuilder {
public:
    explicit ByteBuilder(bool bigEndian = false) : big_(bigEndian) {}

    const std::vector<unsigned char>& Bytes() const { return bytes_; }

    ByteBuilder& Raw(const void* p, std::size_t n) {
        const auto* b = static_cast<const unsigned char*>(p);
        bytes_.insert(bytes_.end(), b, b + n);
        return *this;
    }
    ByteBuilder& Byte(unsigned char b) { return Raw(&b, 1); }
    ByteBuilder& Bytes(std::initializer_list<unsigned char> bs) { return Raw(bs.begin(), bs.size()); }
    ByteBuilder& I32(std::int32_t v) { return Ordered(static_cast<std::uint32_t>(v), 4); }
    ByteBuilder& I64(std::int64_t v) { return Ordered(static_cast<std::uint64_t>(v), 8); }
    ByteBuilder& F64(double d) { return Ordered(std::bit_cast<std::uint64_t>(d), 8); }
    // Text blank-padded (or cut) to n bytes.
    ByteBuilder& Text(const std::string& s, std::size_t n) {
        return Text(s.substr(0, n) + std::string(n - std::min(n, s.size()), ' '));
    }
    ByteBuilder& Text(const std::string& s) { return Raw(s.data(), s.size()); }
    ByteBuilder& Zeros(std::size_t n) { return Text(std::string(n, '\0')); }

    // The 176-byte header.
    ByteBuilder& Header(std::int32_t caseSize, std::int32_t caseCount, bool compressed = false,
                        std::int32_t weightIndex = 0, const std::string& label = "",
                        const std::string& product = "@(#) test writer", std::int32_t layoutCode = 2) {
        Text("$FL2").Text(product, 60);
        I32(layoutCode).I32(caseSize).I32(compressed ? 1 : 0).I32(weightIndex).I32(caseCount).F64(100.0);
        return Text("07 Mar 06", 9).Text("14:05:09", 8).Text(label, 64).Zeros(3);
    }

    // A variable record (type 0 numeric, 1..255 string width, -1 continuation)
    // with optional label and missing values (already in cell form).
    ByteBuilder& Variable(std::int32_t type, const std::string& name, std::int32_t print = 0x050802,
                          std::int32_t write = 0x050802, const std::string* label = nullptr,
                          std::int32_t missingCode = 0, const std::vector<double>& missing = {}) {
        I32(2).I32(type).I32(label ? 1 : 0).I32(missingCode).I32(print).I32(write).Text(name, 8);
        if (label) I32(static_cast<std::int32_t>(label->size())).Text(*label, (label->size() + 3) / 4 * 4);
        for (double m : missing) F64(m);
        return *this;
    }
    // A string variable with its continuation records.
    ByteBuilder& StringVariable(std::int32_t width, const std::string& name) {
        const std::int32_t fmt = (1 << 16) | (width << 8);
        Variable(width, name, fmt, fmt);
        for (int i = 1; i < (width <= 8 ? 1 : (width + 7) / 8); ++i) Variable(-1, "", 0x00011D01, 0x00011D01);
        return *this;
    }
    // A value-label record for numeric values and its variable-index record.
    ByteBuilder& NumericLabels(const std::vector<std::pair<double, std::string>>& labels,
                               const std::vector<std::int32_t>& positions) {
        return Labels(labels, positions);
    }
    // Value labels for string values (8 bytes each, never reversed).
    ByteBuilder& StringLabels(const std::vector<std::pair<std::string, std::string>>& labels,
                              const std::vector<std::int32_t>& positions) {
        return Labels(labels, positions);
    }
    ByteBuilder& Documents(const std::vector<std::string>& lines) {
        I32(6).I32(static_cast<std::int32_t>(lines.size()));
        for (const auto& l : lines) Text(l, 80);
        return *this;
    }
    ByteBuilder& ExtensionHeader(std::int32_t subtype, std::int32_t unitSize, std::int32_t count) {
        return I32(7).I32(subtype).I32(unitSize).I32(count);
    }
    ByteBuilder& ExtensionI32(std::int32_t subtype, const std::vector<std::int32_t>& units) {
        return I32(7).I32(subtype).I32(4).Counted(units);
    }
    ByteBuilder& ExtensionF64(std::int32_t subtype, const std::vector<double>& units) {
        return I32(7).I32(subtype).I32(8).Counted(units);
    }
    ByteBuilder& ExtensionText(std::int32_t subtype, const std::string& text) {
        return ExtensionHeader(subtype, 1, static_cast<std::int32_t>(text.size())).Text(text);
    }
    ByteBuilder& End() { return I32(999).I32(0); }

    // Plain case data: numbers in the file's order, strings as bytes.
    ByteBuilder& Number(double d) { return F64(d); }
    ByteBuilder& StringCell(const std::string& s) { return Text(s, 8); }

    void Save(const std::string& path) const {
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(bytes_.data()), static_cast<std::streamsize>(bytes_.size()));
    }

private:
    ByteBuilder& Unit(std::int32_t v) { return I32(v); }
    ByteBuilder& Unit(double v) { return F64(v); }
    ByteBuilder& Unit(const std::string& v) { return Text(v, 8); }
    // The number of units, then the units.
    template <class U>
    ByteBuilder& Counted(const std::vector<U>& units) {
        I32(static_cast<std::int32_t>(units.size()));
        for (const U& u : units) Unit(u);
        return *this;
    }
    // Each value, then its label: a length byte and the text, blank-padded to
    // whole cells; then the variables the labels are for.
    template <class V>
    ByteBuilder& Labels(const std::vector<std::pair<V, std::string>>& labels,
                        const std::vector<std::int32_t>& positions) {
        I32(3).I32(static_cast<std::int32_t>(labels.size()));
        for (const auto& [v, l] : labels)
            Unit(v).Byte(static_cast<unsigned char>(l.size())).Text(l, l.size() / 8 * 8 + 7);
        return I32(4).Counted(positions);
    }
    template <class U>
    ByteBuilder& Ordered(U v, int n) {
        unsigned char b[8];
        for (int i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(v >> (big_ ? 8 * (n - 1 - i) : 8 * i));
        return Raw(b, static_cast<std::size_t>(n));
    }

    bool big_;
    std::vector<unsigned char> bytes_;
};

}  // namespace murv::testing

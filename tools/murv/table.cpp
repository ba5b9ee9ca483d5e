// Aligned text tables for people: `dict`, `freq` and `stats`.
#include <algorithm>
#include <charconv>

#include "scan.h"

namespace murv {

namespace {

// Characters of UTF-8 text: every byte that does not continue a sequence.
std::size_t Width(const std::string& s) {
    std::size_t n = 0;
    for (unsigned char c : s) n += (c & 0xC0) != 0x80;
    return n;
}

}  // namespace

void AppendTable(std::string& out, const std::vector<std::vector<std::string>>& rows, const std::vector<bool>& right,
                 const std::string& indent) {
    std::vector<std::size_t> widths;
    for (const auto& row : rows)
        for (std::size_t k = 0; k < row.size(); ++k) {
            if (widths.size() <= k) widths.push_back(0);
            widths[k] = std::max(widths[k], Width(row[k]));
        }
    for (const auto& row : rows) {
        std::string line = indent;
        for (std::size_t k = 0; k < row.size(); ++k) {
            if (k) line += "  ";
            const std::size_t pad = widths[k] - Width(row[k]);
            const bool r = k < right.size() && right[k];
            if (r) line.append(pad, ' ');
            line += row[k];
            if (!r) line.append(pad, ' ');
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out += line;
        out.push_back('\n');
    }
}

std::string Fixed(double v, int decimals) {
    char buf[400];
    const auto r = std::to_chars(buf, buf + sizeof buf, v, std::chars_format::fixed, decimals);
    return r.ec == std::errc() ? std::string(buf, r.ptr) : std::string("*");
}

}  // namespace murv

#include "api/alloc.h"

#include "text/mbtext.h"

namespace murv::api {

void CopyOut(char* buffer, std::size_t size, std::string_view text) {
    if (!buffer || size == 0) return;
    const std::string cut = text.size() < size ? std::string(text) : text::Truncated(text, size - 1);
    std::memcpy(buffer, cut.data(), cut.size());
    buffer[cut.size()] = '\0';
}

}  // namespace murv::api

// Counting what a text says.
#pragma once

#include <cstddef>
#include <string>

namespace test {

/// @return how often `part` stands in `text`
inline std::size_t Count(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) ++count;
    return count;
}

}  // namespace test

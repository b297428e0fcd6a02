// How often something is in a text.
#pragma once

#include <cstddef>
#include <string>

namespace test {

inline std::size_t CountOf(const std::string& piece, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(piece); at != std::string::npos; at = text.find(piece, at + piece.size())) ++count;
    return count;
}

}  // namespace test

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kvo::fuzz {

// Writes the fuzzer's bytes to one reusable file in memory-backed storage and
// returns its path: the image and PDF services open inputs by path.
const std::string& writeInput(const uint8_t* data, size_t size);

}  // namespace kvo::fuzz

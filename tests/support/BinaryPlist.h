// Binary property lists written byte by byte, with the widths of the offsets and of the object
// references chosen by the test (libplist writes the smallest that fit, so both are usually 1).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace ymtest {

struct BinaryPlist {
    std::string bytes;
    size_t offsetTable = 0;  // where the table of object offsets begins
    size_t trailer = 0;      // where the 32-byte trailer begins
};

// Appends `value` as `width` bytes, the most significant first.
void appendBigEndian(std::string &out, uint64_t value, int width);

// A dictionary of ASCII texts (the first object, then its keys, then its values), its offsets
// `offsetSize` bytes wide and its references `referenceSize` bytes wide (1, 2, 4 or 8 each).
BinaryPlist makeBinaryPlist(const std::vector<std::pair<std::string, std::string>> &entries, int offsetSize, int referenceSize);

}  // namespace ymtest

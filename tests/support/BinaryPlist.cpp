#include "support/BinaryPlist.h"

namespace ymtest {

void appendBigEndian(std::string &out, uint64_t value, int width)
{
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>((value >> shift) & 0xff));
}

namespace {

// A count in the object's marker, or after it as an integer object when it is 15 or more.
void marker(std::string &out, unsigned kind, size_t count)
{
    if (count < 15) {
        out.push_back(static_cast<char>((kind << 4) | count));
        return;
    }
    out.push_back(static_cast<char>((kind << 4) | 0x0f));
    out.push_back(static_cast<char>(0x13));  // an integer of 8 bytes
    appendBigEndian(out, count, 8);
}

}  // namespace

BinaryPlist makeBinaryPlist(const std::vector<std::pair<std::string, std::string>> &entries, int offsetSize, int referenceSize)
{
    BinaryPlist plist;
    std::string &out = plist.bytes;
    out = "bplist00";
    std::vector<uint64_t> offsets;
    const size_t count = entries.size();
    offsets.push_back(out.size());
    marker(out, 0xD, count);
    for (size_t i = 0; i < count; ++i)
        appendBigEndian(out, 1 + i, referenceSize);
    for (size_t i = 0; i < count; ++i)
        appendBigEndian(out, 1 + count + i, referenceSize);
    for (int part = 0; part < 2; ++part)
        for (const auto &entry : entries) {
            const std::string &text = part == 0 ? entry.first : entry.second;
            offsets.push_back(out.size());
            marker(out, 0x5, text.size());
            out += text;
        }
    plist.offsetTable = out.size();
    for (uint64_t offset : offsets)
        appendBigEndian(out, offset, offsetSize);
    plist.trailer = out.size();
    out.append(6, '\0');  // unused, and the sort version
    out.push_back(static_cast<char>(offsetSize));
    out.push_back(static_cast<char>(referenceSize));
    appendBigEndian(out, offsets.size(), 8);  // objects
    appendBigEndian(out, 0, 8);               // the top object
    appendBigEndian(out, plist.offsetTable, 8);
    return plist;
}

}  // namespace ymtest

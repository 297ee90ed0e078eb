// What the fuzz targets share: a private home, and the SDK's log kept away from the fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fuzzsupport {

// Points $HOME at a fresh temporary folder (once per process).
void useTemporaryHome();

// Sends descriptor 2 to /dev/null: the SDK logs every message it handles, and a fuzzer hands it
// millions. Targets run with -close_fd_mask=2, which already does this after libFuzzer has kept
// its own output; this is for what redirects descriptor 2 again (the facade's log file).
void silenceLog();

// A small reader over the fuzzer's bytes.
class Bytes {
public:
    Bytes(const uint8_t *data, size_t size) : _data(data), _size(size) {}
    bool empty() const { return _offset >= _size; }
    uint8_t byte() { return empty() ? 0 : _data[_offset++]; }
    std::string take(size_t count)
    {
        count = std::min(count, _size - std::min(_offset, _size));
        std::string text(reinterpret_cast<const char *>(_data + _offset), count);
        _offset += count;
        return text;
    }
    std::string rest() { return take(_size); }

private:
    const uint8_t *_data;
    size_t _size;
    size_t _offset = 0;
};

}  // namespace fuzzsupport

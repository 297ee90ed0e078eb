// The byte framing of the socket transport, shared by the server and the client.
//
// A message on the wire is the UTF-8 text alone: no length, no delimiter, no terminating zero.
// A sender sends the text up to its first zero byte, as if converted into a zero-filled buffer of
// 65,535 bytes: at most 65,534 bytes leave at once, and a text that does not fit (or is not UTF-8)
// leaves nothing. A reader takes up to 8,191 bytes per read, keeps the chunk up to its first zero
// byte when that is UTF-8 (a chunk that is not, such as one that ends inside a character, is
// dropped), appends it to what the connection has gathered and asks the delegate after every read
// whether the gathered text is a whole message.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class ySocketDelegate;

namespace ySocketFraming {

inline constexpr size_t kSendBufferSize = 65535;
inline constexpr size_t kReadBufferSize = 8192;
inline constexpr size_t kReadSize = kReadBufferSize - 1;

// The socket paths the transport accepts are shorter than this many UTF-16 units.
inline constexpr size_t kMaximumPathLength = 104;
// How many bytes of the path's UTF-8 form fit the address.
inline constexpr size_t kAddressPathBytes = 103;

// The bytes to send for the text: a view of the text itself, nothing copied.
std::string_view bytesToSend(const std::optional<std::string> &text);

// What one connection has gathered so far.
class Gatherer {
public:
    // Takes the bytes of one read (up to their first zero byte) and asks the delegate about the
    // gathered text. A delegate that is gone counts as having taken it.
    void takeChunk(std::string_view chunk, const std::shared_ptr<ySocketDelegate> &delegate);

private:
    std::string _accumulated;
};

}  // namespace ySocketFraming

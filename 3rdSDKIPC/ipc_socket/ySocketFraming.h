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

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

class ySocketDelegate;

namespace ySocketFraming {

inline constexpr size_t kSendBufferSize = 65535;
inline constexpr size_t kReadBufferSize = 8192;
inline constexpr size_t kReadSize = kReadBufferSize - 1;

// How long one connect or one write waits for a peer that does not take it (a meeting client
// that is stopped, a listen queue that is full): after that it counts as a failed connect or a
// failed write. A peer whose write failed so is written to without waiting until it takes a
// whole text again, so that one stopped peer costs this wait once, not on every text.
inline constexpr std::chrono::seconds kPeerWaitLimit{3};
// How long a sender waits for a connection attempt, the attempt's own limit included.
inline constexpr std::chrono::seconds kAttemptWaitLimit{4};

// Gives the socket the peer wait limit for its connect and its writes.
void limitPeerWaits(int fd);

// Writes the bytes once, never raising SIGPIPE. A peer that `stalled` on its last write (it
// took nothing for the whole limit) is not waited for now; `stalled` says afterwards whether this
// write left the peer so. Answers what send() answered.
long sendOnce(int fd, std::string_view bytes, bool &stalled);

// The socket paths the transport accepts are shorter than this many UTF-16 units.
inline constexpr size_t kMaximumPathLength = 104;
// How many bytes of the path's UTF-8 form fit the address.
inline constexpr size_t kAddressPathBytes = 103;

// The bytes to send for the text: a view of the text itself, nothing copied.
std::string_view bytesToSend(const std::optional<std::string> &text);

// What a boundary test has learnt of one connection's gathered text so far. It is kept with the
// text (which only grows until it is taken) so that each read is looked at once, never the whole
// text again: a peer that floods a connection costs time in proportion to what it sends.
struct TextScan {
    const char *key = nullptr;       // the key name looked for
    bool keyFound = false;           // it is in the text
    size_t keySearchedUpTo = 0;      // the text's length when it was last looked for
    char lastCharacter = '\0';       // the last character that is not a blank or a line break
    size_t blanksSearchedUpTo = 0;   // the text's length when that was last looked for
};

// A delegate that keeps its findings about a connection's text between reads. The SDK's channel
// is one; a reader hands it the connection's TextScan with the text.
class ScanningDelegate {
public:
    virtual ~ScanningDelegate() = default;
    virtual int32_t onMessageGathered(const std::string &text, TextScan &scan) = 0;
};

// What one connection has gathered so far.
class Gatherer {
public:
    // Takes the bytes of one read (up to their first zero byte) and asks the delegate about the
    // gathered text. A delegate that is gone counts as having taken it.
    void takeChunk(std::string_view chunk, const std::shared_ptr<ySocketDelegate> &delegate);

private:
    std::string _accumulated;
    TextScan _scan;
};

}  // namespace ySocketFraming

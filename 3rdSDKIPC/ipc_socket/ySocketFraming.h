// The byte framing of the socket transport, shared by the server and the client.
//
// A message on the wire is the UTF-8 text of one JSON object alone: no length, no delimiter, no
// terminating zero. A sender sends the text up to its first zero byte, as if converted into a
// zero-filled buffer of 65,535 bytes: at most 65,534 bytes leave at once, and a text that does not
// fit (or is not UTF-8) leaves nothing.
//
// A reader splits the bytes it reads into the top-level JSON objects they hold, whatever the reads
// were (many messages in one read, one message over many reads, a cut anywhere, inside a character
// or right after an inner "}"), and hands each on once, in order, byte for byte as it came:
//   - between messages, bytes that cannot begin one (anything but "{") are skipped;
//   - an object that turns out not to be JSON costs itself only: reading goes on from the next "{"
//     inside it (the peer may have broken off in the middle of a message and begun the next one),
//     or else from the byte where it went wrong; the reader may also give up a message that stays
//     unfinished (abandon());
//   - what one connection gathers for one message is bounded (kMaximumMessageSize): past it the
//     text is dropped and reading goes on after its end; nesting deeper than kMaximumDepth is not
//     taken as JSON either.
// Going back into a text that went wrong is paid for by the bytes read: a peer cannot make the
// reader look at more than twice what it sent, and one largest message besides.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ySocketFraming {

inline constexpr size_t kSendBufferSize = 65535;
// A read asks for this many bytes at most.
inline constexpr size_t kReadSize = 8191;
// The most one connection gathers for one message, and the deepest nesting taken.
inline constexpr size_t kMaximumMessageSize = 16 * 1024 * 1024;
inline constexpr size_t kMaximumDepth = 512;

// How long a text may wait for a peer that does not take it (a meeting client that is stopped)
// before it counts as a failed write, and how long a connect waits on a full listen queue before
// it counts as a failed connect.
inline constexpr std::chrono::seconds kPeerWaitLimit{3};
// How long a sender waits for a connection attempt, the attempt's own limit included.
inline constexpr std::chrono::seconds kAttemptWaitLimit{4};
// What one connection may hold queued for a peer that is slow to read.
inline constexpr size_t kMaximumQueuedBytes = 16 * 1024 * 1024;

// The socket paths the transport accepts are shorter than this many UTF-16 units.
inline constexpr size_t kMaximumPathLength = 104;
// How many bytes of the path's UTF-8 form fit the address.
inline constexpr size_t kAddressPathBytes = 103;

// The bytes to send for the text: a view of the text itself, nothing copied.
std::string_view bytesToSend(const std::optional<std::string> &text);

// What a splitter hands on.
class Receiver {
public:
    enum class Dropped { malformed, tooLong };
    virtual ~Receiver() = default;
    // One whole message, byte for byte.
    virtual void messageSplit(std::string_view message) = 0;
    // A text given up: what of it was kept (its start, for a text too long).
    virtual void textDropped(Dropped why, std::string_view text) = 0;
};

// Splits one connection's byte stream into messages.
class Splitter {
public:
    // Takes the bytes of one read and hands on what they complete.
    void feed(std::string_view bytes, Receiver &receiver);

    // True while part of a message has been taken and its end has not come.
    bool unfinished() const { return _state != State::outside; }

    // Gives up the unfinished message as not JSON (the peer broke it off), and hands on what
    // follows inside it, read again from its next "{" (and so on, while that is unfinished too).
    void abandon(Receiver &receiver);

private:
    enum class State : uint8_t {
        outside,         // between messages
        keyOrEnd,        // after "{": a key or "}"
        key,             // after "," in an object
        colon,           // after a key
        value,           // after ":", or after "," in an array
        valueOrEnd,      // after "[": a value or "]"
        afterValue,      // after a value: "," or the closing bracket
        string,          // inside a string
        escape,          // after "\" in a string
        unicode,         // in the four hex digits of "\u"
        utf8,            // in the continuation bytes of a character
        numberMinus,     // after "-"
        numberZero,      // after a leading "0"
        numberInteger,   // in the digits of the integer part
        numberDot,       // after "."
        numberFraction,  // in the digits of the fraction
        numberE,         // after "e" or "E"
        numberESign,     // after the exponent's sign
        numberExponent,  // in the digits of the exponent
        literal,         // in true, false or null
    };
    enum class Step { taken, complete, wrong };

    void take(unsigned char c, Receiver &receiver);
    Step validate(unsigned char c);
    Step beginValue(unsigned char c);
    Step open(char bracket, State next);
    Step close(char bracket);
    void wentWrong(unsigned char c, Receiver &receiver);
    std::string giveUp(Receiver &receiver);
    void reset();

    State _state = State::outside;
    std::vector<char> _open;   // the brackets open now, innermost last
    bool _stringIsKey = false;
    int _pending = 0;          // hex digits or continuation bytes still to come
    unsigned char _low = 0x80, _high = 0xbf;  // the range of the next continuation byte
    const char *_literal = nullptr;
    std::string _text;         // the message so far
    bool _discarding = false;  // past the size limit: validated, not kept

    // Bytes of texts that went wrong, to be read again before what comes next; innermost last.
    struct Replay {
        std::string bytes;
        size_t next = 0;
    };
    std::vector<Replay> _replays;
    size_t _credit = kSendBufferSize;  // bytes read (and one message) not yet spent on reading again
};

}  // namespace ySocketFraming

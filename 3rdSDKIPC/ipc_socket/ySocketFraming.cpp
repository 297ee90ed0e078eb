#include "3rdSDKIPC/ipc_socket/ySocketFraming.h"

#include <algorithm>
#include <cstring>

#include "foundation/ymTextRules.h"

namespace ySocketFraming {
namespace {

bool isHexDigit(unsigned char c) { return ymText::isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

}  // namespace

std::string_view bytesToSend(const std::optional<std::string> &text)
{
    if (!text || text->size() >= kSendBufferSize || !ymText::isValidUtf8(*text))
        return std::string_view();
    // A zero byte inside the text ends what is sent.
    return std::string_view(text->data(), std::strlen(text->c_str()));
}

void Splitter::feed(std::string_view bytes, Receiver &receiver)
{
    _credit += bytes.size();
    size_t at = 0;
    for (;;) {
        if (!_replays.empty()) {
            Replay &replay = _replays.back();
            if (replay.next == replay.bytes.size()) {
                _replays.pop_back();
                continue;
            }
            take(static_cast<unsigned char>(replay.bytes[replay.next++]), receiver);
            continue;
        }
        if (at == bytes.size())
            return;
        if (_state == State::outside) {
            // Between messages only "{" matters.
            size_t begin = bytes.find('{', at);
            if (begin == std::string_view::npos)
                return;
            at = begin;
        } else if (_state == State::string) {
            // Inside a string, a run of plain bytes changes nothing but the text: taken at once,
            // up to the size limit (the byte that reaches it is take()'s).
            size_t run = ymText::plainJSONStringBytes(bytes, at);
            if (!_discarding)
                run = std::min(run, kMaximumMessageSize - _text.size());
            if (run > 0) {
                if (!_discarding)
                    _text.append(bytes.data() + at, run);
                at += run;
                continue;
            }
        }
        take(static_cast<unsigned char>(bytes[at++]), receiver);
    }
}

void Splitter::take(unsigned char c, Receiver &receiver)
{
    if (_state == State::outside) {
        if (c == '{') {
            _open.assign(1, '{');
            _state = State::keyOrEnd;
            _text.assign(1, '{');
        }
        return;
    }
    Step step = validate(c);
    if (step == Step::wrong) {
        wentWrong(c, receiver);
        return;
    }
    if (!_discarding) {
        if (_text.size() < kMaximumMessageSize) {
            _text.push_back(static_cast<char>(c));
        } else {
            // Too long to be a message: the rest of it is only followed to its end.
            receiver.textDropped(Receiver::Dropped::tooLong, std::string_view(_text).substr(0, 256));
            _discarding = true;
            std::string().swap(_text);
        }
    }
    if (step == Step::complete) {
        if (!_discarding)
            receiver.messageSplit(_text);
        reset();
    }
}

void Splitter::wentWrong(unsigned char c, Receiver &receiver)
{
    std::string replay = giveUp(receiver);
    if (replay.empty()) {
        take(c, receiver);  // the byte that went wrong may begin the next message
        return;
    }
    replay.push_back(static_cast<char>(c));
    _replays.push_back({std::move(replay), 0});
}

void Splitter::abandon(Receiver &receiver)
{
    // What is read again may be broken off in turn (a message broken off inside one broken off):
    // each round starts further in, and is paid for.
    while (_state != State::outside) {
        std::string replay = giveUp(receiver);
        if (replay.empty())
            return;
        _replays.push_back({std::move(replay), 0});
        feed(std::string_view(), receiver);
    }
}

std::string Splitter::giveUp(Receiver &receiver)
{
    std::string replay;
    if (!_discarding) {
        receiver.textDropped(Receiver::Dropped::malformed, std::string_view(_text).substr(0, 256));
        // The peer may have broken off one message and begun the next inside what was taken for
        // this one: read it again from the next "{", when the bytes read so far pay for it.
        size_t next = _text.find('{', 1);
        if (next != std::string::npos && _text.size() - next <= _credit) {
            _credit -= _text.size() - next;
            replay.assign(_text, next, std::string::npos);
        }
    }
    reset();
    return replay;
}

void Splitter::reset()
{
    _state = State::outside;
    _open.clear();
    _discarding = false;
    _text.clear();
    if (_text.capacity() > 64 * 1024)
        std::string().swap(_text);  // a large text is not kept for the next
}

Splitter::Step Splitter::open(char bracket, State next)
{
    if (_open.size() >= kMaximumDepth)
        return Step::wrong;
    _open.push_back(bracket);
    _state = next;
    return Step::taken;
}

Splitter::Step Splitter::close(char bracket)
{
    if (_open.back() != bracket)
        return Step::wrong;
    _open.pop_back();
    if (_open.empty())
        return Step::complete;
    _state = State::afterValue;
    return Step::taken;
}

Splitter::Step Splitter::beginValue(unsigned char c)
{
    switch (c) {
    case '"':
        _stringIsKey = false;
        _state = State::string;
        return Step::taken;
    case '{':
        return open('{', State::keyOrEnd);
    case '[':
        return open('[', State::valueOrEnd);
    case '-':
        _state = State::numberMinus;
        return Step::taken;
    case '0':
        _state = State::numberZero;
        return Step::taken;
    case 't':
        _literal = "rue";
        break;
    case 'f':
        _literal = "alse";
        break;
    case 'n':
        _literal = "ull";
        break;
    default:
        if (c >= '1' && c <= '9') {
            _state = State::numberInteger;
            return Step::taken;
        }
        return Step::wrong;
    }
    _state = State::literal;
    return Step::taken;
}

Splitter::Step Splitter::validate(unsigned char c)
{
    // A number ends at the first byte that is not part of it; that byte is then taken again as
    // what follows the value.
    for (;;) {
        switch (_state) {
        case State::outside:
            return Step::wrong;
        case State::keyOrEnd:
            if (c == '}')
                return close('{');
            [[fallthrough]];
        case State::key:
            if (ymText::isJSONBlank(c))
                return Step::taken;
            if (c != '"')
                return Step::wrong;
            _stringIsKey = true;
            _state = State::string;
            return Step::taken;
        case State::colon:
            if (ymText::isJSONBlank(c))
                return Step::taken;
            if (c != ':')
                return Step::wrong;
            _state = State::value;
            return Step::taken;
        case State::valueOrEnd:
            if (c == ']')
                return close('[');
            [[fallthrough]];
        case State::value:
            return ymText::isJSONBlank(c) ? Step::taken : beginValue(c);
        case State::afterValue:
            if (ymText::isJSONBlank(c))
                return Step::taken;
            if (c == ',') {
                _state = _open.back() == '{' ? State::key : State::value;
                return Step::taken;
            }
            if (c == '}' || c == ']')
                return close(c == '}' ? '{' : '[');
            return Step::wrong;
        case State::string:
            if (c == '"') {
                _state = _stringIsKey ? State::colon : State::afterValue;
                return Step::taken;
            }
            if (c == '\\') {
                _state = State::escape;
                return Step::taken;
            }
            if (c < 0x20)
                return Step::wrong;
            if (c < 0x80)
                return Step::taken;
            // The first byte of a character of two to four: the ranges that make well-formed UTF-8.
            _low = 0x80;
            _high = 0xbf;
            if (c >= 0xc2 && c <= 0xdf) {
                _pending = 1;
            } else if (c >= 0xe0 && c <= 0xef) {
                _pending = 2;
                if (c == 0xe0)
                    _low = 0xa0;  // no overlong forms
                if (c == 0xed)
                    _high = 0x9f;  // no surrogates
            } else if (c >= 0xf0 && c <= 0xf4) {
                _pending = 3;
                if (c == 0xf0)
                    _low = 0x90;
                if (c == 0xf4)
                    _high = 0x8f;  // nothing past U+10FFFF
            } else {
                return Step::wrong;
            }
            _state = State::utf8;
            return Step::taken;
        case State::utf8:
            if (c < _low || c > _high)
                return Step::wrong;
            _low = 0x80;
            _high = 0xbf;
            if (--_pending == 0)
                _state = State::string;
            return Step::taken;
        case State::escape:
            if (c == 'u') {
                _pending = 4;
                _state = State::unicode;
                return Step::taken;
            }
            if (!std::strchr("\"\\/bfnrt", c) || c == '\0')
                return Step::wrong;
            _state = State::string;
            return Step::taken;
        case State::unicode:
            if (!isHexDigit(c))
                return Step::wrong;
            if (--_pending == 0)
                _state = State::string;
            return Step::taken;
        case State::numberMinus:
            if (c == '0') {
                _state = State::numberZero;
                return Step::taken;
            }
            if (c < '1' || c > '9')
                return Step::wrong;
            _state = State::numberInteger;
            return Step::taken;
        case State::numberInteger:
            if (ymText::isDigit(c))
                return Step::taken;
            [[fallthrough]];
        case State::numberZero:
            if (c == '.') {
                _state = State::numberDot;
                return Step::taken;
            }
            [[fallthrough]];
        case State::numberFraction:
            if (_state == State::numberFraction && ymText::isDigit(c))
                return Step::taken;
            if (c == 'e' || c == 'E') {
                _state = State::numberE;
                return Step::taken;
            }
            _state = State::afterValue;
            continue;
        case State::numberDot:
            if (!ymText::isDigit(c))
                return Step::wrong;
            _state = State::numberFraction;
            return Step::taken;
        case State::numberE:
            if (c == '+' || c == '-') {
                _state = State::numberESign;
                return Step::taken;
            }
            [[fallthrough]];
        case State::numberESign:
            if (!ymText::isDigit(c))
                return Step::wrong;
            _state = State::numberExponent;
            return Step::taken;
        case State::numberExponent:
            if (ymText::isDigit(c))
                return Step::taken;
            _state = State::afterValue;
            continue;
        case State::literal:
            if (c != static_cast<unsigned char>(*_literal))
                return Step::wrong;
            if (*++_literal == '\0')
                _state = State::afterValue;
            return Step::taken;
        }
        return Step::wrong;
    }
}

}  // namespace ySocketFraming

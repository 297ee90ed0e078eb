// Splits gathered socket text into the JSON objects it holds: a peer may send several messages
// that arrive as one text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The top-level {...} objects of the text, in order; text outside them is passed over. An object
// that is not closed by the end of the text goes to `rest` (when given), to be completed by what
// comes next: the sender's boundary rule may deliver a message cut after an inner "}". An object
// that can never be completed (it is not JSON) is passed over up to where it goes wrong, so that
// the messages after it are still found.
std::vector<std::string> splitMessages(std::string_view text, std::string *rest = nullptr);

// Splits gathered socket text into the JSON objects it holds: a peer may send several messages
// that arrive as one text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The top-level {...} objects of the text, in order; text outside them is passed over, and an
// object that is not closed by the end of the text is left out.
std::vector<std::string> splitMessages(std::string_view text);

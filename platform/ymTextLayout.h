// The platform's text system, reduced to the one question the SDK asks of it: how tall is this
// text when wrapped at this width in this font.
#pragma once

#include <string>

namespace ymTextLayout {

// Used height in points of `text` laid out in the font described by `fontDescription` (empty for
// the default), wrapped at `width` points, no padding, unbounded height. 0.0 on failure.
double usedHeight(const std::string &text, const std::string &fontDescription, double width);

}  // namespace ymTextLayout

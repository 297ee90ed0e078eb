// Gestalt, the old system-information call. This platform has none: every selector fails and the
// response stays as it was. Tests put a responder in its place to play a system that answers.
#pragma once

#include <cstdint>
#include <functional>

namespace ymGestalt {

inline constexpr uint32_t kSystemVersionSelector = 0x73797376;  // 'sysv'
inline constexpr int16_t kUndefinedSelectorError = -5551;

// Answers 0 and fills the response, or an error code.
int16_t gestalt(uint32_t selector, int32_t *response);

// Replaces the system's answer (an empty function restores it). For tests.
void setResponderForTesting(std::function<int16_t(uint32_t selector, int32_t *response)> responder);

}  // namespace ymGestalt

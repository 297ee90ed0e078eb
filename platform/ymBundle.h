// Application bundles: a folder "X.app" with Contents/Info.plist and its executable in
// Contents/MacOS/<CFBundleExecutable>.
#pragma once

#include <optional>
#include <string>

namespace ymBundle {

// The bundle's Info.plist path, "<bundle>/Contents/Info.plist".
std::string infoPlistPath(const std::string &bundlePath);

// A string value of the bundle's Info.plist; nothing when the file, or the key, is missing.
std::optional<std::string> infoValue(const std::string &bundlePath, const char *key);

// "<bundle>/Contents/MacOS/<CFBundleExecutable>"; nothing when the bundle names no executable.
std::optional<std::string> executablePath(const std::string &bundlePath);

// The bundle's CFBundleIdentifier.
std::optional<std::string> bundleIdentifier(const std::string &bundlePath);

// The bundle that holds an executable, when the executable lies in "<X.app>/Contents/MacOS/".
std::optional<std::string> bundlePathOfExecutable(const std::string &executablePath);

}  // namespace ymBundle

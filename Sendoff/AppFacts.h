#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

class QVTAppInfo;

/// What service calls need to know of the app. Absent values show as "(null)" in paths and are left
/// out of forms.

std::optional<std::string> bundleIdentifierOf(const QVTAppInfo& appInfo);

/// Identifies this build. Throws `foundation::Exception` if the binary has no identifier.
std::optional<std::string> instanceIdentifierOf(const QVTAppInfo& appInfo);

/// Escaped for a component of a service path.
std::optional<std::string> pathComponent(const std::optional<std::string>& text);

/// From the app's Info dictionary, without defaults; null if missing.
const foundation::Value* infoValueOf(const QVTAppInfo& appInfo, std::string_view key);

/// The same; absent unless it is a string.
std::optional<std::string> infoTextOf(const QVTAppInfo& appInfo, std::string_view key);

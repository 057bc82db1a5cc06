#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "foundation/base/Value.h"

class QVTAppInfo;

/// What the service calls ask of the prepared app. Absent where the app does not have it, so that
/// paths show "(null)" and forms leave the field out.

std::optional<std::string> bundleIdentifierOf(const QVTAppInfo& appInfo);

/// Names this very build of the app. Throws `foundation::Exception` for a binary that has none.
std::optional<std::string> instanceIdentifierOf(const QVTAppInfo& appInfo);

/// The text as a component of a service path; an absent one stays absent.
std::optional<std::string> pathComponent(const std::optional<std::string>& text);

/// The value in the app's Info dictionary as it stands, without any default; null without one.
const foundation::Value* infoValueOf(const QVTAppInfo& appInfo, std::string_view key);

/// The same when it is text.
std::optional<std::string> infoTextOf(const QVTAppInfo& appInfo, std::string_view key);

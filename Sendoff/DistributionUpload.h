#pragma once

#include "foundation/base/Value.h"

class QVTAppInfo;

/// Sends the built .ipa with what the service needs to list it for testers, as one form. Only
/// status 202 is success. Prints its own line in either case; tells testers of the build when
/// `notifications` is true. The .ipa is in memory once, however large the form is.
bool uploadRelease(const QVTAppInfo& appInfo, bool notifications);

/// "iPhone" for the integer 1, "iPad" for 2 and "unknown" for anything else, in order, joined with
/// ","; empty when `families` is null or no array.
std::string deviceFamilyNames(const foundation::Value* families);

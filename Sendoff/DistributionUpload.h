#pragma once

#include "foundation/base/Value.h"

class QVTAppInfo;

/// Uploads the built .ipa with its metadata as one form; testers are notified if `notifications` is
/// true. Only status 202 is success. Prints a line in either case. The form shares the .ipa's
/// memory.
bool uploadRelease(const QVTAppInfo& appInfo, bool notifications);

/// "iPhone" for the integer 1, "iPad" for 2 and "unknown" for anything else, in order, joined with
/// ","; empty when `families` is null or not an array.
std::string deviceFamilyNames(const foundation::Value* families);

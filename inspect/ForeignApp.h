#pragma once

#include <optional>
#include <string>

#include "foundation/app/Bundle.h"
#include "inspect/HandOffCheck.h"

namespace inspect {

/// What somebody took for an app that can be handed off: the finding names what it is instead.
/// Recognised from its name and layout; absent for everything else, apps included.
std::optional<Finding> foreignInput(const std::string& path);

/// The same for an app that could be opened: one for macOS, or a build for a simulator.
std::optional<Finding> foreignApp(const foundation::Bundle& bundle);

}  // namespace inspect

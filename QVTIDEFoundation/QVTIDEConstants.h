#pragma once

#include <string_view>

/// Keys of a project file's objects.
inline constexpr std::string_view QVTIDENameKey = "name";
inline constexpr std::string_view QVTIDEPathKey = "path";
inline constexpr std::string_view QVTIDESourceTreeKey = "sourceTree";
inline constexpr std::string_view QVTIDERootObjectKey = "rootObject";
inline constexpr std::string_view QVTIsaKey = "isa";

/// Values of "sourceTree": what a path is relative to.
inline constexpr std::string_view QVTIDESourceTreeAbsolutePath = "<absolute>";
inline constexpr std::string_view QVTIDESourceTreeRelativeToGroup = "<group>";
inline constexpr std::string_view QVTIDESourceTreeRelativeToProject = "SOURCE_ROOT";
inline constexpr std::string_view QVTIDESoruceTreeRelativeToDeveloperDirectory = "DEVELOPER_DIR";
inline constexpr std::string_view QVTIDESourceTreeRelativeToBuiltProducts = "BUILT_PRODUCTS_DIR";
inline constexpr std::string_view QVTIDESourceTreeRelativeToSDK = "SDKROOT";

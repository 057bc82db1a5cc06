// Real Mach-O files for tests, made by LLVM's tools.
#include <cctype>
#include <cstdlib>

#include "tests/support/MachOFixture.h"
#include "tests/support/TemporaryFolder.h"

namespace test {
namespace {

namespace fs = std::filesystem;

/// A text-based stub of a library that exports nothing.
fs::path makeStub(const fs::path& folder, const std::string& installName,
                  const RealImageOptions& options) {
  const fs::path stub = folder / (fs::path(installName).filename().string() + ".tbd");
  const std::string target = options.architecture + "-" + options.platform;
  writeFile(stub, "--- !tapi-tbd\ntbd-version: 4\ntargets: [ " + target + " ]\ninstall-name: '" +
                      installName + "'\nexports:\n  - targets: [ " + target +
                      " ]\n    symbols: [ _stub ]\n...\n");
  return stub;
}

std::string tripleOf(const RealImageOptions& options) {
  const std::string simulator = "-simulator";
  if (options.platform.ends_with(simulator)) {
    const std::string system =
        options.platform.substr(0, options.platform.size() - simulator.size());
    return options.architecture + "-apple-" + system + options.minimumOS + simulator;
  }
  return options.architecture + "-apple-" + options.platform + options.minimumOS;
}

}  // namespace

std::string llvmTool(std::string_view name) {
  static const std::string folder = [] {
    std::string text = outputOf({"llvm-config", "--bindir"});
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) text.pop_back();
    return text;
  }();
  return folder + "/" + std::string(name);
}

void linkImage(const fs::path& target, const RealImageOptions& options) {
  const std::string source = target.string() + ".c";
  const std::string object = target.string() + ".o";
  writeFile(source, options.source);
  std::vector<std::string> compile = {llvmTool("clang"),
                                      "-target",
                                      tripleOf(options),
                                      "-Os",
                                      "-ffreestanding",
                                      "-c",
                                      source,
                                      "-o",
                                      object};
  compile.insert(compile.end(), options.compilerArguments.begin(), options.compilerArguments.end());
  outputOf(compile);
  std::vector<std::string> link = {llvmTool("ld64.lld"), "-arch",
                                   options.architecture, "-platform_version",
                                   options.platform,     options.minimumOS,
                                   options.sdk,          "-o",
                                   target.string(),      object};
  for (const std::string& dylib : options.dylibs) {
    link.push_back(makeStub(target.parent_path(), dylib, options).string());
  }
  link.insert(link.end(), options.linkerArguments.begin(), options.linkerArguments.end());
  outputOf(link);
}

void lipo(const fs::path& target, const std::vector<fs::path>& thin) {
  std::vector<std::string> arguments = {llvmTool("llvm-lipo"), "-create", "-output",
                                        target.string()};
  for (const fs::path& path : thin) arguments.push_back(path.string());
  outputOf(arguments);
}

void makeDSYM(const fs::path& executable, const fs::path& bundle) {
  // dsymutil looks for a "lipo" on the path when the executable is universal.
  const fs::path tools = bundle.string() + ".tools";
  fs::create_directories(tools);
  if (!fs::exists(tools / "lipo")) fs::create_symlink(llvmTool("llvm-lipo"), tools / "lipo");
  const char* const path = std::getenv("PATH");
  outputOf({"env", "PATH=" + tools.string() + ":" + (path ? path : ""), llvmTool("dsymutil"),
            executable.string(), "-o", bundle.string()});
}

}  // namespace test

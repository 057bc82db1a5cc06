#include "toolchain/codesign_allocate/Program.h"

#include <cstdio>

#include "foundation/base/Text.h"
#include "macho/core/Architectures.h"
#include "toolchain/common/Messages.h"
#include "toolchain/image/MachOFile.h"
#include "toolchain/sign/Signing.h"

namespace toolchain::codesign_allocate {

namespace {

constexpr int kFailed = 1;
constexpr int kWrongCommandLine = 2;

constexpr char kUsage[] =
    "usage: codesign_allocate -i INPUT [-a ARCHITECTURE SIZE]... "
    "[-A CPUTYPE CPUSUBTYPE SIZE]... [-r] -o OUTPUT\n"
    "  -i, -o  file to read and file to write\n"
    "  -a, -A  room for the signature of one slice, in bytes, a multiple of 16;\n"
    "          every slice of the input needs one\n"
    "  -r      take signatures away instead\n";

class CommandLine {
 public:
  explicit CommandLine(const std::vector<std::string>& arguments) : arguments_(arguments) {}

  Result<AllocateOptions> read() {
    while (next_ < arguments_.size()) {
      if (const auto taken = take(arguments_[next_++]); !taken) return taken.error();
    }
    if (options_.input.empty()) return failure("no input file, -i");
    if (options_.output.empty()) return failure("no output file, -o");
    if (options_.remove == !options_.rooms.empty()) {
      return failure(options_.remove ? "-r goes without sizes" : "no size, -a or -A, and no -r");
    }
    return options_;
  }

 private:
  Result<> take(const std::string& option) {
    if (option == "-r") {
      options_.remove = true;
      return {};
    }
    if (option == "-i" || option == "-o") {
      auto& file = option == "-i" ? options_.input : options_.output;
      return value(option).map([&](const std::string& path) { file = path; });
    }
    if (option == "-a") {
      return value(option).andThen([&](const std::string& name) -> Result<> {
        if (macho::architectureNamed(name)) return takeSize(option, name);
        return failure("unknown architecture \"" + name + "\"");
      });
    }
    if (option == "-A") {
      return number(option).andThen([&](std::uint32_t cpuType) {
        return number(option).andThen([&](std::uint32_t cpuSubtype) {
          return takeSize(option, architectureName(cpuType, cpuSubtype));
        });
      });
    }
    return failure("unknown option \"" + option + "\"");
  }

  Result<> takeSize(const std::string& option, const std::string& architecture) {
    return number(option).map([&](std::uint32_t size) {
      options_.rooms.push_back({architecture, size});
    });
  }

  Result<std::uint32_t> number(const std::string& option) {
    return value(option).andThen([](const std::string& text) -> Result<std::uint32_t> {
      if (const auto number = wholeNumber<std::uint32_t>(text)) return *number;
      return failure("\"" + text + "\" is not a number");
    });
  }

  Result<std::string> value(const std::string& option) {
    if (next_ == arguments_.size()) return failure(option + " lacks a value");
    return arguments_[next_++];
  }

  const std::vector<std::string>& arguments_;
  std::size_t next_ = 0;
  AllocateOptions options_;
};

void complain(const foundation::Error& error) {
  std::fprintf(stderr, "codesign_allocate: %s\n",
               foundation::escapingControlCharacters(error.localizedDescription()).c_str());
}

}  // namespace

int run(const std::vector<std::string>& arguments) {
  if (arguments == std::vector<std::string>{"--help"}) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  const auto options = CommandLine(arguments).read();
  if (!options) {
    complain(options.error());
    std::fputs(kUsage, stderr);
    return kWrongCommandLine;
  }
  const auto done = allocate(*options);
  if (done) return 0;
  complain(done.error());
  return kFailed;
}

}  // namespace toolchain::codesign_allocate

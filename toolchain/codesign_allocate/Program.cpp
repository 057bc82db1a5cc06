#include "toolchain/codesign_allocate/Program.h"

#include <charconv>
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

Result<std::uint32_t> number(const std::string& text) {
  std::uint32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, value);
  if (problem != std::errc() || stop != end) return failure("\"" + text + "\" is not a number");
  return value;
}

class CommandLine {
 public:
  explicit CommandLine(const std::vector<std::string>& arguments) : arguments_(arguments) {}

  Result<AllocateOptions> read() {
    while (next_ < arguments_.size()) {
      if (const auto taken = takeOption(); !taken) return taken.error();
    }
    if (options_.input.empty()) return failure("no input file, -i");
    if (options_.output.empty()) return failure("no output file, -o");
    if (options_.remove == !options_.rooms.empty()) {
      return failure(options_.remove ? "-r goes without sizes" : "no size, -a or -A, and no -r");
    }
    return options_;
  }

 private:
  Result<> takeOption() {
    const std::string& option = arguments_[next_++];
    if (option == "-r") {
      options_.remove = true;
      return {};
    }
    if (option == "-i" || option == "-o") return takeFile(option);
    if (option == "-a") return takeNamed();
    if (option == "-A") return takeNumbered();
    return failure("unknown option \"" + option + "\"");
  }

  Result<std::string> value(const std::string& option) {
    if (next_ == arguments_.size()) return failure(option + " lacks a value");
    return arguments_[next_++];
  }

  Result<> takeFile(const std::string& option) {
    auto path = value(option);
    if (!path) return path.error();
    (option == "-i" ? options_.input : options_.output) = std::move(*path);
    return {};
  }

  Result<> takeNamed() {
    const auto name = value("-a");
    if (!name) return name.error();
    if (!macho::architectureNamed(*name)) {
      return failure("unknown architecture \"" + *name + "\"");
    }
    return takeSize("-a", *name);
  }

  Result<> takeNumbered() {
    std::uint32_t cpuType = 0;
    std::uint32_t cpuSubtype = 0;
    for (std::uint32_t* part : {&cpuType, &cpuSubtype}) {
      const auto text = value("-A");
      if (!text) return text.error();
      const auto parsed = number(*text);
      if (!parsed) return parsed.error();
      *part = *parsed;
    }
    return takeSize("-A", architectureName(cpuType, cpuSubtype));
  }

  Result<> takeSize(const std::string& option, const std::string& architecture) {
    const auto text = value(option);
    if (!text) return text.error();
    const auto size = number(*text);
    if (!size) return size.error();
    options_.rooms.push_back({architecture, *size});
    return {};
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

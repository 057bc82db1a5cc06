#include "toolchain/codesign/Options.h"

#include <algorithm>
#include <array>
#include <string_view>

#include "toolchain/common/Messages.h"

namespace toolchain::codesign {

namespace {

using foundation::Result;

/// The command line as read, before it is known what to do.
struct Given : Options {
  std::optional<std::string> sign;
  bool verify = false;
  bool display = false;
  bool help = false;
};

struct Known {
  std::string_view name;
  /// 0: it has no letter.
  char letter = 0;
  /// Where the value of an option goes that needs one; null for any other.
  std::optional<std::string> Given::*value = nullptr;
  /// What an option without a value turns on; null for one that only confirms the default.
  bool Given::*flag = nullptr;
};
/// The one option whose value may be left out.
constexpr std::string_view kVerbose = "verbose";

constexpr std::array<Known, 13> kOptions{{
    {"sign", 's', &Given::sign},
    {"verify", 0, nullptr, &Given::verify},
    {"display", 'd', nullptr, &Given::display},
    {"help", 0, nullptr, &Given::help},
    {kVerbose, 'v'},
    {"force", 'f', nullptr, &Given::force},
    {"deep", 0, nullptr, &Given::deep},
    {"strict"},
    {"all-architectures"},
    {"keychain", 0, &Given::keychain},
    {"entitlements", 0, &Given::entitlements},
    {"resource-rules", 0, &Given::resourceRules},
    {"requirements", 'r', &Given::requirements},
}};

class Parser {
 public:
  explicit Parser(const std::vector<std::string>& arguments) : arguments_(arguments) {}

  Result<Options> run() {
    while (next_ < arguments_.size()) {
      const std::string_view argument = arguments_[next_++];
      Result<> read;
      if (argument == "--") {
        for (; next_ < arguments_.size(); ++next_) given_.operands.push_back(arguments_[next_]);
      } else if (argument.starts_with("--")) {
        read = longOption(argument.substr(2));
      } else if (argument.size() > 1 && argument[0] == '-') {
        read = letters(argument.substr(1));
      } else {
        given_.operands.emplace_back(argument);
      }
      if (!read) return read.error();
    }
    return finished();
  }

 private:
  Result<> longOption(std::string_view text) {
    const auto equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    const auto* known = std::ranges::find(kOptions, name, &Known::name);
    if (known == kOptions.end())
      return failure("unrecognized option \"--" + std::string(name) + "\"");
    if (equals == std::string_view::npos) return take(*known, std::nullopt);
    if (!known->value && name != kVerbose) {
      return failure("option \"--" + std::string(name) + "\" takes no value");
    }
    return take(*known, std::string(text.substr(equals + 1)));
  }

  /// What follows a letter that needs a value is its value.
  Result<> letters(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto* known = std::ranges::find(kOptions, text[i], &Known::letter);
      if (known == kOptions.end()) {
        return failure("unrecognized option \"-" + std::string(1, text[i]) + "\"");
      }
      if (known->value && i + 1 < text.size()) return take(*known, std::string(text.substr(i + 1)));
      if (auto taken = take(*known, std::nullopt); !taken) return taken;
    }
    return {};
  }

  Result<> take(const Known& known, std::optional<std::string> value) {
    if (known.value && !value) {
      if (next_ == arguments_.size()) {
        return failure("option \"--" + std::string(known.name) + "\" needs a value");
      }
      value = arguments_[next_++];
    }
    if (known.name == kVerbose) return addVerbosity(value);
    if (known.value) given_.*known.value = std::move(value);
    if (known.flag) given_.*known.flag = true;
    return {};
  }

  Result<> addVerbosity(const std::optional<std::string>& value) {
    const auto amount = value ? wholeNumber<int>(*value) : 1;
    if (!amount || *amount < 0) {
      return failure("option \"--verbose\": \"" + *value + "\" is not a number");
    }
    given_.verbosity = std::min(given_.verbosity + std::min(*amount, 9), 9);
    return {};
  }

  Result<Options> finished() {
    if (given_.help) return Options{};
    const int count = (given_.sign ? 1 : 0) + (given_.verify ? 1 : 0) + (given_.display ? 1 : 0);
    if (count > 1) return failure("only one of --sign, --verify and --display can be done at once");
    if (count == 0 && given_.verbosity == 0)
      return failure("nothing to do: no --sign, --verify or --display");
    given_.operation = given_.sign      ? Operation::sign
                       : given_.display ? Operation::display
                                        : Operation::verify;
    given_.identity = given_.sign.value_or("");
    if (count == 0) --given_.verbosity;
    if (!given_.display) {
      if (given_.resourceRules)
        return failure("option \"--resource-rules\" goes with --display only");
      if (given_.requirements) return failure("option \"--requirements\" goes with --display only");
    }
    if (given_.operands.empty()) return failure("no code given");
    return Options(std::move(given_));
  }

  const std::vector<std::string>& arguments_;
  std::size_t next_ = 0;
  Given given_;
};

}  // namespace

Result<Options> parseOptions(const std::vector<std::string>& arguments) {
  return Parser(arguments).run();
}

std::string_view usage() {
  return "usage: codesign --sign IDENTITY [--force] [--all-architectures] [--keychain PATH]\n"
         "                [--entitlements FILE] [--deep] CODE...\n"
         "       codesign --verify [-v] [--deep] CODE...          (also: codesign -v, -vv)\n"
         "       codesign --display [-v]... [-r-] [--resource-rules FILE]\n"
         "                [--entitlements [:]FILE] CODE...\n"
         "\n"
         "CODE is an app, an extension, a framework, or a Mach-O file.\n"
         "  -s, --sign IDENTITY     sign; 40-digit SHA-1 of the certificate, its common name or a\n"
         "                          part of one that only one identity has, \"-\" for ad hoc\n"
         "  -f, --force             replace an existing signature\n"
         "  --all-architectures     sign every architecture (always done)\n"
         "  --keychain PATH         PEM file, PKCS #12 file, or a folder of such files\n"
         "                          (default: ~/Library/Keychains)\n"
         "  --entitlements FILE     sign: property list to sign with; display: where to write "
         "what\n"
         "                          was signed, \":FILE\" without blob header, \"-\" standard "
         "output\n"
         "  --deep                  sign or verify nested code too\n"
         "  --verify                check; -v, -vv alone do the same\n"
         "  --strict                accepted: verification is always strict\n"
         "  -d, --display           say what is signed; up to -vvv says more\n"
         "  --resource-rules FILE   display: where to write the seal's rules\n"
         "  -r, --requirements FILE display: where to write the requirements, \"-\" standard "
         "output\n"
         "  -v, --verbose[=N]       say more\n"
         "\n"
         "Status: 0 done; 1 failed; 2 wrong command line; 3 valid, but the designated requirement\n"
         "is not met. SOURCE_DATE_EPOCH, when set, is the signing time.\n";
}

}  // namespace toolchain::codesign

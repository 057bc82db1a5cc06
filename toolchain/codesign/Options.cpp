#include "toolchain/codesign/Options.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>

#include "toolchain/common/Messages.h"

namespace toolchain::codesign {

namespace {

using foundation::Result;

struct Known {
  std::string_view name;
  /// 0: it has no letter.
  char letter;
  enum class Value { none, required, optional } value;
};

constexpr std::array<Known, 13> kOptions{{
    {"sign", 's', Known::Value::required},
    {"verify", 0, Known::Value::none},
    {"display", 'd', Known::Value::none},
    {"help", 0, Known::Value::none},
    {"verbose", 'v', Known::Value::optional},
    {"force", 'f', Known::Value::none},
    {"deep", 0, Known::Value::none},
    {"strict", 0, Known::Value::none},
    {"all-architectures", 0, Known::Value::none},
    {"keychain", 0, Known::Value::required},
    {"entitlements", 0, Known::Value::required},
    {"resource-rules", 0, Known::Value::required},
    {"requirements", 'r', Known::Value::required},
}};

class Parser {
 public:
  explicit Parser(const std::vector<std::string>& arguments) : arguments_(arguments) {}

  Result<Options> run() {
    while (next_ < arguments_.size()) {
      const std::string& argument = arguments_[next_++];
      if (argument == "--") {
        for (; next_ < arguments_.size(); ++next_) addOperand(arguments_[next_]);
      } else if (argument.starts_with("--")) {
        if (auto read = longOption(std::string_view(argument).substr(2)); !read) {
          return read.error();
        }
      } else if (argument.size() > 1 && argument[0] == '-') {
        if (auto read = letters(std::string_view(argument).substr(1)); !read) return read.error();
      } else {
        addOperand(argument);
      }
    }
    return finished();
  }

 private:
  void addOperand(const std::string& operand) { options_.operands.push_back(operand); }

  Result<> longOption(std::string_view text) {
    const auto equals = text.find('=');
    const std::string_view name = text.substr(0, equals);
    const auto known = std::find_if(kOptions.begin(), kOptions.end(),
                                    [name](const Known& each) { return each.name == name; });
    if (known == kOptions.end())
      return failure("unrecognized option \"--" + std::string(name) + "\"");
    std::optional<std::string> value;
    if (equals != std::string_view::npos) value = text.substr(equals + 1);
    if (value && known->value == Known::Value::none) {
      return failure("option \"--" + std::string(name) + "\" takes no value");
    }
    return take(*known, std::move(value));
  }

  /// What follows a letter that needs a value is its value.
  Result<> letters(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
      const auto known = std::find_if(kOptions.begin(), kOptions.end(),
                                      [&](const Known& each) { return each.letter == text[i]; });
      if (known == kOptions.end()) {
        return failure("unrecognized option \"-" + std::string(1, text[i]) + "\"");
      }
      if (known->value != Known::Value::required) {
        if (auto taken = take(*known, std::nullopt); !taken) return taken;
        continue;
      }
      std::optional<std::string> value;
      if (i + 1 < text.size()) value = text.substr(i + 1);
      return take(*known, std::move(value));
    }
    return {};
  }

  Result<> take(const Known& known, std::optional<std::string> value) {
    if (known.value == Known::Value::required && !value) {
      if (next_ == arguments_.size()) {
        return failure("option \"--" + std::string(known.name) + "\" needs a value");
      }
      value = arguments_[next_++];
    }
    if (known.name == "verbose") return addVerbosity(value);
    if (value) {
      textOf(known.name) = *std::move(value);
    } else if (bool* flag = flagOf(known.name)) {
      *flag = true;
    }
    return {};
  }

  Result<> addVerbosity(const std::optional<std::string>& value) {
    int amount = 1;
    if (value) {
      const auto [end, status] =
          std::from_chars(value->data(), value->data() + value->size(), amount);
      if (status != std::errc() || end != value->data() + value->size() || amount < 0) {
        return failure("option \"--verbose\": \"" + *value + "\" is not a number");
      }
    }
    verbose_ = std::min(verbose_ + std::min(amount, 9), 9);
    return {};
  }

  std::optional<std::string>& textOf(std::string_view name) {
    if (name == "sign") return identity_;
    if (name == "keychain") return options_.keychain;
    if (name == "entitlements") return options_.entitlements;
    if (name == "resource-rules") return options_.resourceRules;
    return options_.requirements;
  }

  /// Null for an option that only confirms the default.
  bool* flagOf(std::string_view name) {
    if (name == "verify") return &verify_;
    if (name == "display") return &display_;
    if (name == "help") return &help_;
    if (name == "force") return &options_.force;
    if (name == "deep") return &options_.deep;
    return nullptr;
  }

  Result<Options> finished() {
    if (help_) return Options{};
    const int count = (identity_ ? 1 : 0) + (verify_ ? 1 : 0) + (display_ ? 1 : 0);
    if (count > 1) return failure("only one of --sign, --verify and --display can be done at once");
    if (count == 0 && verbose_ == 0)
      return failure("nothing to do: no --sign, --verify or --display");
    options_.verbosity = verbose_;
    if (identity_) {
      options_.operation = Operation::sign;
      options_.identity = *identity_;
    } else if (display_) {
      options_.operation = Operation::display;
    } else {
      options_.operation = Operation::verify;
      if (!verify_) --options_.verbosity;
    }
    if (options_.operation != Operation::display) {
      if (options_.resourceRules)
        return failure("option \"--resource-rules\" goes with --display only");
      if (options_.requirements)
        return failure("option \"--requirements\" goes with --display only");
    }
    if (options_.operands.empty()) return failure("no code given");
    return std::move(options_);
  }

  const std::vector<std::string>& arguments_;
  std::size_t next_ = 0;
  Options options_;
  std::optional<std::string> identity_;
  int verbose_ = 0;
  bool verify_ = false;
  bool display_ = false;
  bool help_ = false;
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

#include "toolchain/codesign/Program.h"

#include <unistd.h>

#include "foundation/base/Text.h"
#include "foundation/base/WriteAll.h"
#include "foundation/crypto/Keychain.h"
#include "foundation/file/FileManager.h"
#include "foundation/file/MappingGuard.h"
#include "toolchain/codesign/Options.h"
#include "toolchain/codesign/Output.h"
#include "toolchain/common/Messages.h"
#include "toolchain/common/SignatureFault.h"
#include "toolchain/display/SignatureReport.h"
#include "toolchain/display/SigningInputs.h"
#include "toolchain/sign/Signing.h"
#include "toolchain/signature/Blobs.h"
#include "toolchain/verify/Verification.h"

namespace toolchain::codesign {

namespace {

using foundation::Error;

constexpr int kFailed = 1;
constexpr int kWrongCommandLine = 2;
constexpr std::string_view kStandardOutput = "-";

class Run {
 public:
  explicit Run(const Options& options) : options_(options) {}

  int all() {
    int status = 0;
    for (const auto& code : options_.operands) {
      int own = one(code);
      const auto intact = foundation::MappingGuard::checkAll();
      if (own == 0 && !intact) own = failed(code, intact.error());
      if (status == 0) status = own;
    }
    return status;
  }

 private:
  int one(const std::string& code) {
    switch (options_.operation) {
      case Operation::sign:
        return sign(code);
      case Operation::verify:
        return verify(code);
      case Operation::display:
        return display(code);
      case Operation::help:
        break;
    }
    return 0;
  }

  int failed(const std::string& code, const Error& error) {
    errors_.line(code + ": " + error.localizedDescription());
    return kFailed;
  }

  int statusOf(const std::string& code, const foundation::Result<>& done) {
    return done ? 0 : failed(code, done.error());
  }

  int sign(const std::string& code) {
    const auto done = sourceDateEpoch().andThen([&](const auto& time) {
      return toolchain::sign({.code = code,
                              .identity = options_.identity,
                              .keychain = options_.keychain,
                              .entitlements = options_.entitlements,
                              .force = options_.force,
                              .deep = options_.deep,
                              .signingTime = time,
                              .note = [this](const std::string& text) { errors_.line(text); }});
    });
    if (done) return 0;
    errors_.line(done.error().localizedDescription());
    return kFailed;
  }

  int verify(const std::string& code) {
    const auto verdict = toolchain::verify({.code = code, .deep = options_.deep});
    if (verdict.status != 0 || options_.verbosity > 0) {
      for (const auto& statement : verdict.statements) errors_.line(statement);
    }
    for (const auto& file : verdict.files) output_.line(file);
    return verdict.status;
  }

  int display(const std::string& code) {
    int status = 0;
    const auto lines = signatureReport({.code = code, .verbosity = options_.verbosity});
    if (lines) {
      for (const auto& line : *lines) errors_.line(line);
    } else {
      status = failed(code, lines.error());
    }
    if (options_.requirements && lines) status = std::max(status, displayRequirements(code));
    if (options_.resourceRules || options_.entitlements) {
      status = std::max(status, exportInputs(code, lines.ok()));
    }
    return status;
  }

  int displayRequirements(const std::string& code) {
    return statusOf(code, requirementsReport(code).andThen([this](const auto& lines) {
      return save(foundation::joined(lines, "\n") + "\n", *options_.requirements);
    }));
  }

  /// Unsigned code has both files too. `isDescribed` is false when its fault was already printed.
  int exportInputs(const std::string& code, bool isDescribed) {
    const auto inputs = signingInputs(code);
    if (!inputs) return isDescribed ? failed(code, inputs.error()) : kFailed;
    // A signature will be made from what is saved here.
    const auto saved = foundation::MappingGuard::checkAll().andThen([&] {
      return options_.resourceRules ? save(inputs->resourceRules, *options_.resourceRules)
                                    : foundation::Result<>();
    });
    return statusOf(code, saved.andThen([&] {
      return options_.entitlements ? saveEntitlements(inputs->entitlements, *options_.entitlements)
                                   : foundation::Result<>();
    }));
  }

  static foundation::Result<> saveEntitlements(std::string_view text, const std::string& target) {
    if (target.starts_with(':')) return save(text, target.substr(1));
    return save(foundation::textOf(makeBlob(magic::kEntitlements, foundation::bytesOf(text))),
                target);
  }

  static foundation::Result<> save(std::string_view text, const std::string& path) {
    if (path != kStandardOutput) {
      return foundation::FileManager::writeAtomically(foundation::bytesOf(text), path);
    }
    const int error = foundation::writeAll(STDOUT_FILENO, text);
    if (error == 0) return {};
    return foundation::posixError(error, "cannot write to standard output");
  }

  const Options& options_;
  LineOutput output_{STDOUT_FILENO};
  LineOutput errors_{STDERR_FILENO};
};

}  // namespace

int run(const std::vector<std::string>& arguments) {
  const auto options = parseOptions(arguments);
  if (!options) {
    LineOutput errors(STDERR_FILENO);
    errors.line("codesign: " + options.error().localizedDescription());
    errors.line("Try \"codesign --help\".");
    return kWrongCommandLine;
  }
  if (options->operation == Operation::help) {
    return foundation::writeAll(STDOUT_FILENO, usage()) == 0 ? 0 : kFailed;
  }
  const foundation::KeychainSession keychains;
  return Run(*options).all();
}

}  // namespace toolchain::codesign

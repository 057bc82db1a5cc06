// Where the API key, the build secret and a keychain's passphrase go in a run: every system call
// of the tool and of all its children is recorded and searched, and every file that is left.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/MachOFixture.h"
#include "tests/support/StandInService.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::HasSubstr;
using testing::IsEmpty;

const std::string kCanaryKey = "ca9a51e5ca9a51e5ca9a51e5ca9a51e5ca9a51e5";
const std::string kCanarySecret = "ca9a5ec3e7ca9a5ec3e7";
const std::string kCanaryPassphrase = "canary sings in the mine";

struct SecretsCase {
  const char* name;
  /// Between the secret and the endpoint.
  std::vector<std::string> arguments;
  int status = 1;
  /// What shows that the run came as far as it was meant to.
  const char* line;
  std::string endpoint = {};
  std::map<std::string, std::string> environment = {};
  std::string key = kCanaryKey;
  std::string secret = kCanarySecret;
};

bool has(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

class SecretsTest : public testing::Test {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the leak check of a tool with an environment of its own fails when traced";
#endif
    if (runCommand({"strace", "-o", "/dev/null", "true"}).status != 0) {
      GTEST_SKIP() << "no process may be traced here";
    }
    fs::remove(place_.home() / "Library/Keychains/identity.pem");
    const Family& family = signingFamily();
    std::ofstream(keychain_, std::ios::binary)
        << makePKCS12(family.leaf, {family.intermediate, family.root},
                      {.passphrase = kCanaryPassphrase})
               .text();
    std::ofstream(keychain_.string() + ".password") << kCanaryPassphrase << "\n";
    std::ofstream(place_.files() / "notes.txt") << "notes";
    std::ofstream(place_.files() / "text.ipa") << "no archive";
    std::ofstream(place_.files() / "authority.pem") << authority_.certificate();
    place_.environment()["CODE_SIGN_KEYCHAIN"] = keychain_;
    place_.environment()["SSL_CERT_FILE"] = place_.files() / "authority.pem";
  }

  /// A folder for the front of PATH, with a `codesign` that fails and says so.
  fs::path failingSigner() {
    const fs::path tools = place_.files() / "tools";
    fs::create_directory(tools);
    std::ofstream(tools / "codesign") << "#!/bin/sh\necho no luck >&2\nexit 9\n";
    fs::permissions(tools / "codesign", fs::perms(0755));
    return tools.string() + ":" + place_.environment()["PATH"];
  }

  std::vector<SecretsCase> cases();
  void run(const SecretsCase& c);
  void expectNoneIn(const SecretsCase& c, std::string_view text, const std::string& where) const;
  void searchTrace(const SecretsCase& c, const std::string& trace) const;
  void searchFiles(const SecretsCase& c) const;

  Workplace place_;
  fs::path keychain_ = place_.files() / "identity.p12";
  fs::path keysOfConnections_ = place_.files() / "keys.log";
  TLSAuthority authority_;
  StandInService service_{{.apiKey = kCanaryKey, .buildSecret = kCanarySecret}};
  StandInService secure_{{.identity = authority_.issue()}};
  LoopbackServer elsewhere_{alwaysAnswer(httpAnswer(407, "", "Proxy-Authenticate: Basic\r\n"))};
};

std::vector<SecretsCase> SecretsTest::cases() {
  const fs::path app = makeApp(place_.files());
  const std::string ipa = packIPA(app, place_.files() / "Example.ipa");
  const std::string archive = makeArchive(place_.files() / "Example.xcarchive", app);
  const std::string text = place_.files() / "text.ipa";
  const std::string wrong = place_.files() / "wrong.p12";
  fs::copy_file(keychain_, wrong);
  service_.answer(ServiceCall::notes, [this](const ReceivedRequest& request, Peer& peer) {
    peer.send(httpAnswer(307, "", "Location: " + elsewhere_.url(request.target) + "\r\n"));
  });
  secure_.answer(ServiceCall::upload, [](const ReceivedRequest&, Peer& peer) { peer.reset(); });
  return {
      {"accepted", {"-ipaPath", ipa, "-emails", "a@x.org", "-debug", "YES"}, 0, "Uploaded"},
      {"accepted from an archive",
       {"-debug", "YES"},
       0,
       "Uploaded",
       {},
       {{"ARCHIVE_PRODUCTS_PATH", archive}}},
      {"unknown option", {"-foo", "x"}, 1, "Invalid argument provided, -foo"},
      {"malformed key", {}, 1, "must be API Key, not short", {}, {}, "short"},
      {"malformed secret", {}, 1, "must be build secret, not xyz", {}, {}, kCanaryKey, "xyz"},
      {"not an archive", {"-ipaPath", text, "-debug", "YES"}, 1, "Unable to inflate"},
      {"wrong passphrase",
       {"-ipaPath", ipa},
       1,
       "Unable to find a certificate",
       {},
       {{"CODE_SIGN_KEYCHAIN", wrong}}},
      {"signer fails", {"-ipaPath", ipa}, 1, "Code=-10", {}, {{"PATH", failingSigner()}}},
      {"elsewhere",
       {"-ipaPath", ipa, "-notesPath", place_.files() / "notes.txt"},
       1,
       "Unable to add release notes. Response code: 307"},
      {"nobody there",
       {"-ipaPath", ipa, "-debug", "YES"},
       1,
       "Response code: 0",
       "http://127.0.0.1:1"},
      {"no URL", {"-ipaPath", ipa}, 1, "Response code: 0", "http://exa mple.org"},
      {"reset over TLS",
       {"-ipaPath", ipa},
       1,
       "Unable to submit build",
       secure_.url(),
       {{"SSLKEYLOGFILE", keysOfConnections_}}},
      {"not trusted",
       {"-ipaPath", ipa},
       1,
       "Response code: 0",
       secure_.url(),
       {{"SSL_CERT_FILE", "/dev/null"}}},
      {"proxy wants a password",
       {"-ipaPath", ipa},
       1,
       "Response code: 0",
       "https://service.invalid",
       {{"https_proxy", elsewhere_.url()}}},
  };
}

void SecretsTest::expectNoneIn(const SecretsCase& c, std::string_view text,
                               const std::string& where) const {
  for (const std::string& canary : {c.key, c.secret, kCanaryPassphrase}) {
    if (!canary.starts_with("ca")) continue;  // the malformed one is named
    EXPECT_FALSE(has(text, canary)) << canary << " in " << where;
  }
}

/// One system call a line. Reading is no leak, being started with key and secret is how the tool
/// is used, and the service on its own port is meant to get both in the clear.
void SecretsTest::searchTrace(const SecretsCase& c, const std::string& trace) const {
  std::istringstream lines(trace);
  const std::string service = "->127.0.0.1:" + std::to_string(service_.server().port()) + "]";
  bool started = false;
  for (std::string line; std::getline(lines, line);) {
    const std::string call = line.substr(line.find_first_not_of("0123456789 "));
    if (call.starts_with("execve(\"" + kTool + "\"") && !std::exchange(started, true)) continue;
    if (call.starts_with("read") || call.starts_with("pread") || call.starts_with("recv")) continue;
    if (call.starts_with("send") && has(call.substr(0, 120), service) &&
        !has(call, kCanaryPassphrase)) {
      continue;
    }
    expectNoneIn(c, call, call.substr(0, 300));
  }
  EXPECT_TRUE(started) << "nothing was recorded";
}

void SecretsTest::searchFiles(const SecretsCase& c) const {
  for (const auto& root : {place_.temporary(), place_.home(), place_.files()}) {
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
      if (!entry.is_regular_file() || entry.path().extension() == ".password") continue;
      expectNoneIn(c, contentsOf(entry.path()), entry.path());
    }
  }
}

void SecretsTest::run(const SecretsCase& c) {
  const TemporaryFolder records;
  RunOptions options{.command = {"/usr/bin/strace", "-f", "-v", "-yy", "-s", "1000000", "-o",
                                 records / "trace", kTool, c.key, c.secret},
                     .environment = place_.environment()};
  auto& command = options.command;
  command.insert(command.end(), c.arguments.begin(), c.arguments.end());
  const std::string endpoint = c.endpoint.empty() ? service_.url() : c.endpoint;
  command.insert(command.end(), {"-QuorvantileAPIEndpoint", endpoint});
  for (const auto& [name, value] : c.environment) options.environment[name] = value;

  const RunResult result = runProgram(options);
  EXPECT_EQ(result.status, c.status) << result.output;
  EXPECT_THAT(result.output, HasSubstr(c.line)) << result.errors;
  expectNoneIn(c, result.output, "standard output");
  expectNoneIn(c, result.errors, "standard error");
  searchTrace(c, contentsOf(records / "trace"));
  searchFiles(c);
}

TEST_F(SecretsTest, StayWhereTheyBelong) {
  for (const SecretsCase& c : cases()) {
    SCOPED_TRACE(c.name);
    run(c);
  }
  EXPECT_THAT(service_.complaints(), IsEmpty());
  EXPECT_GT(elsewhere_.connectionCount(), 0u) << "the proxy was not asked";
  EXPECT_FALSE(secure_.calls().empty());
  EXPECT_FALSE(fs::exists(keysOfConnections_));
}

TEST_F(SecretsTest, NoProgramThatHoldsOneDumpsCore) {
  const fs::path build = SENDOFF_BUILD_FOLDER;
  for (const fs::path& program :
       {fs::path(kTool), build / "bin/sendoff-inspect", build / "libexec/sendoff/codesign"}) {
    const fs::path trace = place_.files() / "trace";
    runCommand({"strace", "-e", "trace=prlimit64", "-o", trace, program});
    EXPECT_THAT(contentsOf(trace), HasSubstr("RLIMIT_CORE, {rlim_cur=1, rlim_max=1}, NULL) = 0"))
        << program;
  }
}

}  // namespace
}  // namespace test

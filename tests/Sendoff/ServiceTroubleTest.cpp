// A service that does not take the build, or misbehaves.
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/StandInService.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::AllOf;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

const std::string kBanner = "Quorvantile.framework/sendoff 1.3.6 (19)";

const std::string kCheckApp =
    " We couldn't validate app with bundle ID com.example.app in the selected organization, so "
    "make sure you've first added your app through the Quorvantile app.";
const std::string kCheckKeys =
    " You can check that your API key and build secret are correct by going "
    "here: " SENDOFF_SETTINGS_PAGE;

/// What a run says whose validation got this status.
std::vector<std::string> notValidated(int status) {
  return {kBanner,
          "Unable to find application in Quorvantile. Response code: " + std::to_string(status),
          "Does this app belong to this org?",
          kCheckApp,
          kCheckKeys,
          " Then select the org and click on API key or build secret underneath the org name."};
}

std::string errorMessage(const std::string& json) {
  return httpAnswer(422, json, "Content-Type: application/json\r\n");
}

class ServiceTroubleTest : public testing::Test {
 protected:
  /// A run with notes and testers against this address.
  RunResult run(const std::string& endpoint) {
    std::ofstream(place_.files() / "notes.txt") << "notes";
    return place_.run({"-ipaPath", ipa_, "-notesPath", place_.files() / "notes.txt", "-emails",
                       "a@x.org", "-QuorvantileAPIEndpoint", endpoint});
  }
  void expectCleanedUp() {
    for (const std::string& name : place_.leftovers()) {
      EXPECT_THAT(name, testing::Not(testing::EndsWith(".ipa")));
      EXPECT_THAT(name, testing::Not(testing::EndsWith(".app")));
    }
  }

  Workplace place_;
  fs::path ipa_ = packIPA(signedApp(makeApp(place_.files())), place_.files() / "Example.ipa");
};

TEST_F(ServiceTroubleTest, AnswersThatEndTheRun) {
  const std::string notesDone = "Added Release Notes Successfully 202";
  const std::string testersDone = "Added Testers/Groups Successfully 200";
  const std::string notesFailed = "Failed to add notes to the release";
  const std::string testersFailed = "Failed to add testers/groups to the release";
  const std::string uploadFailed = "Failed to upload binary";
  const std::string deep = "{\"error\":" + std::string(100000, '[');
  const std::string megabytes =
      "{\"padding\":\"" + std::string(8 << 20, 'x') + "\",\"error\":{\"message\":\"found\"}}";
  struct Case {
    const char* name;
    ServiceCall call;
    std::string answer;
    std::vector<std::string> lines;
    /// On standard error, after the status; empty: there is no line.
    std::string said = {};
  };
  const auto validate = ServiceCall::validate;
  const auto notes = ServiceCall::notes;
  const auto testers = ServiceCall::testers;
  const auto upload = ServiceCall::upload;
  for (const Case& c : std::vector<Case>{
           {"201", validate, httpAnswer(201), notValidated(201)},
           {"204", validate, "HTTP/1.1 204 No Content\r\n\r\n", notValidated(204)},
           {"404", validate, httpAnswer(404, "<html>\n<TITLE> 404 Not Found\n</title>"),
            notValidated(404), ": 404 Not Found"},
           {"401 with a challenge", validate,
            httpAnswer(401, "", "WWW-Authenticate: Basic realm=\"x\"\r\n"), notValidated(401)},
           {"a message",
            notes,
            errorMessage(R"({"error":{"message":"too \"long\" %@"}})"),
            {"Unable to add release notes: too \"long\" %@", notesFailed},
            ": too \"long\" %@"},
           {"a forged line and what moves a terminal's cursor",
            notes,
            errorMessage("{\"error\":{\"message\":\"no\\r\\n2026-01-01 00:00:00.000 sendoff "
                         "Quorvantile: Uploaded Successfully 202\\u001b[2J\\u009b2J\"}}"),
            {"Unable to add release notes: no\\r\\n2026-01-01 00:00:00.000 sendoff Quorvantile: "
             "Uploaded Successfully 202\\u001b[2J\\u009b2J",
             notesFailed},
            ": no"},
           {"a forged line in a list",
            notes,
            errorMessage(R"({"error":{"message":["no"]}})"),
            {R"(Unable to add release notes: (\n    no\n))", notesFailed},
            ": no"},
           {"error is text",
            notes,
            errorMessage(R"({"error":"no"})"),
            {"Unable to add release notes. Response code: 422", notesFailed},
            ": no"},
           {"a list of errors and a time to wait",
            notes,
            httpAnswer(503, R"({"errors":["busy",{"detail":"until\u009b\t5"}]})",
                       "Retry-After: 120\r\n"),
            {"Unable to add release notes. Response code: 503", notesFailed},
            R"(: busy; until\u009b\t5 (Retry-After: 120))"},
           {"what it was sent, at length",
            notes,
            httpAnswer(400, "\r\n key " + kKey + std::string(399, 'x') + "\r\nmore"),
            {"Unable to add release notes. Response code: 400", notesFailed},
            ": key …" + std::string(393, 'x') + "…"},
           {"no message",
            notes,
            errorMessage(R"({"error":{"code":7}})"),
            {"Unable to add release notes. Response code: 422", notesFailed},
            R"(: {"error":{"code":7}})"},
           {"message is null",
            notes,
            errorMessage(R"({"error":{"message":null}})"),
            {"Unable to add release notes: <null>", notesFailed},
            R"(: {"error":{"message":null}})"},
           {"an array",
            notes,
            errorMessage("[1]"),
            {"Unable to add release notes. Response code: 422", notesFailed},
            ": [1]"},
           {"deep nesting",
            notes,
            errorMessage(deep),
            {"Unable to add release notes. Response code: 422", notesFailed},
            ": " + deep.substr(0, 400) + "…"},
           {"megabytes",
            notes,
            errorMessage(megabytes),
            {"Unable to add release notes: found", notesFailed},
            ": found"},
           {"garbage body",
            testers,
            httpAnswer(500, std::string("\xff\xfe\0\1", 4)),
            {notesDone, "Unable to add testers. Response code: 500", testersFailed},
            ": \ufffd\ufffd\\u0000\\u0001"},
           {"no longer there",
            testers,
            httpAnswer(410, R"({"error":{"message":"gone"}})"),
            {notesDone, "Unable to add testers: gone", testersFailed},
            ": gone"},
           {"200 is no success here",
            upload,
            httpAnswer(200),
            {notesDone, testersDone, "Unable to submit build. Response code: 200", uploadFailed}},
           {"413",
            upload,
            httpAnswer(413, R"({"error":{"message":"too large"}})"),
            {notesDone, testersDone, "Unable to submit build: too large", uploadFailed},
            ": too large"},
       }) {
    SCOPED_TRACE(c.name);
    StandInService service;
    service.answer(notes, httpAnswer(202));
    service.answer(c.call, c.answer);
    const auto result = run(service.url());
    EXPECT_EQ(result.status, 1);
    std::vector<std::string> lines = c.lines;
    if (c.call != validate) lines.insert(lines.begin(), kBanner);
    EXPECT_THAT(result.messages(), ElementsAreArray(lines));
    if (c.said.empty()) {
      EXPECT_THAT(result.errors, IsEmpty());
    } else {
      EXPECT_THAT(result.errors,
                  AllOf(HasSubstr("The service answered "), EndsWith(c.said + "\n")));
      EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1);
    }
    EXPECT_EQ(service.calls().back(), c.call) << "the run went on";
    EXPECT_THAT(service.complaints(), IsEmpty());
    expectCleanedUp();
  }
}

TEST_F(ServiceTroubleTest, AnswersThatAreNone) {
  struct Case {
    const char* name;
    Handler handler;
  };
  for (const Case& c : {
           Case{"closes", [](const ReceivedRequest&, Peer& peer) { peer.close(); }},
           Case{"resets", [](const ReceivedRequest&, Peer& peer) { peer.reset(); }},
           Case{"no HTTP",
                [](const ReceivedRequest&, Peer& peer) {
                  peer.send("220 mail.example.org ESMTP\r\n");
                  peer.close();
                }},
           Case{"half a head",
                [](const ReceivedRequest&, Peer& peer) {
                  peer.send("HTTP/1.1 2");
                  peer.close();
                }},
       }) {
    SCOPED_TRACE(c.name);
    StandInService service;
    service.answer(ServiceCall::validate, c.handler);
    const auto result = run(service.url());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages(), ElementsAreArray(notValidated(0)));
    expectCleanedUp();
  }
}

// This one takes as long as the tool is patient: a quarter of a minute.
TEST_F(ServiceTroubleTest, AServiceThatStallsIsGivenUp) {
  StandInService service;
  service.answer(ServiceCall::upload, [](const ReceivedRequest&, Peer& peer) { peer.stall(); });
  const auto before = std::chrono::steady_clock::now();
  const auto result = run(service.url());
  EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(14));
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.output, HasSubstr("Unable to submit build. Response code: 0"));
  expectCleanedUp();
}

TEST_F(ServiceTroubleTest, EndpointsThatCannotBeReached) {
  const int closedPort = StandInService().server().port();
  for (const std::string& endpoint :
       {"http://127.0.0.1:" + std::to_string(closedPort), std::string("not a url"),
        std::string("http://exa mple.org"), std::string("127.0.0.1"), std::string(),
        std::string("ftp://127.0.0.1"), std::string("file:///etc"), std::string("http://")}) {
    SCOPED_TRACE(endpoint);
    const auto result = run(endpoint);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages(), ElementsAreArray(notValidated(0)));
    expectCleanedUp();
  }
}

TEST_F(ServiceTroubleTest, TLSIsVerifiedBeforeAnythingIsSent) {
  const TLSAuthority authority;
  const auto authorityFile = place_.files() / "authority.pem";
  std::ofstream(authorityFile) << authority.certificate();
  struct Case {
    const char* name;
    TLSAuthority::Leaf leaf;
    bool trusted;
    bool accepted;
  };
  for (const Case& c : {Case{"good", {}, true, true}, Case{"unknown authority", {}, false, false},
                        Case{"another host", {.hostName = "example.org"}, true, false},
                        Case{"expired", {.expiresAfterDays = -1}, true, false}}) {
    SCOPED_TRACE(c.name);
    place_.environment().erase("SSL_CERT_FILE");
    if (c.trusted) place_.environment()["SSL_CERT_FILE"] = authorityFile;
    const StandInService service({.identity = authority.issue(c.leaf)});
    const auto result = run(service.url());
    EXPECT_EQ(result.status, c.accepted ? 0 : 1) << result.output;
    EXPECT_EQ(service.server().requests().empty(), !c.accepted);
    EXPECT_THAT(service.complaints(), IsEmpty());
    if (c.accepted) continue;
    EXPECT_THAT(result.messages(), ElementsAreArray(notValidated(0)));
  }
}

TEST_F(ServiceTroubleTest, RedirectsKeepTheCredentialsAtHome) {
  const StandInService elsewhere;
  StandInService service;
  service.answer(ServiceCall::upload, [&](const ReceivedRequest& request, Peer& peer) {
    peer.send(httpAnswer(307, "", "Location: " + elsewhere.url(request.target) + "\r\n"));
  });
  bool repeated = false;
  // Within the origin the request is repeated, body and all.
  service.answer(ServiceCall::notes, [&repeated](const ReceivedRequest& request, Peer& peer) {
    peer.send(repeated ? httpAnswer(200)
                       : httpAnswer(307, "", "Location: " + request.target + "\r\n"));
    repeated = true;
  });
  const auto result = run(service.url());
  EXPECT_EQ(result.status, 1);
  EXPECT_THAT(result.messages(),
              ElementsAre(kBanner, "Added Release Notes Successfully 200",
                          "Added Testers/Groups Successfully 200",
                          "Unable to submit build. Response code: 307", "Failed to upload binary"));
  EXPECT_EQ(elsewhere.server().connectionCount(), 0u);
  EXPECT_THAT(service.calls(),
              ElementsAre(ServiceCall::validate, ServiceCall::notes, ServiceCall::notes,
                          ServiceCall::testers, ServiceCall::upload));
  EXPECT_THAT(service.complaints(), IsEmpty());
}

}  // namespace
}  // namespace test

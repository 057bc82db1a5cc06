// A network and a server that fail in every way, met by a whole run.
#include <fstream>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/Sendoff/ToolRun.h"
#include "tests/support/AppFixture.h"
#include "tests/support/LoopbackServer.h"
#include "tests/support/TLSCertificates.h"

namespace test {
namespace {

namespace fs = std::filesystem;

using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using OnHead = std::function<bool(const ReceivedRequest&, Peer&)>;

constexpr std::size_t kNoiseSize = 6 << 20;

/// An app as large as no system's socket buffers, which needs no signing.
fs::path largeIPA(const fs::path& folder) {
  const fs::path app = makeApp(folder, {.info = {{"QuorvantileSignedForDistribution", true}}});
  std::string noise(kNoiseSize, '\0');
  std::uint32_t state = 1;
  for (char& c : noise) c = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
  std::ofstream(app / "noise", std::ios::binary) << noise;
  return packIPA(app, folder / "Example.ipa");
}

/// "127.0.0.1 port N"
std::string placeOf(const std::string& url) {
  return "127.0.0.1 port " + url.substr(url.rfind(':') + 1);
}

constexpr std::size_t kAll = std::numeric_limits<std::size_t>::max();

/// Takes so much of the body, then answers.
OnHead sendAndClose(std::string answer, std::size_t taken) {
  return [=](const ReceivedRequest& request, Peer& peer) {
    std::size_t left = std::min<std::size_t>(taken, std::stoul(*request.header("Content-Length")));
    while (left > 0) {
      const std::size_t count = peer.receive(left).size();
      if (count == 0) break;
      left -= count;
    }
    peer.send(answer);
    return true;
  };
}

OnHead sendAndReset(std::string answer, std::size_t taken) {
  return
      [send = sendAndClose(std::move(answer), taken)](const ReceivedRequest& request, Peer& peer) {
        send(request, peer);
        peer.reset();
        return true;
      };
}

OnHead sendWithoutEnd(std::string start, std::string again) {
  return [=](const ReceivedRequest&, Peer& peer) {
    peer.send(start);
    while (peer.send(again)) {
    }
    return true;
  };
}

class TransportFaultTest : public testing::Test {
 protected:
  RunResult run(const std::string& endpoint) {
    return place_.run({"-ipaPath", ipa_, "-QuorvantileAPIEndpoint", endpoint});
  }
  void expectCleanedUp() {
    for (const std::string& name : place_.leftovers()) {
      EXPECT_THAT(name, Not(testing::EndsWith(".ipa")));
      EXPECT_THAT(name, Not(testing::EndsWith(".app")));
      EXPECT_THAT(name, Not(testing::StartsWith("com.quorvantile.ipas/")));
    }
    EXPECT_EQ(contentsOf(ipa_), original_);
  }
  void expectNoSecrets(const RunResult& result) {
    for (const std::string& text : {result.output, result.errors}) {
      EXPECT_THAT(text, Not(HasSubstr(kKey)));
      EXPECT_THAT(text, Not(HasSubstr(kSecret)));
    }
  }

  Workplace place_;
  fs::path ipa_ = largeIPA(place_.files());
  std::string original_ = contentsOf(ipa_);
};

/// The validation is answered as it should be, and the upload by the row.
TEST_F(TransportFaultTest, DuringTheUpload) {
  const TLSAuthority authority;
  place_.environment()["SSL_CERT_FILE"] = place_.files() / "authority.pem";
  std::ofstream(place_.files() / "authority.pem") << authority.certificate();
  const std::string lost = " was lost";
  const std::string bad = " sent ";
  const std::string cut = "HTTP/1.1 202 Accepted\r\nContent-Length: 10\r\n\r\nfive!";
  const std::string chunked = "HTTP/1.1 202 Accepted\r\nTransfer-Encoding: chunked\r\n\r\n";
  const std::string field = "X-Field: " + std::string(900, 'x') + "\r\n";
  enum Wire { plain, tls };
  struct Row {
    const char* name;
    Wire wire;
    OnHead onUpload;
    /// In the line of the upload.
    int status;
    /// On standard error; empty: nothing there.
    std::string cause;
  };
  for (const Row& row : std::vector<Row>{
           {"reset before the body", plain, sendAndReset("", 0), 0, lost},
           {"reset in the middle of the body", plain, sendAndReset("", 1 << 20), 0, lost},
           {"reset after the body", plain, sendAndReset("", kAll), 0, lost},
           {"reset inside the answer", plain, sendAndReset(cut, kAll), 0, lost},
           {"closed after the body", plain, sendAndClose("", kAll), 0, lost},
           {"an answer shorter than its length", plain, sendAndClose(cut, kAll), 0, lost},
           {"TLS cut before the body", tls,
            [](const ReceivedRequest&, Peer&peer) {
              peer.cut();
              return true;
            },
            0, lost},
           {"TLS cut in the middle of the body", tls,
            [](const ReceivedRequest&, Peer&peer) {
              peer.receive(1 << 20);
              peer.cut();
              return true;
            },
            0, lost},
           {"TLS cut in the answer", tls,
            [&](const ReceivedRequest&request, Peer&peer) {
              sendAndClose(cut, kAll)(request, peer);
              peer.cut();
              return true;
            },
            0, lost},
           {"headers without end", plain, sendWithoutEnd("HTTP/1.1 202 Accepted\r\n", field), 0,
            bad},
           {"interim responses without end", plain,
            sendWithoutEnd("", "HTTP/1.1 100 Continue\r\n\r\n"), 0, bad},
           {"broken chunks", plain, sendAndClose(chunked + "size\r\nhello\r\n", kAll), 0, bad},
           {"chunks cut off", plain, sendAndClose(chunked + "9\r\nhello", kAll), 0, lost},
           {"no HTTP", plain, sendAndClose("220 mail.example ESMTP\r\n\r\n", kAll), 0,
            " is not valid HTTP"},
           {"an answer longer than its length", plain,
            sendAndClose("HTTP/1.1 500 No\r\nContent-Length: 2\r\n\r\nno and more", kAll), 500,
            "The service answered 500: no\n"},
           {"an early 401", plain, sendAndClose(httpAnswer(401), 1 << 20), 401, ""},
           {"an early 401 with a challenge", plain,
            sendAndClose(httpAnswer(401, "", "WWW-Authenticate: Basic realm=\"x\"\r\n"), 1 << 20),
            401, ""},
           {"an early 413", plain, sendAndClose(httpAnswer(413, "too much"), 1 << 20), 413,
            "The service answered 413: too much\n"},
           {"an early 413, then a reset", plain, sendAndReset(httpAnswer(413), 0), 413, ""},
           {"an early 413 by TLS", tls, sendAndClose(httpAnswer(413), 1 << 20), 413, ""},
       }) {
    SCOPED_TRACE(row.name);
    ServerOptions options;
    if (row.wire == tls) options.identity = authority.issue();
    options.onHead = [&row](const ReceivedRequest& request, Peer& peer) {
      return request.method == "POST" && row.onUpload(request, peer);
    };
    const LoopbackServer server(alwaysAnswer(httpAnswer(200)), options);
    const auto result = run(server.url());
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(
        result.messages(),
        ElementsAreArray({std::string("Quorvantile.framework/sendoff 1.3.6 (19)"),
                          "Unable to submit build. Response code: " + std::to_string(row.status),
                          std::string("Failed to upload binary")}));
    EXPECT_THAT(result.errors, row.cause.empty() ? testing::Matcher<const std::string&>(IsEmpty())
                                                 : HasSubstr(row.cause));
    expectNoSecrets(result);
    expectCleanedUp();
  }
}

TEST_F(TransportFaultTest, BeforeAnyRequest) {
  ServerOptions resets;
  resets.onConnection = [](Peer& peer) {
    peer.reset();
    return true;
  };
  const LoopbackServer resetting(alwaysAnswer(""), resets);
  const LoopbackServer proxy(
      alwaysAnswer(httpAnswer(407, "", "Proxy-Authenticate: Basic realm=\"p\"\r\n")));
  const std::string closed =
      "http://127.0.0.1:" + std::to_string(LoopbackServer(alwaysAnswer("")).port());
  struct Row {
    const char* name;
    std::string endpoint;
    std::string proxy;
    int status;
    std::string cause;
  };
  for (const Row& row : std::vector<Row>{
           {"refused", closed, "", 0, "refused"},
           {"reset at once", resetting.url(), "", 0, " was lost"},
           {"a host without an address", "http://service.invalid", "", 0, "cannot find the host"},
           {"a proxy without an address", "http://service.invalid", "http://proxy.invalid:80", 0,
            "cannot find the proxy proxy.invalid port 80 for service.invalid port 80"},
           {"a proxy that is not there", "http://service.invalid", closed, 0,
            "the proxy " + placeOf(closed) + " for service.invalid port 80: Connection refused"},
           {"a proxy that asks for a password", "http://service.invalid", proxy.url(), 407,
            "The proxy " + placeOf(proxy.url()) + " answered 407"},
           {"a tunnel that asks for a password", "https://service.invalid", proxy.url(), 0,
            "the proxy " + placeOf(proxy.url()) + " answered 407"},
       }) {
    SCOPED_TRACE(row.name);
    for (const char* const name : {"http_proxy", "https_proxy"}) {
      place_.environment().erase(name);
      if (!row.proxy.empty()) place_.environment()[name] = row.proxy;
    }
    const auto result = run(row.endpoint);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.messages(),
                testing::Contains("Unable to find application in Quorvantile. Response code: " +
                                  std::to_string(row.status)));
    EXPECT_THAT(result.errors, row.cause.empty() ? testing::Matcher<const std::string&>(IsEmpty())
                                                 : HasSubstr(row.cause));
    expectNoSecrets(result);
    expectCleanedUp();
  }
}

}  // namespace
}  // namespace test

#include "QVTWebClient/QVTWebRequest.h"
#include "tests/support/Test.h"

namespace {

using foundation::URL;
using Request = QVTWebRequest;
using Fill = std::function<void(Request&)>;
using Text = std::optional<std::string>;

std::shared_ptr<Request> newRequest() { return Request::requestWithMethodPath("POST", "path"); }

Fill text(const Text& value, const Text& field) {
  return [=](Request& r) {
    r.addValueForFormField(value ? std::optional<Value>(*value) : std::nullopt, field);
  };
}
Fill file(const std::string& bytes, const Text& type, const Text& name, const Text& field = "f") {
  return [=](Request& r) { r.addDataMIMETypeFileNameForFormField(Data(bytes), type, name, field); };
}
Fill dictionary(const Dictionary& fields) {
  return [=](Request& r) { r.setFormData(fields); };
}

TEST(QVTWebRequest, BuildsMultipartBodiesByteForByte) {
  const std::string bytes("a\0\r\n", 4);
  const std::string noName = "; filename=\"(null)\"";
  const std::string plain = "\r\nContent-Type: text/plain";
  const std::string zip = "\r\nContent-Type: application/zip";
  const std::string unknown = "\r\nContent-Type: application/octet-stream";
  const std::string binary = "\r\nContent-Transfer-Encoding: binary";
  const Dictionary pair = {{"k", "v"}};
  const Dictionary typedText = {{"value", "1"}, {"field", "a"}, {"mime-type", "a/b"}};
  const Fill prefixed = [&](Request& r) { r.addValueForFormFromDictWithPrefix(pair, "build"); };
  const Fill unprefixed = [&](Request& r) { r.addValueForFormFromDict(pair); };
  const Fill typed = [&](Request& r) { r.addFormRecord(typedText); };
  const struct {
    const char* name;
    Fill fill;
    std::string header, content;  // of the only part; none without a header
  } cases[] = {
      {"text", text("%d", "%@"), "\"%@\"" + plain, "%d"},
      {"no value", text({}, "a"), "", ""},
      {"no name", text("1", {}), "\"(null)\"" + plain, "1"},
      {"a file", file(bytes, "application/zip", "x.zip"),
       "\"f\"; filename=\"x.zip\"" + zip + binary, bytes},
      {"no type, and no name either", file(bytes, {}, "x.zip"), "\"f\"" + noName + unknown, bytes},
      {"no file name", file(bytes, "application/zip", {}), "\"f\"" + noName + zip + binary, bytes},
      {"no field", file(bytes, "application/zip", "x.zip", {}), "\"(null)\"" + noName + unknown,
       bytes},
      {"data from a dictionary", dictionary({{"d", Data(bytes)}}),
       "\"d\"" + noName + plain + binary, bytes},
      {"values that are neither", dictionary({{"n", 1}, {"b", true}}), "", ""},
      {"a prefix", prefixed, "\"build[k]\"" + plain, "v"},
      {"no prefix", unprefixed, "\"[k]\"" + plain, "v"},
      {"a type of its own is ignored for text", typed, "\"a\"" + plain, "1"},
  };
  const std::string start = "MIME-Version: 1.0\r\n", end = "--AaB03x--\r\n";
  std::string parts;
  const auto all = newRequest();
  for (const auto& c : cases) {
    const std::string part = "--AaB03x\r\nContent-Disposition: form-data; name=" + c.header +
                             "\r\n\r\n" + c.content + "\r\n";
    parts += c.header.empty() ? "" : part;
    c.fill(*all);
    const auto body = all->formData();
    EXPECT_EQ(body->joined(), start + parts + end) << c.name;
    EXPECT_EQ(body->size(), body->joined().size());
  }
}

TEST(QVTWebRequest, KnowsAFormThatWouldBeReadAsAnother) {
  const std::string header = "has a quotation mark or line break in its header";
  const std::string value = "has the form's own delimiter in its value";
  const std::pair<Fill, std::string> cases[] = {
      {text("1\r\n--AaB03x\r\nContent-Disposition: form-data; name=\"emails[]\"", "f"), value},
      {text("--AaB03x--", "f"), value},
      {text("a\n--AaB03xyz", "f"), value},
      {text("a\r--AaB03x", "f"), value},
      {text("a --AaB03x\r\n--AaB03\r\n-AaB03x", "f"), ""},
      {file("--AaB03x", "a/b", "x.zip"), value},
      {file("PK\r\n--AaB03x\r\n", "a/b", "x.zip"), value},
      {file("PK--AaB03x\n--AaB03x\r\n--AaB03", "a/b", "x.zip"), ""},
      {file("", "a/b", "x\"; y.zip"), header},
      {file("", "a\r\nX: y", "n"), header},
      {text("1", "f\r"), header},
      {dictionary({{"f\"", 1}}), ""},  // left out of the form
  };
  for (const auto& [fill, problem] : cases) {
    const auto request = newRequest();
    text("fine", "first")(*request);
    fill(*request);
    SCOPED_TRACE(request->formData()->joined());
    const auto found = request->formProblem();
    ASSERT_EQ(found.has_value(), !problem.empty());
    if (!found) continue;
    EXPECT_EQ(found->code, -3);
    EXPECT_THAT(found->localizedDescription(),
                testing::MatchesRegex("the form field f.* " + problem));
  }
}

TEST(QVTWebRequest, DescribesTheExchange) {
  const auto request = newRequest();
  EXPECT_FALSE(request->fullURL());
  request->setURL(URL::withString("https://API.example?x=1"));
  request->setParameters(Request::Parameters{{"", ""}, {"a/?", "=+[ \u00e4"}, {"k", "Az09-._~"}});
  EXPECT_FALSE(request->URLRequest().body);
  request->addValueForHTTPHeaderField("1", "X-Key");
  request->addValueForHTTPHeaderField("2", "x-key");
  request->addHeaders({{"X-KEY", "3"}, {"Content-Type", "own"}});
  text("v", "f")(*request);
  for (int round = 0; round < 2; ++round) {
    const auto sent = request->URLRequest();
    EXPECT_EQ(sent.method, "POST");
    EXPECT_EQ(sent.url->absoluteString(),
              "https://API.example?x=1?=&a%2F%3F=%3D%2B%5B%20%C3%A4&k=Az09-._~");
    EXPECT_EQ(sent.idleTimeout, 15s);
    EXPECT_EQ(sent.headers.at("X-Key"), "2");
    EXPECT_EQ(sent.headers.at("Content-Type"), "multipart/form-data; boundary=AaB03x");
    EXPECT_EQ(sent.body->joined(), request->formData()->joined());
  }
}

}  // namespace

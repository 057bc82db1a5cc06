#include "QVTWebClient/QVTWebRequest.h"
#include "tests/support/Test.h"

namespace {

using foundation::URL;
using Request = QVTWebRequest;

std::shared_ptr<Request> newRequest() { return Request::requestWithMethodPath("POST", "path"); }

std::string bodyOf(Request& request) {
  const auto body = request.formData();
  if (!body) return "no body";
  EXPECT_EQ(body->size(), body->joined().size());
  return body->joined();
}

std::string textPart(const std::string& name, const std::string& value) {
  return "--AaB03x\r\nContent-Disposition: form-data; name=\"" + name +
         "\"\r\nContent-Type: text/plain\r\n\r\n" + value + "\r\n";
}
std::string filePart(const std::string& names, const std::string& type, const std::string& bytes) {
  return "--AaB03x\r\nContent-Disposition: form-data; " + names + "\r\nContent-Type: " + type +
         "\r\n\r\n" + bytes + "\r\n";
}

TEST(QVTWebRequest, BuildsMultipartBodiesByteForByte) {
  const std::string bytes("a\0\r\n", 4);
  const std::string binary = "\r\nContent-Transfer-Encoding: binary";
  using Text = std::optional<std::string>;
  const auto file = [&](Request& r, std::optional<Data> data, Text type, Text name, Text field) {
    r.addDataMIMETypeFileNameForFormField(data, type, name, field);
  };
  const std::tuple<const char*, std::function<void(Request&)>, std::string> cases[] = {
      {"text, then a file",
       [&](Request& r) {
         r.addValueForFormField("%d", "%@");
         file(r, Data(bytes), "application/zip", "x.zip", "file");
       },
       textPart("%@", "%d") +
           filePart("name=\"file\"; filename=\"x.zip\"", "application/zip" + binary, bytes)},
      {"no value", [](Request& r) { r.addValueForFormField({}, "a"); }, ""},
      {"no name", [](Request& r) { r.addValueForFormField("1", {}); }, textPart("(null)", "1")},
      {"a file without type loses its name too",
       [&](Request& r) { file(r, Data(bytes), {}, "x.zip", "file"); },
       filePart("name=\"file\"; filename=\"(null)\"", "application/octet-stream", bytes)},
      {"a file without file name", [&](Request& r) { file(r, Data(bytes), "a/b", {}, "file"); },
       filePart("name=\"file\"; filename=\"(null)\"", "a/b" + binary, bytes)},
      {"a file without field", [&](Request& r) { file(r, Data(bytes), "a/b", "x.zip", {}); },
       filePart("name=\"(null)\"; filename=\"(null)\"", "application/octet-stream", bytes)},
      {"data from a dictionary is a file of type text",
       [&](Request& r) {
         r.setFormData({{"d", Data(bytes)}});
       },
       filePart("name=\"d\"; filename=\"(null)\"", "text/plain" + binary, bytes)},
      {"values that are neither",
       [](Request& r) {
         r.setFormData({{"n", 1}, {"b", true}});
       },
       ""},
      {"names with and without prefix",
       [](Request& r) {
         r.addValueForFormFromDict({{"k", "v"}});
         r.addValueForFormFromDictWithPrefix({{"k", "v"}}, "build");
       },
       textPart("[k]", "v") + textPart("build[k]", "v")},
      {"a type of its own is ignored for text",
       [](Request& r) {
         r.addFormRecord({{"value", "1"}, {"field", "a"}, {"mime-type", "a/b"}});
       },
       textPart("a", "1")},
  };
  for (const auto& [name, fill, parts] : cases) {
    const auto request = newRequest();
    fill(*request);
    EXPECT_EQ(bodyOf(*request), "MIME-Version: 1.0\r\n" + parts + "--AaB03x--\r\n") << name;
    EXPECT_EQ(request->customHeaders().at("content-type"), "multipart/form-data; boundary=AaB03x");
  }
}

TEST(QVTWebRequest, KnowsAFormThatWouldBeReadAsAnother) {
  const std::string header = "has a quotation mark or line break in its header";
  const std::string value = "has the form's own delimiter in its value";
  const auto text = [](const std::string& content, const std::string& field = "f") {
    return [=](Request& r) { r.addValueForFormField(content, field); };
  };
  const auto file = [](const std::string& content, const std::string& name = "x.zip",
                       const std::string& type = "a/b") {
    return
        [=](Request& r) { r.addDataMIMETypeFileNameForFormField(Data(content), type, name, "f"); };
  };
  const std::pair<std::function<void(Request&)>, std::string> cases[] = {
      {text("1\r\n--AaB03x\r\nContent-Disposition: form-data; name=\"emails[]\""), value},
      {text("--AaB03x--"), value},
      {text("a\n--AaB03xyz"), value},
      {text("a\r--AaB03x"), value},
      {text("a --AaB03x\r\n--AaB03x"), value},
      {text("a --AaB03x\r\n--AaB03\r\n-AaB03x"), ""},
      {file("--AaB03x"), value},
      {file("PK\r\n--AaB03x\r\n"), value},
      {file("PK--AaB03x\n--AaB03x\r\n--AaB03"), ""},
      {file("", "x\"; y.zip"), header},
      {file("", "x\n"), header},
      {file("", "n", "a\r\nX: y"), header},
      {text("1", "f\r"), header},
      {[](Request& r) {
         r.setFormData({{"f\"", 1}});
       },
       ""},  // left out of the form
  };
  for (const auto& [fill, problem] : cases) {
    const auto request = newRequest();
    request->addValueForFormField("fine", "first");
    fill(*request);
    SCOPED_TRACE(bodyOf(*request));
    const auto found = request->formProblem();
    ASSERT_EQ(found.has_value(), !problem.empty());
    if (!found) continue;
    EXPECT_EQ(found->domain, "QVTWebClientErrorDomain");
    EXPECT_EQ(found->code, -3);
    EXPECT_THAT(found->localizedDescription(),
                testing::MatchesRegex("the form field f.* " + problem));
  }
}

TEST(QVTWebRequest, AppendsEscapedParametersToItsURL) {
  using Parameters = Request::Parameters;
  const auto request = newRequest();
  EXPECT_FALSE(request->fullURL());
  EXPECT_FALSE(request->URLRequest().url);
  request->setURL(URL::withString("https://API.example?x=1"));
  const std::pair<Parameters, std::string> cases[] = {
      {{}, ""},
      {{{"a", "1"}, {"b", "2"}}, "?a=1&b=2"},
      {{{"q", "a b&c"}}, "?q=a%20b%26c"},
      {{{"a/?", "=+["}}, "?a%2F%3F=%3D%2B%5B"},
      {{{"p", "100%"}}, "?p=100%25"},
      {{{"u", "é"}}, "?u=%C3%A9"},
      {{{"m", "!*'\"();:@$,#]"}}, "?m=%21%2A%27%22%28%29%3B%3A%40%24%2C%23%5D"},
      {{{"k", "Az09-._~"}}, "?k=Az09-._~"},
      {{{"", ""}}, "?="},
  };
  for (const auto& [parameters, query] : cases) {
    request->setParameters(parameters);
    ASSERT_TRUE(request->fullURL()) << query;
    EXPECT_EQ(request->fullURL()->absoluteString(), "https://API.example?x=1" + query);
  }
}

TEST(QVTWebRequest, DescribesTheExchange) {
  const auto request = newRequest();
  request->setFormData({});
  EXPECT_FALSE(request->URLRequest().body);
  EXPECT_THAT(request->URLRequest().headers, IsEmpty());
  request->addValueForHTTPHeaderField("1", "X-Key");
  request->addValueForHTTPHeaderField("2", "x-key");
  request->addHeaders({{"X-KEY", "3"}, {"Content-Type", "own"}});
  request->addValueForFormField("v", "f");
  for (int round = 0; round < 2; ++round) {
    const auto urlRequest = request->URLRequest();
    EXPECT_EQ(urlRequest.method, "POST");
    EXPECT_EQ(urlRequest.idleTimeout, 15s);
    EXPECT_EQ(urlRequest.headers.at("X-Key"), "2");
    EXPECT_EQ(urlRequest.headers.at("Content-Type"), "multipart/form-data; boundary=AaB03x");
    EXPECT_EQ(urlRequest.body->joined(), bodyOf(*request));
  }
}

TEST(QVTWebRequestDeathTest, StopsForWhatIsMissing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(Request::requestWithMethodPath("GET", std::nullopt), "\\(path\\)");
  EXPECT_DEATH(Request::requestWithMethodPath(std::nullopt, "p"), "\\(method\\)");
}

}  // namespace

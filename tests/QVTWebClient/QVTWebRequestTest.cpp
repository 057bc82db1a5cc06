#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "QVTWebClient/QVTWebClient.h"
#include "QVTWebClient/QVTWebRequest.h"

namespace {

using foundation::Data;
using foundation::URL;

constexpr std::string_view kStart = "MIME-Version: 1.0\r\n";
constexpr std::string_view kEnd = "--AaB03x--\r\n";

std::string textPart(std::string_view name, std::string_view value) {
  return "--AaB03x\r\nContent-Disposition: form-data; name=\"" + std::string(name) +
         "\"\r\nContent-Type: text/plain\r\n\r\n" + std::string(value) + "\r\n";
}

std::string filePart(std::string_view nameAndFile, std::string_view typeLines,
                     std::string_view bytes) {
  return "--AaB03x\r\nContent-Disposition: form-data; " + std::string(nameAndFile) + "\r\n" +
         std::string(typeLines) + "\r\n" + std::string(bytes) + "\r\n";
}

std::shared_ptr<QVTWebRequest> newRequest() {
  return QVTWebRequest::requestWithMethodPath("POST", "path");
}

std::string bodyOf(QVTWebRequest& request) {
  const auto body = request.formData();
  if (!body) return "no body";
  EXPECT_EQ(body->size(), body->joined().size());
  return body->joined();
}

TEST(QVTWebRequest, BuildsMultipartBodiesByteForByte) {
  using Request = QVTWebRequest;
  const std::string binary = "Content-Transfer-Encoding: binary\r\n";
  const std::string unnamedType = "Content-Type: application/octet-stream\r\n";
  const Data data(std::string("a\0\r\n", 4));
  const std::string bytes(data.text());
  struct Case {
    const char* name;
    std::function<void(Request&)> fill;
    std::string parts;
  };
  for (const Case& c : {
           Case{"text, then a file",
                [&](Request& r) {
                  r.addValueForFormField("1", "a");
                  r.addDataMIMETypeFileNameForFormField(data, "application/zip", "x.zip", "file");
                },
                textPart("a", "1") + filePart("name=\"file\"; filename=\"x.zip\"",
                                              "Content-Type: application/zip\r\n" + binary, bytes)},
           Case{"the same name twice, in order",
                [](Request& r) {
                  r.addValueForFormField("2", "e[]");
                  r.addValueForFormField("1", "e[]");
                },
                textPart("e[]", "2") + textPart("e[]", "1")},
           Case{"no value", [](Request& r) { r.addValueForFormField(std::nullopt, "a"); }, ""},
           Case{"no name", [](Request& r) { r.addValueForFormField("1", std::nullopt); },
                textPart("(null)", "1")},
           Case{"file without type loses its name too",
                [&](Request& r) {
                  r.addDataMIMETypeFileNameForFormField(data, std::nullopt, "x.zip", "file");
                },
                filePart("name=\"file\"; filename=\"(null)\"", unnamedType, bytes)},
           Case{"file without file name",
                [&](Request& r) {
                  r.addDataMIMETypeFileNameForFormField(data, "a/b", std::nullopt, "file");
                },
                filePart("name=\"file\"; filename=\"(null)\"", "Content-Type: a/b\r\n" + binary,
                         bytes)},
           Case{"file without field",
                [&](Request& r) {
                  r.addDataMIMETypeFileNameForFormField(data, "a/b", "x.zip", std::nullopt);
                },
                filePart("name=\"(null)\"; filename=\"(null)\"", unnamedType, bytes)},
           Case{"file without data",
                [](Request& r) {
                  r.addDataMIMETypeFileNameForFormField(std::nullopt, "a/b", "x.zip", "file");
                },
                ""},
           Case{"data from a dictionary is a file of type text",
                [&](Request& r) {
                  r.setFormData({{"d", data}});
                },
                filePart("name=\"d\"; filename=\"(null)\"", "Content-Type: text/plain\r\n" + binary,
                         bytes)},
           Case{"values that are neither",
                [](Request& r) {
                  r.setFormData({{"n", 1}, {"b", true}});
                },
                ""},
           Case{"names with and without prefix",
                [](Request& r) {
                  r.addValueForFormFromDict({{"k", "v"}});
                  r.addValueForFormFromDictWithPrefix({{"k", "v"}}, "build");
                },
                textPart("[k]", "v") + textPart("build[k]", "v")},
           Case{"directives are only text",
                [](Request& r) { r.addValueForFormField("%@%s", "%d"); }, textPart("%d", "%@%s")},
           Case{"a type of its own is ignored for text",
                [](Request& r) {
                  r.addFormRecord({{"value", "1"}, {"field", "a"}, {"mime-type", "a/b"}});
                },
                textPart("a", "1")},
       }) {
    SCOPED_TRACE(c.name);
    const auto request = newRequest();
    c.fill(*request);
    EXPECT_EQ(bodyOf(*request), std::string(kStart) + c.parts + std::string(kEnd));
    EXPECT_EQ(request->customHeaders().at("content-type"), "multipart/form-data; boundary=AaB03x");
  }
}

TEST(QVTWebRequest, KnowsAFormThatWouldBeReadAsAnother) {
  const std::string header = "has a quotation mark or line break in its header";
  const std::string value = "has the form's own delimiter in its value";
  const auto text = [](const std::string& content) {
    return [=](QVTWebRequest& r) { r.addValueForFormField(content, "f"); };
  };
  const auto file = [](const std::string& content, const std::string& name = "x.zip") {
    return [=](QVTWebRequest& r) {
      r.addDataMIMETypeFileNameForFormField(Data(content), "a/b", name, "f");
    };
  };
  struct Case {
    std::function<void(QVTWebRequest&)> fill;
    std::string problem;
  };
  for (const Case& c : {
           Case{text("1\r\n--AaB03x\r\nContent-Disposition: form-data; name=\"emails[]\""), value},
           Case{text("--AaB03x--"), value},
           Case{text("a\n--AaB03xyz"), value},
           Case{text("a\r--AaB03x"), value},
           Case{text("a --AaB03x\r\n--AaB03x"), value},
           Case{text("a --AaB03x\r\n--AaB03\r\n-AaB03x"), ""},
           Case{file("--AaB03x"), value},
           Case{file("PK\r\n--AaB03x\r\n"), value},
           Case{file("PK--AaB03x\n--AaB03x\r\n--AaB03"), ""},
           Case{file("", "x\"; y.zip"), header},
           Case{file("", "x\n"), header},
           Case{[](auto& r) { r.addValueForFormField("1", "f\r"); }, header},
           Case{[](auto& r) {
                  r.addDataMIMETypeFileNameForFormField(Data(), "a\r\nX: y", "n", "f");
                },
                header},
           Case{[](auto& r) {
                  r.setFormData({{"f\"", 1}});
                },
                ""},
       }) {
    const auto request = newRequest();
    request->addValueForFormField("fine", "first");
    c.fill(*request);
    const auto problem = request->formProblem();
    SCOPED_TRACE(bodyOf(*request));
    ASSERT_EQ(problem.has_value(), !c.problem.empty());
    if (!problem) continue;
    EXPECT_EQ(problem->domain, "QVTWebClientErrorDomain");
    EXPECT_EQ(problem->code, -3);
    EXPECT_THAT(problem->localizedDescription(),
                testing::MatchesRegex("the form field f.* " + c.problem));
  }
}

TEST(QVTWebRequest, WithoutFieldsThereIsNoBodyAndNoType) {
  const auto request = newRequest();
  EXPECT_FALSE(request->formFields());
  request->setFormData({});
  EXPECT_FALSE(request->formFields());
  const auto urlRequest = request->URLRequest();
  EXPECT_FALSE(urlRequest.body);
  EXPECT_TRUE(urlRequest.headers.empty());
}

TEST(QVTWebRequest, AppendsParametersEscapedTwice) {
  struct Case {
    const char* key;
    const char* value;
    const char* query;
  };
  for (const Case& c :
       {Case{"q", "a b&c", "?q=a%20b%26c"}, Case{"a/?", "=+[", "?a%2F%3F=%3D%2B%5B"},
        Case{"p", "100%", "?p=100%25"}, Case{"u", "é", "?u=%C3%A9"},
        Case{"m", "!*'\"();:@$,#]", "?m=%21%2A%27%22%28%29%3B%3A%40%24%2C%23%5D"},
        Case{"k", "Az09-._~", "?k=Az09-._~"}, Case{"", "", "?="}}) {
    SCOPED_TRACE(c.query);
    const auto request = newRequest();
    request->setURL(URL::withString("https://api.example/items"));
    request->setParameters(QVTWebRequest::Parameters{{c.key, c.value}});
    ASSERT_TRUE(request->fullURL());
    EXPECT_EQ(request->fullURL()->absoluteString(),
              std::string("https://api.example/items") + c.query);
  }
}

TEST(QVTWebRequest, ItsFullURLIsItsURLWithoutParameters) {
  const auto request = newRequest();
  EXPECT_FALSE(request->fullURL());
  EXPECT_FALSE(request->URLRequest().url);
  request->setURL(URL::withString("https://API.example?x=1"));
  request->setParameters(QVTWebRequest::Parameters{});
  EXPECT_EQ(request->fullURL()->absoluteString(), "https://API.example?x=1");
  request->setParameters(QVTWebRequest::Parameters{{"a", "1"}, {"b", "2"}});
  EXPECT_EQ(request->fullURL()->absoluteString(), "https://API.example?x=1?a=1&b=2");
}

TEST(QVTWebRequest, DescribesTheExchange) {
  const auto request = newRequest();
  request->addValueForHTTPHeaderField("1", "X-Key");
  request->addValueForHTTPHeaderField("2", "x-key");
  request->addHeaders({{"X-KEY", "3"}, {"Content-Type", "own"}});
  request->addValueForFormField("v", "f");
  for (int round = 0; round < 2; ++round) {
    const auto urlRequest = request->URLRequest();
    EXPECT_EQ(urlRequest.method, "POST");
    EXPECT_EQ(urlRequest.idleTimeout, std::chrono::seconds(15));
    EXPECT_EQ(urlRequest.headers.at("X-Key"), "2");
    EXPECT_EQ(urlRequest.headers.at("Content-Type"), "multipart/form-data; boundary=AaB03x");
    EXPECT_EQ(urlRequest.body->joined(),
              std::string(kStart) + textPart("f", "v") + std::string(kEnd));
  }
}

TEST(QVTWebRequestDeathTest, StopsForWhatIsMissing) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(QVTWebRequest::requestWithMethodPath("GET", std::nullopt), "\\(path\\)");
  EXPECT_DEATH(QVTWebRequest::requestWithMethodPath(std::nullopt, "p"), "\\(method\\)");
}

}  // namespace

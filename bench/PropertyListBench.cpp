#include <cstdio>
#include <cstdlib>
#include <memory>

#include <benchmark/benchmark.h>
#include <expat.h>

#include "foundation/format/PropertyList.h"

namespace {

/// A project file of about 5 MB: file references, build files and groups as Xcode writes them.
std::string projectText() {
  constexpr std::size_t kSize = 5'000'000;
  std::string out =
      "// !$*UTF8*$!\n{\n\tarchiveVersion = 1;\n\tclasses = {\n\t};\n\tobjects = {\n\n";
  char id[32];
  for (unsigned i = 0; out.size() < kSize; ++i) {
    std::snprintf(id, sizeof id, "AA%08X%014X", i, i * 7);
    const std::string number = std::to_string(i);
    out += "\t\t" + std::string(id) + " /* File" + number +
           ".m in Sources */ = {isa = PBXBuildFile; " + "fileRef = " + id + "F /* File" + number +
           ".m */; settings = {COMPILER_FLAGS = " + "\"-fno-objc-arc -DX=\\\"" + number +
           "\\\"\"; }; };\n";
    out += "\t\t" + std::string(id) + "F /* File" + number + ".m */ = {isa = PBXFileReference; " +
           "fileEncoding = 4; lastKnownFileType = sourcecode.c.objc; name = File" + number +
           ".m; path = \"Some Folder/File" + number + ".m\"; sourceTree = \"<group>\"; };\n";
    out +=
        "\t\t" + std::string(id) + "A /* Group */ = {\n\t\t\tisa = PBXGroup;\n\t\t\tchildren = (\n";
    for (unsigned k = 0; k < 4; ++k) {
      out += "\t\t\t\t" + std::string(id) + "F /* File" + number + ".m */,\n";
    }
    out += "\t\t\t);\n\t\t\tpath = Group" + number + ";\n\t\t\tsourceTree = \"<group>\";\n\t\t};\n";
  }
  return out + "\t};\n\trootObject = AA00000000 /* Project object */;\n}\n";
}

const std::string& oldText() {
  static const std::string text = projectText();
  return text;
}

/// The same data as XML.
const std::string& xmlText() {
  static const std::string text = [] {
    const auto value = foundation::PropertyList::parse(foundation::bytesOf(oldText()));
    if (!value) std::abort();
    return *foundation::PropertyList::xml(*value);
  }();
  return text;
}

void parseOldText(benchmark::State& state) {
  for (auto _ : state) {
    auto value = foundation::PropertyList::parse(foundation::bytesOf(oldText()));
    if (!value) state.SkipWithError("not read");
    benchmark::DoNotOptimize(value);
  }
  state.counters["bytes"] = static_cast<double>(oldText().size());
}

void parseXML(benchmark::State& state) {
  for (auto _ : state) {
    auto value = foundation::PropertyList::parse(foundation::bytesOf(xmlText()));
    if (!value) state.SkipWithError("not read");
    benchmark::DoNotOptimize(value);
  }
}

/// The least that reading XML can cost. At most three times this is wanted of the old text form.
void expatScansXML(benchmark::State& state) {
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreate("UTF-8");
    const auto size = static_cast<int>(xmlText().size());
    if (XML_Parse(parser, xmlText().data(), size, XML_TRUE) != XML_STATUS_OK) {
      state.SkipWithError("not read");
    }
    XML_ParserFree(parser);
  }
  state.counters["bytes"] = static_cast<double>(xmlText().size());
}

/// Four megabytes of text: what escapes cost is seen against the same size without any.
void parseText(benchmark::State& state, const char* five) {
  std::string list = "<plist><array>";
  for (int i = 0; i < 200; ++i) {
    list += "<string>";
    for (int k = 0; k < 4000; ++k) list += five;
    list += "</string>";
  }
  list += "</array></plist>";
  for (auto _ : state) {
    auto value = foundation::PropertyList::parse(foundation::bytesOf(list));
    if (!value) state.SkipWithError("not read");
    benchmark::DoNotOptimize(value);
  }
}

void writeXML(benchmark::State& state) {
  const auto value = foundation::PropertyList::parse(foundation::bytesOf(oldText()));
  if (!value) std::abort();
  for (auto _ : state) benchmark::DoNotOptimize(foundation::PropertyList::xml(*value));
}

BENCHMARK_CAPTURE(parseText, plain, "abcde")->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(parseText, escaped, "&amp;")->Unit(benchmark::kMillisecond);
BENCHMARK(parseOldText)->Unit(benchmark::kMillisecond);
BENCHMARK(expatScansXML)->Unit(benchmark::kMillisecond);
BENCHMARK(parseXML)->Unit(benchmark::kMillisecond);
BENCHMARK(writeXML)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

#include <limits>

#include "tests/foundation/format/Parsing.h"

namespace foundation {
namespace {

using namespace std::string_literals;

/// A binary property list of objects that are given as their bytes.
struct BinaryList {
  std::vector<std::string> objects;
  std::uint64_t top = 0;
  std::optional<std::uint64_t> count = {};
  std::optional<std::uint64_t> table = {};
  unsigned referenceSize = 1;

  operator std::string() const {
    std::string out = "bplist00";
    std::string offsets;
    for (const std::string& object : objects) {
      offsets += bigEndian(out.size(), 4);
      out += object;
    }
    const std::uint64_t place = out.size();
    return out + offsets + std::string(6, '\0') + "\4" + bigEndian(referenceSize, 1) +
           bigEndian(count.value_or(objects.size()), 8) + bigEndian(top, 8) +
           bigEndian(table.value_or(place), 8);
  }
};

std::string xml(const std::string& content) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">" + content +
         "</plist>\n";
}

std::string nested(std::size_t depth) {
  return xml(repeated("<array>", depth) + repeated("</array>", depth));
}

std::string dateObject(double secondsSince2001) {
  return "\x33" + bigEndian(std::bit_cast<std::uint64_t>(secondsSince2001), 8);
}

/// One of each kind that every program holds, alone and as part of others.
Dictionary everyKind() {
  Dictionary all = {{"yes", true},
                    {"no", false},
                    {"integers", Array{0, -1, 255, 256, 65536, std::int64_t{1} << 40,
                                       std::numeric_limits<std::int64_t>::max(),
                                       std::numeric_limits<std::int64_t>::min()}},
                    {"unsigned", ~std::uint64_t{0}},
                    {"reals", Array{0.5, -1e300, 3.0, 1.0 / 1024}},
                    {"date", Date(1425211200s)},
                    {"early date", Date(-3600s)},
                    {"no data", Data()},
                    {"empty", ""},
                    {"ASCII", std::string(300, 'a')},
                    {"text", " <&>\"'\n\t\u00e4\u20ac\U0001f600 "},
                    {"k\u00e4y <&>", "value"},
                    {"nothing", Array{Array{}, Dictionary{}}}};
  for (const std::size_t size : {1, 2, 3, 14, 15, 256, 70000}) {
    all["data " + std::to_string(size)] = Data(noise(size));
  }
  Array many;
  for (int i = 0; i < 300; ++i) many.push_back(Dictionary{{"number", i}, {"name", "same"}});
  all["many"] = std::move(many);
  const Dictionary inner = all;
  all["all"] = Array{inner, Dictionary{{"again", inner}}};
  return all;
}

/// Other programs read what is written here, and write it in both forms: Python's XML is the
/// platform's but for ".0" after whole numbers.
TEST(PropertyList, OtherProgramsReadAndWriteTheSameValues) {
  const TemporaryFolder folder;
  const Dictionary value = everyKind();
  const auto ours = writePlist(folder / "ours", value);
  outputOf({"python3", "-c", R"(
import plistlib, re, sys
ours, folder = sys.argv[1:]
value = plistlib.load(open(ours, "rb"))
for name, form in ("python-xml", plistlib.FMT_XML), ("python-binary", plistlib.FMT_BINARY):
    with open(folder + "/" + name, "wb") as file:
        plistlib.dump(value, file, fmt=form, sort_keys=False)
theirs = open(folder + "/python-xml").read()
assert re.sub(r"(<real>\d+)\.0<", r"\1<", theirs) == open(ours).read()
)",
            ours, folder.path()});
  for (const std::string form : {"xml", "bin"}) {
    outputOf({"plistutil", "-i", folder / "python-xml", "-f", form, "-o",
              folder / ("plistutil-" + form)});
  }
  for (const std::string& name : pathsBelow(folder.path())) {
    const auto read = PropertyList::parseUnambiguous(bytesOf(contentsOf(folder / name)));
    ASSERT_EQ(problemOf(read), "") << name;
    EXPECT_TRUE(*read == Value(value)) << name;
  }
  EXPECT_THAT(pathsBelow(folder.path()), SizeIs(5));
}

TEST(PropertyList, WhatOtherProgramsChangeSurvivesXML) {
  const Dictionary value = {
      {"reals", Array{0.1, 1e22, 1.0 / 3, std::numeric_limits<double>::infinity()}},
      {"text", " \t\n\r<>&\"' ]]>"},
      {"", "empty key"},
      {"dates", Array{Date(64092211200s), Date(-62135596800s), Date(-1s)}},
      {"data", Data("\0\xff\x80<"s)}};
  expectReadings(kPropertyList, {{plist(value), value}});
}

TEST(PropertyList, RefusesToWriteWhatXMLCannotHold) {
  Value deep = Array{};
  for (int i = 0; i < 512; ++i) deep = Array{deep};
  const std::pair<Value, const char*> cases[] = {
      {Value(), "a value of class NSNull cannot be written"},
      {Array{Error{"d", 1, {}}}, "a value of class NSError cannot be written"},
      {"a\0"s, "text with the character U+0000 cannot be written"},
      {"\uffff", "text with the character U+FFFF cannot be written"},
      {"\xff", "text that is not UTF-8 cannot be written"},
      {Dictionary{{"\x1b", 1}}, "text with the character U+001B cannot be written"},
      {deep, "nested deeper than 512 levels"},
  };
  for (const auto& [value, complaint] : cases) {
    EXPECT_EQ(problemOf(PropertyList::xml(value)), std::string("property list: ") + complaint);
  }
}

TEST(PropertyList, ReadsXMLVariants) {
  expectReadings(
      kPropertyList,
      {{"\xef\xbb\xbf" + xml("<string>a</string>"), "a"},
       {"\xff\xfe" + widened(xml("<string>w</string>"), 2, false), "w"},
       {xml("<!-- a -- b ------- \xff --><array><!--\n---><true/></array>"), Array{true}},
       {xml("<string><![CDATA[<!-- a -- b]]><!-- -- -->c</string>"), "<!-- a -- bc"},
       {"<?xml version='1.0'?><?x <!-- ?><!DOCTYPE plist SYSTEM \"<!--\"><plist><true/></plist>",
        true},
       {xml("<string>&#228;&#x20ac;&lt;</string>"), "\u00e4\u20ac<"},
       {xml("<string>]]&gt;<![CDATA[&amp;]]>&apos;]]&gt;<!-- &x --> &quot;</string>"),
        "]]>&amp;']]> \""},
       {xml("<dict><key>a&amp;<![CDATA[b]]></key><string>&lt;x&gt;</string><key>c</key>"
            "<string>plain</string></dict>"),
        Dictionary{{"a&b", "<x>"}, {"c", "plain"}}},
       {xml("<dict><key>a</key><string/></dict>") + "\xff\0<dict>"s, Dictionary{{"a", ""}}},
       {"\n <?xml version='1.0' encoding='UTF-16'?><plist><string>\u00e4</string></plist>",
        "\u00e4"},
       {xml("<string>a\r\nb\rc\n</string>"), "a\r\nb\rc\n"},
       {xml("<array><integer>+7</integer><integer>-0x10</integer><integer> 8 </integer>"
            "<integer>18446744073709551615</integer><integer>x</integer></array>"),
        Array{7, -16, 8, ~std::uint64_t{0}, 0}},
       {xml("<array><real>1.5e3</real><real>-inf</real><real>x</real></array>"),
        Array{1500.0, -std::numeric_limits<double>::infinity(), 0.0}},
       {xml("<array><data> YW\nJj ZA==</data><data>!Y-Q=</data><data>YWJjZ</data></array>"),
        Array{Data("abcd"s), Data(), Data("abc"s)}},
       {xml("<array><date>2015-03-01T12:00:00Z</date><date>?</date></array>"),
        Array{Date(1425211200s), Date()}},
       {xml("<dict><key>a</key><key>b</key><key>c</key></dict>"), Dictionary{{"a", "b"}}},
       {"<?xml version='1.0'?><!DOCTYPE plist [ <!ELEMENT x (y)> ]><plist><true/></plist>", true}});
  EXPECT_TRUE(kPropertyList(nested(512)));
}

TEST(PropertyList, RefusesDamagedXML) {
  const std::string reference = ", line 2: an \"&\" begins no character";
  const std::string declared = ", line 1: entities and attributes must not be declared";
  const auto withSubset = [](const std::string& subset) {
    return "<!DOCTYPE plist [" + subset + "]><plist><true/></plist>";
  };
  expectRefusals(
      kPropertyList, "XML property list",
      {{"truncated", "<plist>\n<dict><key>a", ", line 2: the text ends inside <key>"},
       {"no reference", xml("<string>AT&T</string>"), reference},
       {"unknown name", xml("<string>a&nbsp;</string>"), reference},
       {"a surrogate", xml("<key>&#xd800;</key>"), reference},
       {"too large", xml("<string>&#x110000;</string>"), reference},
       {"entity declared elsewhere",
        "<!DOCTYPE plist SYSTEM 'x'>\n<plist><string>&a;</string></plist>", reference},
       {"crossed", xml("\n<dict></array>"), ", line 3: </array> closes nothing that is open here"},
       {"unfinished tag", "<plist><dict a='>", ", line 1: the tag that begins here does not end"},
       {"a comment in an internal subset", withSubset("<!-- -- -->"),
        ", line 1: not well-formed (invalid token)"},
       {"unfinished comment", "<plist><!-- ", ", line 1: the text ends inside <plist>"},
       {"no element", "<?xml version='1.0'?>", ", line 1: there is no element"},
       {"deep", nested(513), ", line 2: nested deeper than 512 levels"},
       {"unknown element", xml("<set/>"), ": malformed"},
       {"no value", xml(""), ": malformed"},
       {"text between", xml("<array>x<true/></array>"), ": malformed"},
       {"element in text", xml("<string>a<true/></string>"), ": malformed"},
       {"value without key", xml("<dict><true/></dict>"), ": malformed"},
       {"too many values", xml("<dict><key>a</key><true/><true/></dict>"), ": malformed"},
       {"control character", xml("\n<string>\x01</string>"),
        ", line 3: not well-formed (invalid token)"},
       {"early year", xml("<date>0000-12-31T23:59:59Z</date>"),
        ": a date outside the years 1 to 9999"},
       {"entity", withSubset("<!ENTITY a 'b'>"), declared},
       {"parameter entity", withSubset("<!ENTITY % a 'b'> %a;"), declared},
       {"default attribute", withSubset("<!ATTLIST true a CDATA 'b'>"), declared},
       {"not UTF-8", xml("<string>\xff</string>"), ": text that is not UTF-8"}});
}

TEST(PropertyList, ReadsMarkupLongerThanItIsFed) {
  expectReadings(kPropertyList, {{xml("<string>" + repeated("&amp;", 1'000'000) + "</string>"),
                                  std::string(1'000'000, '&')},
                                 {xml("<string>" + std::string(200'000, 'a') + "<!--" +
                                      std::string(3'000'000, ' ') + "-->b</string>"),
                                  std::string(200'000, 'a') + "b"}});
}

TEST(PropertyList, RefusesWhatOthersMayReadDifferently) {
  const std::string twice = xml("<dict><key>a</key><true/><key>&#97;</key><false/></dict>");
  const std::string inside =
      xml("<array><dict><key>a</key><true/><key>a</key><true/></dict></array>");
  const std::string binary = BinaryList{{"\xd2\x01\x01\x02\x02", "\x51\x61", "\x09"}};
  const std::string single = xml("<true/>");
  constexpr TextReader unambiguous{
      "PropertyList", [](Bytes bytes) { return PropertyList::parseUnambiguous(bytes); }};
  expectRefusals(
      unambiguous, "",
      {{"twice", twice, "XML property list: a dictionary has a key twice"},
       {"twice inside", inside, "XML property list: a dictionary has a key twice"},
       {"twice in binary form", binary, "binary property list: a dictionary has a key twice"},
       {"goes on", single + "x", "XML property list: goes on after its end at byte 75"},
       {"key without value", xml("<dict><key>a</key></dict>"),
        "XML property list: a key has no value"},
       {"two values", xml("<true/><false/>"), "XML property list: there is a second list"},
       {"old form", "{a=b;}", "XML property list: neither XML nor binary"},
       {"empty", "", "XML property list: neither XML nor binary"}});
  for (const std::string& text : {twice, inside, binary, single + "x"}) {
    EXPECT_EQ(problemOf(kPropertyList(text)), "") << text;
  }
  expectReadings(unambiguous,
                 {{xml("<dict><key>a</key><dict><key>a</key><true/></dict></dict>") + " \r\n\t",
                   Dictionary{{"a", Dictionary{{"a", true}}}}}});
}

TEST(PropertyList, ReadsDictionariesOfAnySizeAndWithRepeatedKeys) {
  std::string entries;
  for (int i = 0; i < 800'000; ++i) {
    entries += "<key>picture" + std::to_string(i % 400'000) + "&amp;.png</key><true/>";
  }
  const auto big = kPropertyList(xml("<dict>" + entries + "</dict>"));
  ASSERT_EQ(problemOf(big), "");
  EXPECT_EQ(big->dictionary()->size(), 400'000U);
  EXPECT_TRUE(big->find("picture399999&.png"));
}

TEST(PropertyList, HandsOverEntriesOfLongDictionaries) {
  const std::string text =
      xml("<dict><key>long</key><dict><key>b</key><dict><key>long</key><true/></dict>"
          "<key>a</key><true/></dict><key>other</key><dict><key>a</key><true/></dict></dict>");
  const std::string binary =
      BinaryList{{"\xd2\x01\x03\x02\x04", "\x54long", "\xd2\x05\x06\x07\x08", "\x55other",
                  "\xd1\x05\x07", "\x51\x61", "\x51\x62", "\x09", "\xd1\x01\x07"}};
  for (const std::string& list : {text, binary}) {
    Dictionary taken;
    const auto take = [&taken](std::string key, Value value) {
      return taken.emplace(std::move(key), std::move(value)).second;
    };
    const auto rest =
        PropertyList::parseUnambiguous(bytesOf(list), {{"long", take}, {"absent", take}});
    ASSERT_EQ(problemOf(rest), "");
    EXPECT_EQ(taken, (Dictionary{{"a", true}, {"b", Dictionary{{"long", true}}}}));
    EXPECT_EQ(*rest, Value(Dictionary{{"long", Dictionary{}}, {"other", Dictionary{{"a", true}}}}));
  }
  const auto refuse = [](const auto&, const auto&) { return false; };
  EXPECT_EQ(problemOf(PropertyList::parseUnambiguous(bytesOf(text), {{"long", refuse}})),
            "XML property list: a dictionary has a key twice");
}

TEST(PropertyList, ReadsBinaryKindsThatOtherProgramsDoNotWrite) {
  expectReadings(
      kPropertyList,
      {{BinaryList{{"\xa5\x01\x02\x03\x04\x05", "\x10\xff",
                    "\x14" + bigEndian(0, 8) + bigEndian(~std::uint64_t{0}, 8), dateObject(0.5),
                    "\x53z\0\xff"s, "\x81\x01\x02"s}},
        Array{255, ~std::uint64_t{0}, Date(978307200500ms), "z", Value::UID{258}}},
       {BinaryList{{"\xa2\x01\x01", "\xa1\x02", "\x51x"}}, Array{Array{"x"}, Array{"x"}}},
       {BinaryList{{"\x84\0\0\0\0\x07"s}}, Value::UID{7}},
       {BinaryList{{dateObject(63113904000)}}, Date(64092211200s)}});
}

/// An array that holds the next one `width` times, `depth` times over.
std::string laughs(std::size_t depth, std::size_t width) {
  BinaryList list;
  list.referenceSize = 4;
  for (std::size_t i = 0; i < depth; ++i) {
    list.objects.push_back(static_cast<char>(0xa0 + width) + repeated(bigEndian(i + 1, 4), width));
  }
  list.objects.emplace_back("\x51x");
  return list;
}

TEST(PropertyList, RefusesDamagedBinary) {
  const std::string date = "a date outside the years 1 to 9999";
  const std::string deep = "nested deeper than 512 levels";
  const std::string type = " is truncated or of no known type";
  const std::string key = " has a key that is not text or contains a NUL";
  const std::string most = bigEndian(~std::uint64_t{0}, 8);
  std::string badOffset = BinaryList{{"\xa1\x01", "\x51x"}};
  badOffset[badOffset.size() - 32 - 1] = '\x7f';
  expectRefusals(
      kPropertyList, "binary property list: ",
      {{"header only", "bplist00", "shorter than its header and trailer"},
       {"contains itself", BinaryList{{"\xa1\x00"s}}, "object 0 of 1 contains itself"},
       {"contains itself further down", BinaryList{{"\xa1\x01", "\xd1\x02\x00"s, "\x51x"}},
        "object 0 of 3 contains itself"},
       {"very deep", laughs(100000, 1), deep},
       {"doubled 100 times", laughs(100, 2), "object 85 of 101 repeats shared objects too often"},
       {"missing child", BinaryList{{"\xa1\x07"}}, "object 0 of 1 refers to the missing object 7"},
       {"missing top", BinaryList{{"\x08"}, 1}, "the top object 1 of 1 is missing"},
       {"huge count", BinaryList{{"\x08"}, 0, ~std::uint64_t{0}},
        "the table of 18446744073709551615 offsets at 9 lies outside"},
       {"table outside", BinaryList{{"\x08"}, 0, 1, 1000},
        "the table of 1 offsets at 1000 lies outside"},
       {"table in the header", BinaryList{{"\x08"}, 0, 1, 2},
        "the table of 1 offsets at 2 lies outside"},
       {"huge array", BinaryList{{"\xaf\x13" + most}},
        "object 0 of 1 has 18446744073709551615 entries, more than there is room for"},
       {"huge text", BinaryList{{"\x6f\x13" + most}}, "object 0 of 1 (marker 0x6f)" + type},
       {"length without a size", BinaryList{{"\x5f"}},
        "object 0 of 1 lies outside or has no readable length"},
       {"unknown type", BinaryList{{"\x70"}}, "object 0 of 1 (marker 0x70)" + type},
       {"number as key", BinaryList{{"\xd1\x01\x01", "\x10\x01"}}, "object 0 of 2" + key},
       {"zero in a key", BinaryList{{"\xd1\x01\x01", "\x62\x00x\x00\x00"s}}, "object 0 of 2" + key},
       {"zero in a narrow key", BinaryList{{"\xd1\x01\x01", "\x53z\0z"s}}, "object 0 of 2" + key},
       {"offset in the trailer", badOffset, "object 1 of 2 lies outside or has no readable length"},
       {"date beyond all", BinaryList{{dateObject(1e300)}}, date},
       {"date that is no number",
        BinaryList{{dateObject(std::numeric_limits<double>::quiet_NaN())}}, date}});
}

}  // namespace
}  // namespace foundation
